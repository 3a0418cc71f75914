/**
 * @file
 * What the demo shows while it runs: scenes with a title, and under each one line per thing that happened,
 * with the time since the start and who saw it. Colour on a terminal only.
 */
#ifndef DEMO_TRANSCRIPT_H
#define DEMO_TRANSCRIPT_H

#include <cstdint>
#include <string>

namespace demo {

/** How a text is meant; decides its colour. */
enum class tone { plain, title, faint, good, bad };

class transcript {
public:
    /** @param started_ns  monotonic time from which the lines count */
    explicit transcript(uint64_t started_ns);

    /** Begins the next scene. */
    void scene(const std::string &title);

    /** One event. */
    void event(const std::string &who, const std::string &what, tone how = tone::plain) const;

    /** One line of its own, without time. */
    void line(const std::string &text, tone how = tone::plain) const;

    /** Whether somebody watches, or a file or a program takes the lines. */
    [[nodiscard]] bool on_terminal() const { return terminal_; }

    /** The text, in colour where there is any. */
    [[nodiscard]] std::string paint(const std::string &text, tone how) const;

private:
    uint64_t started_ns_;
    bool terminal_;
    bool colours_;
    int scenes_ = 0;
};

/** A time for reading: "0.042 ms". */
std::string as_ms(uint64_t ns);

} // namespace demo

#endif
