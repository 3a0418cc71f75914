/**
 * @file
 * The log of a fuzz target: every line is formatted, so that a wrong argument or a text without an end is
 * seen, and counted, but not kept.
 */
#ifndef FUZZ_LOG_H
#define FUZZ_LOG_H

#include <cstddef>

namespace fuzz {

/** How many lines have been logged since the last call. */
size_t lines_logged();

} // namespace fuzz

#endif
