// Timers: what a start, a stop, an expiry and a second start do to the time that is left.
#include "utils/ut_timer.h"

#include "faults.h"
#include "utils/ut_evt.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <gtest/gtest.h>
#include <limits>
#include <pthread.h>
#include <type_traits>
#include <vector>

namespace {

using steady = std::chrono::steady_clock;

constexpr double k_clock_grain_s = 0.002; // libev's clock may lag the test's by a scheduler tick

double seconds_since(steady::time_point start) {
    return std::chrono::duration<double>(steady::now() - start).count();
}

/// Keeps the loop's thread busy, as a slow callback would.
void work_for(double seconds) {
    const auto start = steady::now();
    while (seconds_since(start) < seconds) {
    }
}

void count(ut_timer * /*timer*/, void *privdata) {
    ++*static_cast<int *>(privdata);
}

void end_loop(ut_timer * /*timer*/, void * /*privdata*/) {
    ut_loop_break();
}

/// Runs the loop for a while, with whatever is on it.
void run_loop_for(double seconds) {
    ut_timer end{};
    ut_timer_set(&end, seconds, false, end_loop, nullptr);
    ut_timer_start(&end);
    ut_loop_run();
}

} // namespace

TEST(UtTimer, HasItsFieldsInTheAgreedOrder) {
    static_assert(std::is_standard_layout_v<ut_timer>);
    EXPECT_EQ(offsetof(ut_timer, ev), 0U);
    EXPECT_LT(offsetof(ut_timer, ev), offsetof(ut_timer, loop));
    EXPECT_LT(offsetof(ut_timer, loop), offsetof(ut_timer, interval));
    EXPECT_LT(offsetof(ut_timer, interval), offsetof(ut_timer, callback));
    EXPECT_LT(offsetof(ut_timer, callback), offsetof(ut_timer, privdata));
}

TEST(UtTimer, SettingUpKeepsEverythingAndStartsNothing) {
    ut_loop_init();
    int fired = 0;
    ut_timer timer{};
    ut_timer_set_with_loop(ut_default_loop, &timer, 2.5, true, count, &fired);
    EXPECT_EQ(timer.loop, ut_default_loop);
    EXPECT_EQ(timer.interval, 2.5);
    EXPECT_EQ(timer.callback, count);
    EXPECT_EQ(timer.privdata, &fired);
    EXPECT_EQ(timer.ev.repeat, 2.5);
    EXPECT_EQ(ev_priority(&timer.ev), 0);
    EXPECT_FALSE(ev_is_pending(&timer.ev));
    EXPECT_FALSE(ut_timer_active(&timer));
    EXPECT_EQ(ut_timer_remaining(&timer), 2.5);
    ut_loop_run(); // comes back: nothing is started
    EXPECT_EQ(fired, 0);
}

TEST(UtTimer, AOneShotHasNoRepeatValue) {
    ut_timer timer{};
    ut_timer_set(&timer, 2.5, false, count, nullptr);
    EXPECT_EQ(timer.ev.repeat, 0);
}

TEST(UtTimer, SettingUpWithoutALoopMakesTheDefaultOne) {
    ASSERT_EQ(ut_default_loop, nullptr);
    ut_timer timer{};
    ut_timer_set(&timer, 1, false, count, nullptr);
    ASSERT_NE(ut_default_loop, nullptr);
    EXPECT_EQ(timer.loop, ut_default_loop);
}

TEST(UtTimer, TheCallbackGetsTheTimerAndItsPrivateData) {
    struct call {
        ut_timer *timer;
        void *privdata;
    };
    static std::vector<call> calls;
    int mine = 0;
    ut_timer timer{};
    ut_timer_set(
        &timer, 0.001, false,
        [](ut_timer *t, void *p) {
            calls.push_back({t, p});
        },
        &mine);
    ut_timer_start(&timer);
    ut_loop_run();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].timer, &timer);
    EXPECT_EQ(calls[0].privdata, &mine);
}

TEST(UtTimer, AOneShotFiresOnceAfterItsIntervalAndIsInactiveThen) {
    int fired = 0;
    ut_timer timer{};
    ut_timer_set(&timer, 0.05, false, count, &fired);
    const auto start = steady::now();
    ut_timer_start(&timer);
    EXPECT_TRUE(ut_timer_active(&timer));
    ut_loop_run(); // nothing else is on the loop, so it ends with the timer
    EXPECT_GE(seconds_since(start), 0.05 - k_clock_grain_s);
    EXPECT_EQ(fired, 1);
    EXPECT_FALSE(ut_timer_active(&timer));
}

TEST(UtTimer, AOneShotIsInactiveWithinItsOwnCallback) {
    static bool active = true;
    ut_timer timer{};
    ut_timer_set(
        &timer, 0.001, false, [](ut_timer *t, void *) { active = ut_timer_active(t); }, nullptr);
    ut_timer_start(&timer);
    ut_loop_run();
    EXPECT_FALSE(active);
}

TEST(UtTimer, ARepeatedOneStaysActiveUntilStopped) {
    static std::vector<bool> active;
    ut_timer timer{};
    ut_timer_set(
        &timer, 0.005, true,
        [](ut_timer *t, void *) {
            active.push_back(ut_timer_active(t));
            if (active.size() == 4) {
                ut_timer_stop(t);
            }
        },
        nullptr);
    const auto start = steady::now();
    ut_timer_start(&timer);
    ut_loop_run(); // ends when the timer has stopped itself
    EXPECT_GE(seconds_since(start), 4 * 0.005 - k_clock_grain_s);
    EXPECT_EQ(active, (std::vector<bool>{true, true, true, true}));
    EXPECT_FALSE(ut_timer_active(&timer));
}

TEST(UtTimer, StartingAnActiveTimerLeavesItsExpiryUnchanged) {
    int fired = 0;
    ut_timer timer{};
    ut_timer_set(&timer, 30, false, count, &fired);
    ut_timer_start(&timer);
    run_loop_for(0.05);
    const double left = ut_timer_remaining(&timer);
    EXPECT_LE(left, 30 - 0.05);
    ut_timer_start(&timer);
    EXPECT_EQ(ut_timer_remaining(&timer), left);
    EXPECT_EQ(fired, 0);
    ut_timer_stop(&timer);
}

TEST(UtTimer, AnExpiredOneShotRunsItsWholeIntervalAgain) {
    int fired = 0;
    ut_timer timer{};
    ut_timer_set(&timer, 0.05, false, count, &fired);
    for (int round = 1; round <= 3; ++round) {
        const auto start = steady::now();
        ut_timer_start(&timer);
        EXPECT_NEAR(ut_timer_remaining(&timer), 0.05, 1e-6);
        ut_loop_run();
        EXPECT_GE(seconds_since(start), 0.05 - k_clock_grain_s);
        EXPECT_EQ(fired, round);
    }
}

TEST(UtTimer, AOneShotMayStartItselfFromItsCallback) {
    static int fired = 0;
    static std::vector<double> left;
    ut_timer timer{};
    ut_timer_set(
        &timer, 0.02, false,
        [](ut_timer *t, void *) {
            if (++fired < 3) {
                ut_timer_start(t);
                left.push_back(ut_timer_remaining(t));
            }
        },
        nullptr);
    const auto start = steady::now();
    ut_timer_start(&timer);
    ut_loop_run();
    EXPECT_EQ(fired, 3);
    EXPECT_GE(seconds_since(start), 3 * 0.02 - k_clock_grain_s);
    ASSERT_EQ(left.size(), 2U);
    EXPECT_NEAR(left[0], 0.02, 1e-6);
    EXPECT_NEAR(left[1], 0.02, 1e-6);
}

TEST(UtTimer, AStoppedOneGoesOnWithWhatWasLeft) {
    int fired = 0;
    ut_timer timer{};
    ut_timer_set(&timer, 30, false, count, &fired);
    ut_timer_start(&timer);
    run_loop_for(0.05);
    ut_timer_stop(&timer);
    EXPECT_FALSE(ut_timer_active(&timer));
    const double left = ut_timer_remaining(&timer);
    EXPECT_LE(left, 30 - 0.05);
    EXPECT_GT(left, 0);
    run_loop_for(0.05); // time that passes while it is stopped does not count
    EXPECT_EQ(ut_timer_remaining(&timer), left);
    ut_timer_start(&timer);
    EXPECT_NEAR(ut_timer_remaining(&timer), left, 1e-6);
    EXPECT_EQ(fired, 0);
    ut_timer_stop(&timer);
}

TEST(UtTimer, AStoppedRepeatedOneGoesOnWithWhatWasLeftToo) {
    ut_timer timer{};
    ut_timer_set(&timer, 30, true, count, nullptr);
    ut_timer_start(&timer);
    run_loop_for(0.05);
    ut_timer_stop(&timer);
    ut_timer_start(&timer);
    EXPECT_LE(ut_timer_remaining(&timer), 30 - 0.05 + 1e-6);
    ut_timer_stop(&timer);
}

TEST(UtTimer, StoppingAnInactiveTimerDoesNothing) {
    int fired = 0;
    ut_timer timer{};
    ut_timer_set(&timer, 0.01, false, count, &fired);
    ut_timer_stop(&timer);
    EXPECT_EQ(ut_timer_remaining(&timer), 0.01);
    ut_timer_start(&timer);
    ut_loop_run();
    ut_timer_stop(&timer);
    EXPECT_LE(ut_timer_remaining(&timer), 0); // still to be seen as expired
    EXPECT_EQ(fired, 1);
}

TEST(UtTimer, AStoppedTimerDoesNotFire) {
    int fired = 0;
    ut_timer timer{};
    ut_timer_set(&timer, 0.005, false, count, &fired);
    ut_timer_start(&timer);
    ut_timer_stop(&timer);
    run_loop_for(0.05);
    EXPECT_EQ(fired, 0);
}

TEST(UtTimer, AWholeIntervalCountsFromTheCallAndNotFromTheStartOfTheTurn) {
    struct late_start {
        ut_timer started;
        steady::time_point when;
        double took;
    };
    static late_start s{};
    ut_timer_set(
        &s.started, 0.05, false, [](ut_timer *, void *) { s.took = seconds_since(s.when); }, nullptr);
    ut_timer slow{};
    ut_timer_set(
        &slow, 0.001, false,
        [](ut_timer *, void *) {
            work_for(0.1); // twice the other one's interval
            s.when = steady::now();
            ut_timer_start(&s.started);
        },
        nullptr);
    ut_timer_start(&slow);
    ut_loop_run();
    EXPECT_GE(s.took, 0.05 - k_clock_grain_s);
}

TEST(UtTimer, TheTimeOfASlowCallbackIsNotGivenBackByAStop) {
    static ut_timer stopped{};
    ut_timer_set(&stopped, 30, false, count, nullptr);
    ut_timer slow{};
    ut_timer_set(
        &slow, 0.001, false,
        [](ut_timer *, void *) {
            work_for(0.1);
            ut_timer_stop(&stopped);
        },
        nullptr);
    ut_timer_start(&stopped);
    ut_timer_start(&slow);
    ut_loop_run();
    EXPECT_LE(ut_timer_remaining(&stopped), 30 - 0.1);
}

TEST(UtTimer, OneStoppedWhenAlreadyDueFiresAtOnceWhenStarted) {
    static int fired = 0;
    static ut_timer due{};
    ut_timer_set(&due, 0.02, false, count, &fired);
    ut_timer slow{};
    ut_timer_set(
        &slow, 0.001, false,
        [](ut_timer *, void *) {
            ut_timer_start(&due);
            work_for(0.1); // it is due before this callback returns
            ut_timer_stop(&due);
        },
        nullptr);
    ut_timer_start(&slow);
    ut_loop_run();
    ASSERT_EQ(fired, 0);
    ut_timer_start(&due);
    EXPECT_LT(ut_timer_remaining(&due), 0.02 / 2); // not the whole interval: it never expired
    ut_loop_run();
    EXPECT_EQ(fired, 1);
}

TEST(UtTimer, MayBeSetUpAnewWhileInactive) {
    int first = 0;
    int second = 0;
    ut_timer timer{};
    ut_timer_set(&timer, 0.001, false, count, &first);
    ut_timer_start(&timer);
    ut_loop_run();
    ut_timer_set(&timer, 0.002, false, count, &second);
    EXPECT_EQ(ut_timer_remaining(&timer), 0.002);
    ut_timer_start(&timer);
    ut_loop_run();
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 1);
}

TEST(UtTimer, RunsOnAnotherLoopThanTheDefaultOne) {
    struct ev_loop *own = ev_loop_new(EVFLAG_AUTO);
    ASSERT_NE(own, nullptr);
    int fired = 0;
    ut_timer timer{};
    ut_timer_set_with_loop(own, &timer, 0.001, false, count, &fired);
    ut_timer_start(&timer);
    (void)ev_run(own, 0);
    EXPECT_EQ(fired, 1);
    EXPECT_EQ(ut_default_loop, nullptr);
    ev_loop_destroy(own);
}

TEST(UtTimer, WithoutACallbackItExpiresSilently) {
    ut_timer timer{};
    ut_timer_set(&timer, 0.001, false, nullptr, nullptr);
    ut_timer_start(&timer);
    ut_loop_run();
    EXPECT_FALSE(ut_timer_active(&timer));
}

class UtTimerOddInterval : public testing::TestWithParam<double> {};

TEST_P(UtTimerOddInterval, ExpiresOnceInTheNextTurn) {
    int fired = 0;
    ut_timer timer{};
    ut_timer_set(&timer, GetParam(), true, count, &fired);
    EXPECT_EQ(timer.ev.repeat, 0);
    ut_timer_start(&timer);
    EXPECT_TRUE(ut_timer_active(&timer));
    ut_loop_run();
    EXPECT_EQ(fired, 1);
    ut_timer_start(&timer);
    ut_loop_run();
    EXPECT_EQ(fired, 2);
}

INSTANTIATE_TEST_SUITE_P(Values, UtTimerOddInterval,
                         testing::Values(0.0, -1.0, -std::numeric_limits<double>::infinity(), std::nan("")));

TEST(UtTimer, OnANullLoopNothingHappens) {
    int fired = 0;
    ut_timer timer{};
    ut_timer_set_with_loop(nullptr, &timer, 1, true, count, &fired);
    ut_timer_start(&timer);
    EXPECT_FALSE(ut_timer_active(&timer));
    EXPECT_EQ(ut_timer_remaining(&timer), 0);
    ut_timer_stop(&timer);
    EXPECT_EQ(fired, 0);
}

TEST(UtTimer, NeverSetUpItIsInertWhenItsMemoryIsZero) {
    ut_timer timer{};
    ut_timer_start(&timer);
    ut_timer_stop(&timer);
    EXPECT_FALSE(ut_timer_active(&timer));
    EXPECT_EQ(ut_timer_remaining(&timer), 0);
}

TEST(UtTimer, WhenTheDefaultLoopCannotBeMadeATimerIsInertUntilItIsSetUpAgain) {
    faults::fail(faults::call::ev_loop_new, 0, 1);
    int fired = 0;
    ut_timer timer{};
    ut_timer_set(&timer, 0.001, false, count, &fired);
    EXPECT_EQ(timer.loop, nullptr);
    ut_timer_start(&timer);
    EXPECT_FALSE(ut_timer_active(&timer));
    EXPECT_EQ(ut_timer_remaining(&timer), 0);
    ut_loop_run();
    ut_timer_set(&timer, 0.001, false, count, &fired);
    ut_timer_start(&timer);
    ut_loop_run();
    EXPECT_EQ(fired, 1);
}

namespace {

std::atomic<int> threads_ended_by_the_loop{0};

/// Runs the loop on a thread of its own until that thread ends, one way or the other.
void run_loop_on_a_thread() {
    const auto body = [](void *) -> void * {
        ut_loop_run();
        ++threads_ended_by_the_loop;
        return nullptr;
    };
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, body, nullptr), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
}

void end_thread(ut_timer * /*timer*/, void *privdata) {
    ++*static_cast<int *>(privdata);
    pthread_exit(nullptr);
}

} // namespace

TEST(UtTimer, ACallbackMayEndTheThreadAndTheLoopRunsAgainOnAnother) {
    int ended = 0;
    ut_timer timer{};
    ut_timer_set(&timer, 0.005, false, end_thread, &ended);
    for (int round = 1; round <= 5; ++round) {
        ut_timer_start(&timer);
        run_loop_on_a_thread();
        EXPECT_EQ(ended, round);
        EXPECT_FALSE(ut_timer_active(&timer));
    }
    EXPECT_EQ(threads_ended_by_the_loop, 0);
    run_loop_on_a_thread(); // nothing is started any more, so the loop ends as it should
    EXPECT_EQ(threads_ended_by_the_loop, 1);
}

TEST(UtTimer, ARepeatedOneWhoseCallbackEndsTheThreadGoesOnOnTheNextThread) {
    int ended = 0;
    ut_timer timer{};
    ut_timer_set(&timer, 0.005, true, end_thread, &ended);
    ut_timer_start(&timer);
    for (int round = 1; round <= 5; ++round) {
        run_loop_on_a_thread();
        EXPECT_EQ(ended, round);
        EXPECT_TRUE(ut_timer_active(&timer));
    }
    EXPECT_EQ(threads_ended_by_the_loop, 0);
    ut_timer_stop(&timer);
}
