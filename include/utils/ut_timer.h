/**
 * @file
 * Timers on an event loop: one-shot or repeating, with a callback and a pointer for it. A timer is set up
 * once, then started and stopped as often as wanted. One that was stopped goes on, when started again, with
 * what was left; a one-shot that has expired runs its whole interval again.
 *
 *     static ut_timer blink; // in place as long as it is started
 *     ut_timer_set(&blink, 0.5, true, toggle, &led);
 *     ut_timer_start(&blink);
 *     ut_loop_run(); // toggle(&blink, &led) runs here, twice a second
 *
 * @par Threads  All functions: the thread that runs the timer's loop, or any one thread while none runs it.
 * None of them blocks, allocates per expiry or checks `timer`, which must not be NULL.
 */
#ifndef UT_TIMER_H
#define UT_TIMER_H

#include "vexamsg_export.h"

#include <ev.h>
#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ut_timer ut_timer; /**< see the structure */

/**
 * Called on every expiry, on the loop's thread.
 * @param timer     the timer; it may be started, stopped or, while inactive, set up anew from here
 * @param privdata  as given when the timer was set up
 */
typedef void (*ut_timer_callback)(ut_timer *timer, void *privdata);

/**
 * A timer. The caller owns it and keeps it in place while it is active; the library neither allocates nor
 * frees one. The fields are filled by ut_timer_set and for reading only.
 */
struct ut_timer {
    ev_timer ev;                /**< the watcher; first, so that its address is the timer's */
    struct ev_loop *loop;       /**< loop it runs on; NULL: every operation on it does nothing */
    double interval;            /**< [s] as given when it was set up */
    ut_timer_callback callback; /**< NULL: it expires without telling anybody */
    void *privdata;             /**< handed to `callback` */
};

/**
 * Sets a timer up on a given loop. It is not started.
 *
 * @param loop      stays the caller's and must outlive the timer's use; NULL gives a timer that does nothing
 * @param timer     its old content does not matter, but it must not be active
 * @param interval  [s] from the start to the expiry and, repeated, from one expiry to the next. Nothing, a
 *                  negative number or NaN count as 0: it then expires once, in the loop's next turn
 * @param repeated  true: expires every `interval` until stopped; false: once
 * @param callback  called on every expiry
 * @param privdata  handed to `callback`; never looked at
 */
VEXAMSG_API void ut_timer_set_with_loop(struct ev_loop *loop, ut_timer *timer, double interval, bool repeated,
                                        ut_timer_callback callback, void *privdata);

/**
 * ut_timer_set_with_loop for the library's own loop, ut_default_loop, which is made if it is not there yet.
 * When it cannot be made the timer is one that does nothing.
 */
VEXAMSG_API void ut_timer_set(ut_timer *timer, double interval, bool repeated, ut_timer_callback callback,
                              void *privdata);

/**
 * Starts a timer; its time counts from this call. One that is active goes on unchanged.
 */
VEXAMSG_API void ut_timer_start(ut_timer *timer);

/**
 * Stops a timer and keeps what is left of its time for the next start. Does nothing to one that is not
 * active. A one-shot that expires in the same turn of the loop is not active any more: its callback still
 * comes.
 */
VEXAMSG_API void ut_timer_stop(ut_timer *timer);

/**
 * Whether a timer runs.
 * @return true from its start until it is stopped or, if one-shot, has expired: within its callback it is
 * false
 */
VEXAMSG_API bool ut_timer_active(ut_timer *timer);

/**
 * How long until a timer expires, seen from the time at which the loop's present turn began.
 * @return [s]; of a timer that is not active what a start would begin with, or, when a one-shot has expired,
 * a number that is not above 0; 0 for a timer without a loop
 */
VEXAMSG_API double ut_timer_remaining(ut_timer *timer);

#ifdef __cplusplus
}
#endif

#endif
