/**
 * @file
 * A wait that can be cut short: how the threads that mostly sleep learn that they are to end. The waits run
 * on the monotonic clock, so stepping the wall clock changes no period.
 */
#ifndef STOP_SIGNAL_H
#define STOP_SIGNAL_H

#include <chrono>
#include <condition_variable>
#include <mutex>

class stop_signal {
public:
    /** Sleeps. True as soon as a stop is asked for, false when the time is over. */
    bool wait_for(std::chrono::seconds duration) {
        std::unique_lock hold{mutex_};
        return wake_.wait_for(hold, duration, [this] { return stop_; });
    }

    /** Does something unless a stop was asked for; once request() has returned, nothing is done any more. */
    template <class Work>
    bool unless_stopped(Work work) {
        const std::lock_guard hold{mutex_};
        if (stop_) {
            return false;
        }
        work();
        return true;
    }

    void request() {
        {
            const std::lock_guard hold{mutex_};
            stop_ = true;
        }
        wake_.notify_all();
    }

    /** Makes the signal usable for the next start. Only while no thread waits. */
    void reset() {
        const std::lock_guard hold{mutex_};
        stop_ = false;
    }

private:
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stop_ = false;
};

#endif
