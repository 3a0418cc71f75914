// `vexa top` as a user sees it: on a pseudo-terminal, on the loopback device of a network of the test's own.
#include "emulator.h"
#include "terminal_bench.h"
#include "wait.h"

#include <functional>
#include <gmock/gmock.h>

using bench::run;
using testing::HasSubstr;
using testing::Not;

namespace {

using words = std::vector<std::string>;

/// Who sends: from 9 to 1, and from 3 to 5.
class senders {
public:
    void nine_speaks() { speak(bus::message({1, 9, 1}, bus::bytes(100)), 9001); }
    void three_speaks() { speak(bus::message({0, 3, 5}, bus::bytes{1, 0}), 9005); }

private:
    void speak(const bus::bytes &datagram, uint16_t port) {
        ASSERT_TRUE(socket_.send(datagram, "192.168.1.1", port));
    }
    udp_peer socket_{"192.168.1.9", 40000};
};

class live_top : public on_terminal {
public:
    explicit live_top(size_t columns = 120, size_t rows = 24)
        : on_terminal({"top", "-i", "lo", "--interval", "0.05"}, columns, rows) {
        EXPECT_TRUE(shows(" vexa top  lo ")) << screen().text();
    }
};

struct way_to_end {
    const char *name;
    std::function<void(on_terminal &)> end;
    int status;

    friend void PrintTo(const way_to_end &which, std::ostream *out) { *out << which.name; }
};

std::vector<way_to_end> ends() {
    return {
        {"Q", [](on_terminal &top) { top.press("q"); }, 0},
            {"CtrlC", [](on_terminal &top) { top.press("\x03"); }, 0},
            {"SIGTERM", [](on_terminal &top) { top.signal(SIGTERM); }, 0},
            {"SIGHUP", [](on_terminal &top) { top.signal(SIGHUP); }, 0},
            {"CtrlBackslash", [](on_terminal &top) { top.press("\x1c"); }, 0},
#if !defined(VEXAMSG_UNDER_ASAN) && !defined(VEXAMSG_UNDER_TSAN) // they take these signals for themselves
            {"SIGSEGV", [](on_terminal &top) { top.signal(SIGSEGV); }, 128 + SIGSEGV},
            {"SIGABRT", [](on_terminal &top) { top.signal(SIGABRT); }, 128 + SIGABRT},
#endif
    };
}

class TopsEnd : public testing::TestWithParam<way_to_end> {};

const std::string k_nine = "detection_tracking(9)";
const std::string k_three = "vio(3)";

} // namespace

TEST(Top, ItsFirstPictureTakesOverTheTerminal) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    live_top top;
    EXPECT_TRUE(top.screen().is_second_screen());
    EXPECT_FALSE(top.screen().shows_cursor());
    EXPECT_FALSE(top.is_given_back());
    EXPECT_TRUE(top.shows_in_row(23, " q quit  h help"));
    EXPECT_THAT(top.screen().row(2), testing::StartsWith("FROM"));
    EXPECT_EQ(top.screen().unknown(), 0U);
}

TEST(Top, ShowsAFlowAsItComes) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    live_top top;
    senders bus;
    bus.nine_speaks();
    EXPECT_TRUE(top.shows_in_row(3, k_nine + "  vision_machine(1)"));
    EXPECT_TRUE(top.shows("  1 flow  "));
}

TEST(Top, SortsAtAKey) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    live_top top;
    senders bus;
    bus.nine_speaks();
    bus.three_speaks();
    ASSERT_TRUE(top.shows("2 flows"));
    top.press("sss"); // from rate over bytes and last to from
    EXPECT_TRUE(top.shows_in_row(3, k_three));
    top.press("r");
    EXPECT_TRUE(top.shows_in_row(3, k_nine));
}

TEST(Top, FiltersByWhatIsTyped) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    live_top top;
    senders bus;
    bus.nine_speaks();
    bus.three_speaks();
    ASSERT_TRUE(top.shows("2 flows"));
    top.press("/from 3\r");
    EXPECT_TRUE(top.shows("1 of 2 flows"));
    EXPECT_THAT(top.screen().text(), Not(HasSubstr(k_nine)));
    top.press("\x1b");
    EXPECT_TRUE(top.shows(k_nine));
}

TEST(Top, HoldsThePicture) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    live_top top;
    senders bus;
    bus.nine_speaks();
    ASSERT_TRUE(top.shows(k_nine));
    top.press("p");
    ASSERT_TRUE(top.shows("PAUSED"));
    bus.three_speaks();
    top.press("h"); // answered by a picture, which comes after the message
    ASSERT_TRUE(top.shows("this help"));
    top.press("h");
    ASSERT_TRUE(top.hides("this help"));
    EXPECT_THAT(top.screen().text(), Not(HasSubstr(k_three)));
    top.press("p");
    EXPECT_TRUE(top.shows(k_three));
}

TEST(Top, FollowsTheWindowsSizeWithoutWrapping) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    live_top top;
    senders bus;
    bus.nine_speaks();
    ASSERT_TRUE(top.shows(k_nine));
    struct size {
        size_t columns;
        size_t rows;
        const char *first_row;
    };
    for (const size &each : std::vector<size>{{40, 10, "det"},
                                              {20, 5, "det"},
                                              {250, 60, "detection_tracking(9)"},
                                              {3, 2, nullptr},
                                              {1, 1, nullptr},
                                              {80, 24, "det"}}) {
        top.resize(each.columns, each.rows);
        if (each.first_row != nullptr) {
            EXPECT_TRUE(top.shows_in_row(each.rows - 1, " q quit")) << top.screen().text();
            EXPECT_TRUE(top.shows_in_row(3, each.first_row)) << top.screen().text();
        } else {
            EXPECT_TRUE(top.wait_for([](const auto &grid) { return grid.row(0) != ""; }, bench::k_patience));
        }
        EXPECT_EQ(top.screen().overflowed(), 0U) << each.columns << " columns";
    }
    EXPECT_EQ(top.screen().unknown(), 0U);
}

TEST_P(TopsEnd, GivesTheTerminalBack) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    live_top top;
    GetParam().end(top);
    EXPECT_EQ(top.end(), GetParam().status);
    EXPECT_TRUE(top.is_given_back());
}

INSTANTIATE_TEST_SUITE_P(By, TopsEnd, testing::ValuesIn(ends()),
                         [](const auto &each) { return std::string{each.param.name}; });

TEST(Top, GivesTheTerminalBackWhileItIsStopped) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    live_top top;
    top.press("\x1a");
    ASSERT_TRUE(top.wait_stopped(bench::k_patience));
    EXPECT_TRUE(top.wait_for([&](const auto &) { return top.is_given_back(); }, bench::k_patience));
    top.signal(SIGCONT);
    EXPECT_TRUE(top.wait_for([](const auto &grid) { return grid.is_second_screen(); }, bench::k_patience));
    EXPECT_TRUE(top.shows(" vexa top  lo "));
    top.press("q");
    EXPECT_EQ(top.end(), 0);
}

TEST(Top, EndsWhenItsWindowIsClosed) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    live_top top;
    top.hang_up();
    EXPECT_EQ(top.end(), 0);
}

TEST(Top, SeesWhatTheSystemDropsAtANodesSocket) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    udp_peer five("192.168.1.5", 9005); // which reads nothing
    live_top top;
    ASSERT_TRUE(top.shows("sockets of 1 node 0"));
    udp_peer sender("192.168.1.9", 40000);
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(sender.send(bus::message({1, 9, 5}, bus::bytes(8000)), "192.168.1.5", 9005));
    }
    EXPECT_TRUE(top.shows(": soa(5) "));
    top.press("\t");
    EXPECT_TRUE(top.shows_in_row(3, "soa(5)  192.168.1.5:9005  PID ")) << top.screen().text();
}

TEST(Top, IsShownOnceWhereTheOutputIsNoTerminal) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    bench::program top{{"top", "-i", "lo", "--listen", "60"}};
    ASSERT_TRUE(wait_until([&] { return !top.error().empty(); }, bench::k_patience));
    senders bus;
    bus.nine_speaks();
    bus.three_speaks();
    top.signal(SIGINT);
    const auto shown = top.end();
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.error, "vexa top: listening on lo for 60 s\n");
    EXPECT_THAT(shown.output, HasSubstr("FROM "));
    EXPECT_THAT(shown.output, Not(HasSubstr("\x1b")));
}

TEST(Top, IsShownOnceOnATerminalWhenAsked) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    on_terminal top({"top", "-i", "lo", "--once", "--listen", "0.1"});
    EXPECT_EQ(top.end(), 0);
    EXPECT_TRUE(top.is_given_back());
    EXPECT_THAT(top.screen().text(), HasSubstr("FROM"));
}

TEST(Top, WrongUsageIsStatusTwo) {
    for (const words &options : std::vector<words>{{"form", "9"},
                                                   {"--sort", "speed"},
                                                   {"--listen", "0"},
                                                   {"-i", "lo", "-r", "x"},
                                                   {"--interval", "0"}}) {
        words all = {"top"};
        all.insert(all.end(), options.begin(), options.end());
        EXPECT_EQ(run(all).status, 2) << testing::PrintToString(options);
    }
}

TEST(Top, SaysWhyNothingCanBeCaptured) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    const auto absent = run({"top", "-i", "eth77"});
    EXPECT_EQ(absent.status, 1);
    EXPECT_THAT(absent.error, HasSubstr("There is no interface 'eth77'"));
}
