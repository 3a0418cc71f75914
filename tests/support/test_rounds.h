/**
 * @file
 * How often a test repeats what it does: a small number by itself, any other on demand.
 */
#ifndef TEST_ROUNDS_H
#define TEST_ROUNDS_H

#include <cstdlib>

/** What the environment variable says, else `usual`. */
inline long test_rounds(const char *variable, long usual) {
    const char *given = getenv(variable);
    return given != nullptr ? strtol(given, nullptr, 10) : usual;
}

#endif
