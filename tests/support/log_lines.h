/**
 * @file
 * Log lines as text that shows level, unit and function, so that a test compares all of it at once.
 *
 *     EXPECT_THAT(logs::lines(), ElementsAre("WARN src/io_pool io_pool_init: io_pool init duplicated\n"));
 */
#ifndef LOG_LINES_H
#define LOG_LINES_H

#include "log_capture.h"

#include <string>
#include <vector>

namespace logs {

inline std::string to_text(const line &l) {
    static const char *const levels[] = {"EMERGENCY", "ERROR", "WARN", "INFO", "DBG"};
    const std::string level = l.level >= 0 && l.level < 5 ? levels[l.level] : std::to_string(l.level);
    const std::string module = l.module == 2 ? "" : "module " + std::to_string(l.module) + " ";
    return module + level + " " + l.unit + " " + l.function + ": " + l.text;
}

inline std::vector<std::string> to_texts(const std::vector<line> &all) {
    std::vector<std::string> texts;
    for (const line &l : all) {
        texts.push_back(to_text(l));
    }
    return texts;
}

/** Every line since the start or the last clear(). */
inline std::vector<std::string> lines() {
    return to_texts(all());
}

/** The lines that were made of this format string. */
inline std::vector<std::string> lines_of(const std::string &format) {
    return to_texts(with_format(format));
}

} // namespace logs

#endif
