/**
 * @file
 * The test programs define ControlLog and ControlLogInit themselves, as an application may, and keep every
 * line that the library writes, so that tests can ask for it by level, unit, function and format.
 */
#ifndef LOG_CAPTURE_H
#define LOG_CAPTURE_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace logs {

struct line {
    int module;
    int level;
    std::string unit;     // the file argument, "src/io_pool"
    std::string function; // the function argument
    std::string format;   // the format string as passed
    std::string text;     // formatted
};

/** Every line since the start or the last clear(), oldest first. */
std::vector<line> all();
void clear();

/** Whether lines and names are kept; they are at the start. For tests that write more of them than memory
 * should hold.
 */
void keep(bool lines_are_kept);

/** The lines with this format string. */
std::vector<line> with_format(const std::string &format);

/** How many lines have this format string. */
size_t count(const std::string &format);

/** Waits until a line with this format is there; false when the deadline passes first. */
bool wait_for(const std::string &format, size_t how_often = 1,
              std::chrono::milliseconds deadline = std::chrono::seconds(10));

/** The names given to ControlLogInit, oldest first. */
std::vector<std::string> init_names();

/** Called for every line, on the thread that logs, with no lock held. An empty function ends it. */
void on_line(std::function<void(const line &)> listener);

} // namespace logs

#endif
