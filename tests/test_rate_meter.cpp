// How often something comes, told by time stamps: exact where they are regular, bounded where they are not.
#include "rate_meter.h"

#include <cmath>
#include <gtest/gtest.h>
#include <numeric>
#include <random>

using vexa::rate;
using vexa::rate_meter;

namespace {

constexpr int64_t k_s = 1'000'000'000;
constexpr int64_t k_ms = 1'000'000;
constexpr int64_t k_begin = 1'700'000'000 * k_s + 123'456'789;

/// A sender of a steady rate whose every message is late by up to a part of its period.
class sender {
public:
    sender(double hertz, double jitter) : period_ns_(1e9 / hertz), jitter_(0, jitter * period_ns_) {}

    /// Sends until then. The time of the last message.
    int64_t send_until(int64_t end_ns, rate_meter &to, size_t bytes = 100) {
        for (;; ++sent_) {
            const int64_t time =
                k_begin + std::llround(static_cast<double>(sent_) * period_ns_ + jitter_(random_));
            if (time > end_ns) {
                return last_ns_;
            }
            to.add(time, bytes);
            last_ns_ = time;
        }
    }

private:
    double period_ns_;
    std::uniform_real_distribution<double> jitter_;
    std::mt19937 random_{7};
    uint64_t sent_ = 0;
    int64_t last_ns_ = 0;
};

struct steady {
    const char *name;
    double hertz;
    double jitter; // of the period

    friend void PrintTo(const steady &which, std::ostream *out) { *out << which.name; }
};

class Rate : public testing::TestWithParam<steady> {};

} // namespace

TEST_P(Rate, IsRightWithinOnePercentWheneverItIsLookedAt) {
    rate_meter meter;
    sender from(GetParam().hertz, GetParam().jitter);
    for (int64_t now = k_begin + 2'100 * k_ms; now < k_begin + 12 * k_s; now += 317 * k_ms) {
        (void)from.send_until(now, meter);
        const auto seen = meter.now(now + 20 * k_ms); // as late as a capture hands packets on
        ASSERT_TRUE(seen.has_value());
        EXPECT_NEAR(seen->messages / GetParam().hertz, 1, 0.0099) << (now - k_begin) / k_ms << " ms";
        EXPECT_NEAR(seen->bytes / GetParam().hertz, 100, 0.99);
    }
}

INSTANTIATE_TEST_SUITE_P(Steady, Rate,
                         testing::Values(steady{"At1Hz", 1, 0}, steady{"At100Hz", 100, 0},
                                         steady{"At5kHz", 5000, 0}, steady{"At1HzWithJitter", 1, 0.009},
                                         steady{"At100HzWithJitter", 100, 0.9},
                                         steady{"At5kHzWithJitter", 5000, 1}, steady{"At30Hz", 30, 0},
                                         steady{"At20kHz", 20000, 0.5}),
                         [](const auto &each) { return std::string{each.param.name}; });

TEST(RateMeter, KnowsNoRateBeforeTheSecondMessage) {
    rate_meter meter;
    EXPECT_FALSE(meter.now(k_begin).has_value());
    EXPECT_FALSE(meter.mean().has_value());
    meter.add(k_begin, 10);
    EXPECT_FALSE(meter.now(k_begin + k_s).has_value());
    EXPECT_FALSE(meter.mean().has_value());
    EXPECT_EQ(meter.now(k_begin + 4 * k_s)->messages, 0) << "nothing has come for longer than is looked at";
}

TEST(RateMeter, KnowsNoRateOfMessagesOfOneTime) {
    rate_meter meter;
    meter.add(k_begin, 10);
    meter.add(k_begin, 10);
    EXPECT_FALSE(meter.now(k_begin).has_value());
    EXPECT_FALSE(meter.mean().has_value());
    EXPECT_EQ(meter.messages(), 2U);
    EXPECT_EQ(meter.bytes(), 20U);
}

TEST(RateMeter, IsRightFromTheSecondMessageOn) {
    rate_meter meter;
    meter.add(k_begin, 10);
    meter.add(k_begin + 10 * k_ms, 30);
    EXPECT_NEAR(meter.now(k_begin + 11 * k_ms)->messages, 100, 1e-9);
    EXPECT_NEAR(meter.now(k_begin + 11 * k_ms)->bytes, 3000, 1e-6);
}

TEST(RateMeter, IsRightForWhatComesSeldom) {
    rate_meter meter;
    for (int i = 0; i < 4; ++i) {
        meter.add(k_begin + i * 10 * k_s, 58);
    }
    EXPECT_NEAR(meter.now(k_begin + 39 * k_s)->messages, 0.1, 1e-9);
}

TEST(RateMeter, FallsToZeroWhenTheSenderStops) {
    rate_meter meter;
    sender from(100, 0);
    const int64_t last = from.send_until(k_begin + 10 * k_s, meter);
    EXPECT_NEAR(meter.now(last + 300 * k_ms)->messages, 100, 1e-6) << "packets may be on their way";
    EXPECT_LT(meter.now(last + 1500 * k_ms)->messages, 60);
    EXPECT_EQ(meter.now(last + 3001 * k_ms)->messages, 0);
}

TEST(RateMeter, FollowsANewRateWithinThreeSeconds) {
    rate_meter meter;
    sender slow(10, 0);
    (void)slow.send_until(k_begin + 10 * k_s, meter);
    int64_t time = k_begin + 10 * k_s;
    for (; time < k_begin + 13'200 * k_ms; time += k_ms) {
        meter.add(time, 10);
    }
    EXPECT_NEAR(meter.now(time)->messages, 1000, 10);
}

TEST(RateMeter, IsCalmBetweenBursts) {
    rate_meter meter;
    for (int second = 0; second < 10; ++second) {
        for (int i = 0; i < 10; ++i) {
            meter.add(k_begin + second * k_s + i * k_ms / 10, 10);
        }
    }
    for (int ms = 10; ms < 1000; ms += 90) {
        EXPECT_NEAR(meter.now(k_begin + 9 * k_s + ms * k_ms)->messages, 10, 1) << ms << " ms";
    }
}

TEST(RateMeter, BeginsAnewWhenTheClockWasSetBack) {
    rate_meter meter;
    sender from(100, 0);
    (void)from.send_until(k_begin + 5 * k_s, meter);
    for (int i = 0; i <= 100; ++i) {
        meter.add(k_begin - 3600 * k_s + i * 10 * k_ms, 10);
    }
    EXPECT_NEAR(meter.now(k_begin - 3599 * k_s)->messages, 100, 1e-6);
    EXPECT_EQ(meter.messages(), 101U);
}

TEST(RateMeter, APacketThatWasOvertakenCountsAsOfTheLastsTime) {
    rate_meter meter;
    meter.add(k_begin, 1);
    meter.add(k_begin + 100 * k_ms, 1);
    meter.add(k_begin + 99 * k_ms, 1);
    meter.add(k_begin + 300 * k_ms, 1);
    EXPECT_NEAR(meter.now(k_begin + 300 * k_ms)->messages, 10, 1e-9);
    EXPECT_NEAR(meter.mean()->messages, 10, 1e-9);
}

TEST(RateMeter, MeanIsFromTheFirstMessageToTheLast) {
    rate_meter meter;
    meter.add(k_begin, 1000);
    meter.add(k_begin + 1 * k_s, 10);
    meter.add(k_begin + 4 * k_s, 30);
    EXPECT_DOUBLE_EQ(meter.mean()->messages, 0.5);
    EXPECT_DOUBLE_EQ(meter.mean()->bytes, 10);
}

TEST(RateMeter, HistoryHasTheMessagesOfEachWholeSecond) {
    rate_meter meter;
    const int64_t second = 1'700'000'000 * k_s;
    for (const int64_t at : {0, 100, 999, 2000, 2001, 5000}) {
        meter.add(second + at * k_ms, 1);
    }
    EXPECT_EQ(meter.history(second + 5900 * k_ms, 6), (std::vector<uint32_t>{0, 3, 0, 2, 0, 0}));
    EXPECT_EQ(meter.history(second + 6400 * k_ms, 3), (std::vector<uint32_t>{0, 0, 1}));
}

TEST(RateMeter, HistoryForgetsWhatIsOlderThanAMinute) {
    rate_meter meter;
    const int64_t second = 1'700'000'000 * k_s;
    meter.add(second, 1);
    meter.add(second + 61 * k_s, 1);
    const auto all = meter.history(second + 62 * k_s + 500 * k_ms, 1000);
    EXPECT_EQ(all.size(), 60U);
    EXPECT_EQ(std::accumulate(all.begin(), all.end(), 0U), 1U);
    EXPECT_EQ(all.back(), 1U);
    const auto later = meter.history(second + 200 * k_s, 60);
    EXPECT_EQ(std::accumulate(later.begin(), later.end(), 0U), 0U);
}
