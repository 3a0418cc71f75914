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

TEST(StopSignal, NothingIsDoneAfterARequest) {
    stop_signal stop;
    int done = 0;
    EXPECT_TRUE(stop.unless_stopped([&] { ++done; }));
    stop.request();
    EXPECT_FALSE(stop.unless_stopped([&] { ++done; }));
    EXPECT_EQ(done, 1);
}

TEST(StopSignal, IsUsableAgainAfterAReset) {
    stop_signal stop;
    stop.request();
    stop.reset();
    EXPECT_FALSE(stop.wait_for(0));
    EXPECT_TRUE(stop.unless_stopped([] {}));
}

TEST(StopSignal, NeedsNoDestructorAtExit) {
    static_assert(std::is_trivially_destructible_v<stop_signal>);
}
