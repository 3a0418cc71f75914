/**
 * @file
 * Waiting for an event with a bound: no test sleeps and hopes.
 */
#ifndef TEST_WAIT_H
#define TEST_WAIT_H

#include <chrono>
#include <thread>

/** Asks until the answer is true; false when the deadline passes first. */
template <class Predicate>
bool wait_until(Predicate predicate, std::chrono::milliseconds deadline = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

#endif
