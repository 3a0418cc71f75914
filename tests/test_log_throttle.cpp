// The two throttling rules.
#include "log_throttle.h"

#include <gtest/gtest.h>
#include <vector>

TEST(LogOnChange, PassesTheFirstEventWhateverItsValue) {
    log_on_change throttle;
    EXPECT_TRUE(throttle.passes(0));
}

TEST(LogOnChange, PassesOnlyValuesThatDifferFromTheLastOnePassed) {
    log_on_change throttle;
    std::vector<bool> passed;
    for (const int value : {5, 5, 6, 6, 5, 5}) {
        passed.push_back(throttle.passes(value));
    }
    EXPECT_EQ(passed, (std::vector<bool>{true, false, true, false, true, false}));
}

TEST(LogNowAndThen, PassesEvents1And102And203OfAConstantValue) {
    log_now_and_then throttle;
    std::vector<int> events;
    for (int event = 1; event <= 250; ++event) {
        if (throttle.passes(0)) {
            events.push_back(event);
        }
    }
    EXPECT_EQ(events, (std::vector<int>{1, 102, 203}));
}

TEST(LogNowAndThen, ANewValuePassesAtOnceAndStartsTheCountAnew) {
    log_now_and_then throttle;
    EXPECT_TRUE(throttle.passes(1));
    for (int i = 0; i < 50; ++i) {
        EXPECT_FALSE(throttle.passes(1));
    }
    EXPECT_TRUE(throttle.passes(2));
    for (int i = 0; i < 100; ++i) {
        EXPECT_FALSE(throttle.passes(2));
    }
    EXPECT_TRUE(throttle.passes(2));
}
