// Timers on a libev loop.
//
// libev keeps in an inactive timer how much of its time is left. What is not above 0 marks a one-shot that
// has expired; a timer that is stopped in time always keeps more than that.
#include "utils/ut_timer.h"

#include "utils/ut_evt.h"

#include <cstddef>
#include <limits>

namespace {

constexpr double k_overdue =
    std::numeric_limits<double>::min(); // [s] left of a timer stopped when already due

static_assert(offsetof(ut_timer, ev) == 0, "the watcher's address is taken for the timer's");

/// The interval as libev may have it: a negative one would end the process, NaN would disorder its timers.
double usable(double interval_s) {
    return interval_s > 0 ? interval_s : 0;
}

void on_timer(struct ev_loop * /*loop*/, ev_timer *ev, int /*events*/) {
    ut_timer *timer = reinterpret_cast<ut_timer *>(ev);
    if (timer->callback != nullptr) {
        timer->callback(timer, timer->privdata);
    }
}

} // namespace

void ut_timer_set_with_loop(struct ev_loop *loop, ut_timer *timer, double interval, bool repeated,
                            ut_timer_callback callback, void *privdata) {
    ev_timer_init(&timer->ev, on_timer, usable(interval), repeated ? usable(interval) : 0);
    timer->loop = loop;
    timer->interval = interval;
    timer->callback = callback;
    timer->privdata = privdata;
}

void ut_timer_set(ut_timer *timer, double interval, bool repeated, ut_timer_callback callback,
                  void *privdata) {
    ut_loop_init();
    ut_timer_set_with_loop(ut_default_loop, timer, interval, repeated, callback, privdata);
}

void ut_timer_start(ut_timer *timer) {
    if (timer->loop == nullptr || ut_timer_active(timer)) {
        return;
    }
    if (ut_timer_remaining(timer) <= 0) {
        ev_timer_set(&timer->ev, usable(timer->interval), timer->ev.repeat);
    }
    ev_now_update(timer->loop); // libev counts from the start of its turn, which may be long ago
    ev_timer_start(timer->loop, &timer->ev);
}

void ut_timer_stop(ut_timer *timer) {
    if (!ut_timer_active(timer)) {
        return;
    }
    ev_now_update(timer->loop); // so that the time this turn has taken is not given back
    ev_timer_stop(timer->loop, &timer->ev);
    if (ut_timer_remaining(timer) <= 0) {
        ev_timer_set(&timer->ev, k_overdue, timer->ev.repeat);
    }
}

bool ut_timer_active(ut_timer *timer) {
    return timer->loop != nullptr && ev_is_active(&timer->ev);
}

double ut_timer_remaining(ut_timer *timer) {
    return timer->loop == nullptr ? 0 : ev_timer_remaining(timer->loop, &timer->ev);
}
