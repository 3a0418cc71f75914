// Timers with any interval (negative, infinite and none among them), set, started, stopped and turned in any
// order: one that is stopped or never started calls nobody, a one-shot calls once, a repeating one stays
// active, and what is left never exceeds the interval.
#include "support/check.h"
#include "support/input.h"
#include "utils/ut_evt.h"
#include "utils/ut_timer.h"

#include <array>
#include <bit>
#include <cmath>

namespace {

constexpr size_t k_timers = 4;
constexpr double k_long_s = 100; // longer than an input takes

struct expectation {
    double interval = 0;
    bool repeated = false;
    bool active = false;
    int calls_allowed = 0; // by now, at most
    int calls = 0;
};

std::array<expectation, k_timers> expected;

void count_call(ut_timer * /*timer*/, void *privdata) {
    ++static_cast<expectation *>(privdata)->calls;
}

double draw_interval(fuzz::input &in) {
    constexpr double some[] = {0, -1, 1e-9, 1e-5, k_long_s, 1e9, INFINITY, NAN};
    const uint8_t what = in.u8();
    return what < std::size(some) ? some[what] : std::bit_cast<double>(in.u64());
}

class timers_beside_model {
public:
    timers_beside_model() {
        ut_loop_init();
        for (size_t i = 0; i < k_timers; ++i) {
            expected[i] = {};
            set(i, k_long_s, false);
        }
    }
    timers_beside_model(const timers_beside_model &) = delete;
    timers_beside_model &operator=(const timers_beside_model &) = delete;
    ~timers_beside_model() {
        for (ut_timer &timer : timers_) {
            ut_timer_stop(&timer);
            (void)ev_clear_pending(ut_default_loop, &timer.ev);
        }
    }

    void step(fuzz::input &in) {
        const uint8_t what = in.u8();
        const size_t i = what / 8 % k_timers;
        switch (what % 8) {
        case 0:
        case 1: {
            const double interval = draw_interval(in);
            const bool repeated = in.flag();
            if (!expected[i].active) { // an active one must not be set up anew
                (void)ev_clear_pending(ut_default_loop, &timers_[i].ev);
                set(i, interval, repeated);
            }
            break;
        }
        case 2:
        case 3:
        case 4:
            ut_timer_start(&timers_[i]);
            expected[i].active = true;
            break;
        case 5:
        case 6:
            stop(i);
            break;
        default:
            turn();
        }
        compare();
    }

private:
    void set(size_t i, double interval, bool repeated) {
        ut_timer_set(&timers_[i], interval, repeated, count_call, &expected[i]);
        expected[i].interval = interval > 0 ? interval : 0;
        expected[i].repeated = repeated && expected[i].interval > 0;
        FUZZ_CHECK(!ut_timer_active(&timers_[i]));
    }

    void stop(size_t i) {
        ut_timer_stop(&timers_[i]);
        if (expected[i].active) {
            FUZZ_CHECK(ut_timer_remaining(&timers_[i]) > 0); // a start goes on with it
        }
        expected[i].active = false;
    }

    void turn() {
        std::array<int, k_timers> before{};
        for (size_t i = 0; i < k_timers; ++i) {
            before[i] = expected[i].calls;
        }
        (void)ev_run(ut_default_loop, EVRUN_NOWAIT);
        for (size_t i = 0; i < k_timers; ++i) {
            expectation &e = expected[i];
            const int called = e.calls - before[i];
            FUZZ_CHECK(called == 0 || (called == 1 && e.active && e.interval < k_long_s));
            e.active = e.active && (e.repeated || called == 0);
        }
    }

    void compare() {
        for (size_t i = 0; i < k_timers; ++i) {
            FUZZ_CHECK(ut_timer_active(&timers_[i]) == expected[i].active);
            const double remaining = ut_timer_remaining(&timers_[i]);
            FUZZ_CHECK(!(remaining > expected[i].interval * (1 + 1e-6) + 1e-3));
        }
    }

    std::array<ut_timer, k_timers> timers_{};
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    timers_beside_model timers;
    for (fuzz::input in(data, size); !in.empty();) {
        timers.step(in);
    }
    return 0;
}
