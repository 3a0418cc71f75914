// `vexa record` and `vexa replay` on a terminal: what they show there, and the keys of the replay.
#include "bench.h"
#include "recordings.h"
#include "terminal.h"

#include <gmock/gmock.h>

using namespace std::chrono_literals;

namespace {

constexpr char k_right[] = "\x1b[C";
constexpr char k_left[] = "\x1b[D";

bus::bytes message(uint8_t number) {
    return bus::message({1, 9, 5}, {number});
}

/// Messages 0 to 20, a second apart.
class ReplayKeys : public testing::Test {
protected:
    ReplayKeys() {
        std::vector<recordings::packet> packets;
        for (uint8_t number = 0; number <= 20; ++number) {
            packets.push_back({std::chrono::seconds(number), recordings::to(5, 9005, message(number))});
        }
        recordings::write(path(), packets);
    }
    [[nodiscard]] std::string path() const { return place_.path("a.pcap"); }
    bus::bytes next() { return five_.receive(bench::k_patience).value_or(bus::bytes{}); }
    bool is_empty() { return !five_.receive(0ms).has_value(); }

private:
    recordings::directory place_;
    udp_peer five_{"192.168.1.5", 9005};
};

} // namespace

TEST_F(ReplayKeys, StepMessageByMessage) {
    terminal screen({"replay", path(), "--pause"});
    ASSERT_TRUE(screen.shows("0 messages  paused"));
    EXPECT_TRUE(is_empty());
    screen.press("s");
    EXPECT_EQ(next(), message(0));
    screen.press("n");
    EXPECT_EQ(next(), message(1));
    EXPECT_TRUE(screen.shows("2 messages  paused"));
    EXPECT_TRUE(is_empty());
    screen.press("q");
    EXPECT_TRUE(screen.shows("sent 2 messages"));
    EXPECT_EQ(screen.end(), 0);
}

TEST_F(ReplayKeys, PauseAndGoOn) {
    terminal screen({"replay", path(), "--rate", "20"});
    EXPECT_EQ(next(), message(0));
    screen.press(" ");
    ASSERT_TRUE(screen.shows("paused"));
    screen.press(" ");
    ASSERT_TRUE(screen.shows("sent 21 messages")) << "each once, the pause notwithstanding";
    EXPECT_EQ(screen.end(), 0);
}

TEST_F(ReplayKeys, SeekBackAndForth) {
    terminal screen({"replay", path(), "--pause"});
    ASSERT_TRUE(screen.shows("paused"));
    screen.press(k_right);
    ASSERT_TRUE(screen.shows("5.0 of 20.0 s"));
    screen.press("s");
    EXPECT_EQ(next(), message(5));
    screen.press(std::string(k_right) + k_right);
    ASSERT_TRUE(screen.shows("15.0 of 20.0 s"));
    screen.press("s");
    EXPECT_EQ(next(), message(15));
    screen.press(std::string(k_left) + k_left + k_left + k_left);
    ASSERT_TRUE(screen.shows("0.0 of 20.0 s")) << "and not before the beginning";
    screen.press("s");
    EXPECT_EQ(next(), message(0));
    screen.press("q");
    EXPECT_EQ(screen.end(), 0);
}

TEST_F(ReplayKeys, TheTerminalIsGivenBackAsItWas) {
    for (const std::string keys : {"q", "\x03"}) { // the second is Ctrl-C
        terminal screen({"replay", path(), "--pause"});
        ASSERT_TRUE(screen.shows("paused"));
        EXPECT_FALSE(screen.echoes());
        screen.press(keys);
        EXPECT_EQ(screen.end(), 0);
        EXPECT_TRUE(screen.echoes());
    }
}

TEST_F(ReplayKeys, RecordShowsHowItGetsOn) {
    const recordings::directory place;
    terminal screen({"record", "-i", "lo", place.path("b.pcapng"), "--count", "2"});
    ASSERT_TRUE(screen.shows("0 messages"));
    udp_peer sender("192.168.1.9", 40000);
    ASSERT_TRUE(sender.send(message(1), "192.168.1.5", 9005));
    ASSERT_TRUE(screen.shows("1 messages"));
    ASSERT_TRUE(sender.send(message(2), "192.168.1.5", 9005));
    EXPECT_TRUE(screen.shows("vexa record: 2 messages, "));
    EXPECT_EQ(screen.end(), 0);
}
