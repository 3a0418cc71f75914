/**
 * @file
 * The library's two ways of not repeating a log line: on change of a value, and on change or every 101st
 * time. Nothing here locks. A throttle that several threads reach may log a line once too often or too
 * rarely, which harms nobody; the atomics only keep that free of undefined behaviour.
 */
#ifndef LOG_THROTTLE_H
#define LOG_THROTTLE_H

#include <atomic>

/** Passes the first value and every value that differs from the last one passed. */
class log_on_change {
public:
    bool passes(int value) {
        const bool first = first_time_log_.exchange(1, std::memory_order_relaxed) == 0;
        if (!first && last_ret_.load(std::memory_order_relaxed) == value) {
            return false;
        }
        last_ret_.store(value, std::memory_order_relaxed);
        return true;
    }

private:
    std::atomic<int> first_time_log_{0}; // 0 until the first event
    std::atomic<int> last_ret_{0};       // the value of the last event that passed
};

/** Passes what log_on_change passes and, of a constant value, events 1, 102, 203 and so on. */
class log_now_and_then {
public:
    bool passes(int value) {
        if (change_.passes(value)) {
            times_.store(0, std::memory_order_relaxed);
            return true;
        }
        if (times_.load(std::memory_order_relaxed) > k_most_skipped) {
            times_.store(0, std::memory_order_relaxed);
            return true;
        }
        times_.fetch_add(1, std::memory_order_relaxed);
        return false;
    }

private:
    static constexpr int k_most_skipped = 99;

    log_on_change change_;
    std::atomic<int> times_{0}; // events skipped since the last one that passed
};

#endif
