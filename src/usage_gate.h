/**
 * @file
 * Keeps what a stop takes away (locks, queues, descriptors) alive while somebody still uses it. Users pass
 * the gate on their way in and leave it on their way out; closing it turns newcomers away and waits for the
 * last user to leave. A gate is closed until it is opened, so it also answers for the time before the first
 * start.
 */
#ifndef USAGE_GATE_H
#define USAGE_GATE_H

#include "deadline.h"

#include <atomic>
#include <cstdint>

class usage_gate {
public:
    /** Counts the caller in. False, and not counted, while the gate is closed. */
    bool enter() {
        uint32_t seen = state_.load(std::memory_order_relaxed);
        while ((seen & k_open) != 0) {
            if (state_.compare_exchange_weak(seen, seen + 1, std::memory_order_acquire,
                                             std::memory_order_relaxed)) {
                return true;
            }
        }
        return false;
    }

    /** Counts the caller out. Only after an enter() that returned true. */
    void leave() {
        if (state_.fetch_sub(1, std::memory_order_release) == 1) {
            state_.notify_all(); // closed, and this was the last user
        }
    }

    void open() { state_.fetch_or(k_open, std::memory_order_release); }

    /** Turns newcomers away. */
    void shut() { state_.fetch_and(~k_open, std::memory_order_relaxed); }

    /** Turns newcomers away, then waits until nobody is inside. Never called by a user who is inside. */
    void close() {
        uint32_t seen = state_.fetch_and(~k_open, std::memory_order_acq_rel) & ~k_open;
        while (seen != 0) {
            state_.wait(seen, std::memory_order_acquire);
            seen = state_.load(std::memory_order_acquire);
        }
    }

    /** The same with an end to the waiting. False when somebody is still inside then. */
    bool close_by(deadline_t end) {
        shut();
        return true_by(end, [this] { return state_.load(std::memory_order_acquire) == 0; });
    }

private:
    static constexpr uint32_t k_open = uint32_t{1} << 31;

    std::atomic<uint32_t> state_{0}; // top bit: open; the rest: users inside
};

/** One passage through a gate, for the length of a scope. False when the gate was closed. */
class gate_pass {
public:
    explicit gate_pass(usage_gate &gate) : gate_(gate), inside_(gate.enter()) {}
    ~gate_pass() {
        if (inside_) {
            gate_.leave();
        }
    }
    gate_pass(const gate_pass &) = delete;
    gate_pass &operator=(const gate_pass &) = delete;
    explicit operator bool() const { return inside_; }

private:
    usage_gate &gate_;
    const bool inside_;
};

#endif
