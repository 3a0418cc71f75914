// The wall clock steps by an hour, forth and back: no period and no wait changes, because none is kept by it.
#include "log_capture.h"
#include "node_mapping.h"
#include "peer.h"
#include "stop_time.h"
#include "wait.h"

#include <atomic>
#include <cerrno>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/time.h>
#include <thread>

namespace {

std::atomic<long> g_step_s{0};           // how far this process's wall clock is ahead
std::atomic<long> g_wall_clock_asked{0}; // how often somebody wanted to know it
std::atomic<long> g_waits_on_it{0};      // waits that would end by it

template <class Function>
Function real(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

// These come before the C library's when the program is loaded: the library and libev ask here what time it
// is.

extern "C" int clock_gettime(clockid_t clock, struct timespec *now) noexcept {
    static const auto ask = real<decltype(&clock_gettime)>("clock_gettime");
    const int result = ask(clock, now);
    if (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE) {
        ++g_wall_clock_asked;
        now->tv_sec += g_step_s;
    }
    return result;
}

extern "C" int gettimeofday(struct timeval *now, void *zone) noexcept {
    static const auto ask = real<int (*)(struct timeval *, void *)>("gettimeofday");
    const int result = ask(now, zone);
    ++g_wall_clock_asked;
    now->tv_sec += g_step_s;
    return result;
}

extern "C" time_t time(time_t *where) noexcept {
    timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    if (where != nullptr) {
        *where = now.tv_sec;
    }
    return now.tv_sec;
}

extern "C" int pthread_cond_timedwait(pthread_cond_t *cond, pthread_mutex_t *mutex,
                                      const struct timespec *end) {
    ++g_waits_on_it;
    return real<decltype(&pthread_cond_timedwait)>("pthread_cond_timedwait")(cond, mutex, end);
}

extern "C" int pthread_mutex_timedlock(pthread_mutex_t *mutex, const struct timespec *end) noexcept {
    ++g_waits_on_it;
    return real<decltype(&pthread_mutex_timedlock)>("pthread_mutex_timedlock")(mutex, end);
}

extern "C" int pthread_timedjoin_np(pthread_t thread, void **result, const struct timespec *end) {
    ++g_waits_on_it;
    return real<decltype(&pthread_timedjoin_np)>("pthread_timedjoin_np")(thread, result, end);
}

extern "C" int sem_timedwait(sem_t *semaphore, const struct timespec *end) {
    ++g_waits_on_it;
    return real<decltype(&sem_timedwait)>("sem_timedwait")(semaphore, end);
}

extern "C" int clock_nanosleep(clockid_t clock, int flags, const struct timespec *time,
                               struct timespec *left) {
    g_waits_on_it += clock == CLOCK_REALTIME && (flags & TIMER_ABSTIME) != 0;
    return real<decltype(&clock_nanosleep)>("clock_nanosleep")(clock, flags, time, left);
}

extern "C" int pthread_cond_clockwait(pthread_cond_t *cond, pthread_mutex_t *mutex, clockid_t clock,
                                      const struct timespec *end) {
    g_waits_on_it += clock == CLOCK_REALTIME;
    return real<decltype(&pthread_cond_clockwait)>("pthread_cond_clockwait")(cond, mutex, clock, end);
}

namespace {

using bus::bytes;
using bus::message;
using bus::node_under_test;
using steady = std::chrono::steady_clock;

constexpr uint16_t k_id = 9;
constexpr long k_hour_s = 3600;
constexpr double k_slack_s = 4; // for a machine that is busy with other things

double seconds_since(steady::time_point start) {
    return std::chrono::duration<double>(steady::now() - start).count();
}

class WallClock : public testing::TestWithParam<long> {
protected:
    void TearDown() override {
        g_step_s = 0;
        EXPECT_EQ(g_waits_on_it, 0);
    }
};

} // namespace

TEST_P(WallClock, StepLeavesThePeriodOfRegisteringAsItIs) {
    node_under_test node{k_id};
    ASSERT_EQ(node.start(), 0);
    ASSERT_TRUE(node.manager().receive());
    auto last = steady::now();
    for (int i = 0; i < 3; ++i) {
        g_step_s = i % 2 == 0 ? GetParam() : 0; // while the worker waits
        ASSERT_TRUE(node.manager().receive());
        EXPECT_GE(seconds_since(last), 0.9) << i;
        EXPECT_LE(seconds_since(last), 1 + k_slack_s) << i;
        last = steady::now();
    }
    node.tell(bus::table({}), bus::k_accepted);
    ASSERT_TRUE(node.settle());
    ASSERT_TRUE(node.manager().receive()) << "the last of the short periods";
    g_step_s = GetParam();
    EXPECT_FALSE(node.manager().receive(bus::milliseconds(2000))) << "the long period has begun";
    g_step_s = 0;
    EXPECT_FALSE(node.manager().receive(bus::milliseconds(500)));
}

TEST_P(WallClock, StepLeavesTheEndOfTheSessionAsItIs) {
    node_under_test node{k_id};
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(node.join({3}));
        (void)node.manager().take_all();
        double took_s = 0;
        std::thread stopper([&took_s] { took_s = timed_stop(); });
        EXPECT_TRUE(node.manager().receive()) << "the UNREGISTER; the timer has started, or is about to";
        g_step_s = g_step_s == 0 ? GetParam() : 0;
        stopper.join();
        EXPECT_GE(took_s, 0.0295);
        EXPECT_LT(took_s, k_busy_limit_s);
    }
    EXPECT_EQ(logs::count("thrio thread exit\n"), 5U);
}

TEST_P(WallClock, StepLeavesTheStopOfAHinderedNodeAsItIs) {
    node_under_test node{k_id};
    ASSERT_TRUE(node.join({3}));
    ASSERT_TRUE(node.hold());
    double took_s = 0;
    const long asked = g_wall_clock_asked;
    std::thread stopper([&took_s] { took_s = timed_stop(); });
    ASSERT_TRUE(wait_until([] { return vision_brocast_msg("x", 1) == -1; }));
    g_step_s = GetParam();
    stopper.join();
    EXPECT_GT(took_s, 0.5);
    EXPECT_LT(took_s, k_busy_limit_s);
    EXPECT_EQ(g_wall_clock_asked, asked) << "nobody wants to know it";
}

TEST_P(WallClock, StepIsSeenByTheTimeOfArrivalOnly) {
    node_under_test node{k_id};
    ASSERT_TRUE(node.join({3}));
    g_step_s = GetParam();
    const long asked = g_wall_clock_asked;
    node_under_test::forget_heard();
    node.send(message({1, 3, k_id}));
    ASSERT_TRUE(node_under_test::wait_heard(1));
    EXPECT_GT(g_wall_clock_asked, asked) << "the step is in its way";
    const int64_t stamp_ns = node_under_test::all_heard()[0].extra.recv_time;
    EXPECT_GE(stamp_ns, 0);
    EXPECT_LT(stamp_ns, 1'000'000'000);
    EXPECT_EQ(vxmsg_send_general(3, 1, "x", 1), 0);
    EXPECT_TRUE(node.other(3).receive());
}

INSTANTIATE_TEST_SUITE_P(ByAnHour, WallClock, testing::Values(k_hour_s, -k_hour_s),
                         [](const auto &tested) { return tested.param > 0 ? "Forth" : "Back"; });
