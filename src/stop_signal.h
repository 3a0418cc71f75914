/**
 * @file
 * A wait that can be cut short: how the threads that mostly sleep learn that they are to end. The waits run
 * on the monotonic clock, so stepping the wall clock changes no period.
 *
 * Made of plain pthread parts that nothing destroys: a program that exits while a thread still waits must not
 * hang in a destructor.
 */
#ifndef STOP_SIGNAL_H
#define STOP_SIGNAL_H

#include "vx_lock.h"

#include <ctime>

class stop_signal {
public:
    /** Sleeps. True as soon as a stop is asked for, false when the time is over. */
    bool wait_for(int seconds) {
        timespec end{};
        (void)clock_gettime(CLOCK_MONOTONIC, &end); // cannot fail for this clock
        end.tv_sec += seconds;
        const mutex_guard hold{lock_};
        while (!stop_ && pthread_cond_clockwait(&wake_, &lock_.handle, CLOCK_MONOTONIC, &end) == 0) {
        }
        return stop_;
    }

    void request() {
        const mutex_guard hold{lock_};
        stop_ = true;
        (void)pthread_cond_broadcast(&wake_); // cannot fail
    }

    /** Makes the signal usable for the next start. Only while no thread waits. */
    void reset() {
        const mutex_guard hold{lock_};
        stop_ = false;
    }

private:
    vx_mutex lock_{PTHREAD_MUTEX_INITIALIZER};
    pthread_cond_t wake_ = PTHREAD_COND_INITIALIZER;
    bool stop_ VX_TSA(guarded_by(lock_)) = false;
};

#endif
