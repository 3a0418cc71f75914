/* Timers: a repeating one, a one-shot that is started again, and one that is stopped and goes on. */
#include "utils/ut_evt.h"
#include "utils/ut_timer.h"

#include <stdio.h>

static ut_timer blink; /* timers stay in place as long as they are started, hence static */
static ut_timer once;
static ut_timer paused;

static void on_once(ut_timer *timer, void *privdata) {
    int *rounds = privdata;
    printf("one-shot: round %d, active: %s\n", ++*rounds, ut_timer_active(timer) ? "yes" : "no");
    if (*rounds < 2) {
        ut_timer_start(timer); /* has expired, so it runs its whole interval again */
        return;
    }
    ut_timer_start(&paused); /* was stopped, so it goes on with what was left */
}

static void on_blink(ut_timer *timer, void *privdata) {
    int *blinks = privdata;
    printf("blink %d\n", ++*blinks);
    if (*blinks == 3) {
        ut_timer_stop(timer);
        ut_timer_start(&once);
    }
}

static void on_paused(ut_timer *timer, void *privdata) {
    (void)timer;
    printf("%s\n", (const char *)privdata);
    ut_loop_break();
}

int main(void) {
    int blinks = 0;
    int rounds = 0;
    static char last[] = "the paused one fires last";

    ut_timer_set(&blink, 0.02, true, on_blink, &blinks); /* makes the loop */
    ut_timer_set(&once, 0.01, false, on_once, &rounds);
    ut_timer_set(&paused, 0.03, false, on_paused, last);
    if (ut_default_loop == NULL) {
        return 1;
    }
    ut_timer_start(&paused);
    ut_timer_stop(&paused);
    printf("paused: active: %s, something left: %s\n", ut_timer_active(&paused) ? "yes" : "no",
           ut_timer_remaining(&paused) > 0 ? "yes" : "no");

    ut_timer_start(&blink);
    ut_loop_run(); /* all callbacks run in here, on this thread */
    printf("done\n");
    return 0;
}
