/** @file What the two ways to run a child process have in common. */
#ifndef PROCESS_DESCRIPTORS_H
#define PROCESS_DESCRIPTORS_H

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <unistd.h>

constexpr int k_cannot_run =
    127; /**< exit status of a child whose program cannot be run, as a shell has it */

/** Throws what errno says about a system call. */
[[noreturn]] inline void fail(const char *what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/** A time-out for poll that does not end early. */
inline std::chrono::milliseconds left_until(std::chrono::steady_clock::time_point end) {
    return std::max(std::chrono::milliseconds(0),
                    std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()));
}

inline void close_if_open(int &fd) {
    if (fd >= 0) {
        (void)close(fd);
        fd = -1;
    }
}

#endif
