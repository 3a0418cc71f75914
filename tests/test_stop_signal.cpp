// The wait that can be cut short.
#include "stop_signal.h"

#include <gtest/gtest.h>
#include <thread>
#include <type_traits>

TEST(StopSignal, AWaitThatIsOverSaysSo) {
    stop_signal stop;
    EXPECT_FALSE(stop.wait_for(0));
}

TEST(StopSignal, ARequestEndsAWaitAtOnce) {
    stop_signal stop;
    bool stopped = false;
    std::thread sleeper([&] { stopped = stop.wait_for(3600); });
    stop.request();
    sleeper.join();
    EXPECT_TRUE(stopped);
}

TEST(StopSignal, ARequestMadeBeforeTheWaitIsNotLost) {
    stop_signal stop;
    stop.request();
    EXPECT_TRUE(stop.wait_for(3600));
}

TEST(StopSignal, IsUsableAgainAfterAReset) {
    stop_signal stop;
    stop.request();
    stop.reset();
    EXPECT_FALSE(stop.wait_for(0));
}

TEST(StopSignal, NeedsNoDestructorAtExit) {
    static_assert(std::is_trivially_destructible_v<stop_signal>);
}
