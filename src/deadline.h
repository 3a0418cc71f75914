/**
 * @file
 * Waits that have an end, for a stop that must not depend on others: on the monotonic clock, so stepping the
 * wall clock changes none of them.
 */
#ifndef DEADLINE_H
#define DEADLINE_H

#include <chrono>
#include <thread>

using deadline_t = std::chrono::steady_clock::time_point;

inline deadline_t deadline_in(std::chrono::milliseconds time) {
    return std::chrono::steady_clock::now() + time;
}

/** Asks until the answer is yes or the time is over, at least once. Returns the last answer. */
template <class Question>
bool true_by(deadline_t end, Question question) {
    constexpr std::chrono::microseconds pause{200};
    while (!question()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(pause);
    }
    return true;
}

#endif
