/**
 * @file
 * The line in which a subcommand shows how it gets on: on a terminal, over and over in the same place;
 * nothing anywhere else.
 *
 *     vexa::progress_line line;
 *     if (line.is_due()) { line.show(fmt::format("{} messages", count)); }
 */
#ifndef VEXA_PROGRESS_LINE_H
#define VEXA_PROGRESS_LINE_H

#include <chrono>
#include <string>

namespace vexa {

class progress_line {
public:
    progress_line();
    ~progress_line() { clear(); }
    progress_line(const progress_line &) = delete;
    progress_line &operator=(const progress_line &) = delete;

    /** Whether there is a terminal, and it was not written to just now. */
    [[nodiscard]] bool is_due() const;

    /** Replaces the line; what the terminal has no room for is left out. */
    void show(const std::string &text);

    /** Removes it, so that something else can be written. */
    void clear();

private:
    bool on_terminal_;
    bool shown_ = false;
    std::chrono::steady_clock::time_point last_;
};

} // namespace vexa

#endif
