/** @file The lines that a subcommand prints while it runs, for a reader at a pipe as for one at a terminal.
 */
#ifndef VEXA_LINE_OUTPUT_H
#define VEXA_LINE_OUTPUT_H

#include <string>

namespace vexa {

/** Prints the line at once. A reader that has gone is noticed by the signal that comes of it. */
void say(const std::string &line);

/** This machine's time of day, "14:03:59". */
[[nodiscard]] std::string clock_text();

} // namespace vexa

#endif // VEXA_LINE_OUTPUT_H
