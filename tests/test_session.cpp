// The session with the node manager: coming, staying and leaving.
#include "expect_log.h"
#include "faults.h"
#include "node_mapping.h"
#include "node_mgr_msg_helper.h"
#include "peer.h"
#include "vectors.h"
#include "wait.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <ctime>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using bus::bytes;
using bus::milliseconds;
using bus::node_under_test;
using steady = std::chrono::steady_clock;

constexpr char k_unit[] = "src/thread_io";
constexpr char k_register_line[] =
    "\n\r send_register_req , node_id=%d,mgr_node.ip=%s, mgr_node.port=%d \n\r";
constexpr char k_unregister_line[] = "send UNREG to [%s : %u]";
constexpr char k_end_line[] = "mgr server not ack unregister msg in 300ms\n";
constexpr char k_inactive_line[] = "dst node (%s, %u), inactived\n";
constexpr double k_debug_period_s = 120;

/// The waits of the registration worker, in seconds, rounded up to whole ones.
std::vector<long> register_waits() {
    std::vector<long> whole;
    for (const double wait : faults::waits()) {
        if (wait < k_debug_period_s - 1) {
            whole.push_back(std::lround(std::ceil(wait)));
        }
    }
    return whole;
}

double wall_clock_s() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

/// When the line that ends a session was last written.
std::atomic<double> g_end_logged_s{0};

void watch_for_the_end() {
    g_end_logged_s = 0;
    logs::on_line([](const logs::line &l) {
        if (l.format == k_end_line) {
            g_end_logged_s = wall_clock_s();
        }
    });
}

bool is_unregister(const bytes &datagram) {
    return datagram.size() == 74;
}

} // namespace

TEST(Register, HasTheImage) {
    node_under_test node{9};
    ASSERT_EQ(node.start("detection"), 0);
    EXPECT_EQ(node.manager().receive(), vectors::bytes("route_register_node9"));
    EXPECT_EQ(node.manager().last_port(), 9009);
}

TEST(Register, CarriesTheFirstFifteenCharactersOfTheName) {
    node_under_test node{9};
    ASSERT_EQ(node.start("abcdefghijklmnopqrst"), 0);
    const std::optional<bytes> got = node.manager().receive();
    ASSERT_TRUE(got && got->size() == 58);
    bytes name = bus::text("abcdefghijklmno");
    name.push_back(0);
    EXPECT_EQ(bytes(got->begin() + 20, got->begin() + 36), name);
    EXPECT_EQ(logs::init_names(), std::vector<std::string>{"abcdefghijklmnopqrst"});
}

TEST(Register, CarriesTheFirstFifteenCharactersOfTheAddress) {
    node_under_test node{9};
    (void)node.manager();
    ASSERT_EQ(vision_msg_component_init(NODE_DETECTION_TRACKING, "n", "192.168.100.2001234", nullptr), 0);
    const std::optional<bytes> got = node.manager().receive();
    ASSERT_TRUE(got && got->size() == 58);
    bytes ip = bus::text("192.168.100.200");
    ip.push_back(0);
    EXPECT_EQ(bytes(got->begin() + 36, got->begin() + 52), ip);
}

TEST(Register, SaysWhereTheNodeIs) {
    node_under_test node{9};
    ASSERT_EQ(node.start(), 0);
    ASSERT_TRUE(node.manager().receive());
    EXPECT_LOGGED(INFO, k_unit, "send_register_req", "ip %s, port %u\n", "ip 192.168.1.9, port 9009\n");
}

TEST(Register, MakesTheOwnEntryActive) {
    node_under_test node{9};
    ASSERT_EQ(node.start("detection"), 0);
    ASSERT_TRUE(node.manager().receive());
    vexa_node_t own{};
    ASSERT_EQ(nmapping_get(9, &own), 0);
    EXPECT_STREQ(own.name, "detection");
    EXPECT_STREQ(own.ip, "192.168.1.9");
    EXPECT_EQ(own.port, 9009);
    EXPECT_EQ(own.stat, 1);
}

TEST(Register, IsLoggedTheFirstAndEveryTenthTime) {
    faults::shorten_waits(0.001);
    node_under_test node{9};
    ASSERT_EQ(node.start(), 0);
    for (int sent = 1; sent <= 32; ++sent) {
        ASSERT_TRUE(node.manager().receive());
    }
    node.stop();
    const std::vector<bytes> rest = node.manager().take_all();
    const size_t sent = 32 + rest.size();
    EXPECT_EQ(logs::count(k_register_line), (sent + 9) / 10);
    EXPECT_LOGGED(INFO, k_unit, "send_register_req", k_register_line,
                  "\n\r send_register_req , node_id=9,mgr_node.ip=192.168.1.1, mgr_node.port=9000 \n\r");
}

TEST(Register, CountsForItsLogInEightBits) {
    // At which sends, counted from 1, a line is written. Each line comes before its datagram leaves.
    static std::atomic<size_t> logged;
    static std::vector<size_t> logged_at;
    logs::on_line([](const logs::line &l) { logged += l.format == k_register_line ? 1U : 0U; });
    size_t sent = 0;
    faults::before(faults::call::sendto, [&sent] { // the worker's alone: nobody else sends
        ++sent;
        while (logged_at.size() < logged) {
            logged_at.push_back(sent);
        }
    });
    faults::shorten_waits(0.0001);
    node_under_test node{9};
    ASSERT_EQ(node.start(), 0);
    ASSERT_TRUE(wait_until([] { return faults::calls(faults::call::sendto) >= 270; }));
    node.stop();
    std::vector<size_t> expected;
    for (size_t n = 1; n <= 251; n += 10) {
        expected.push_back(n);
    }
    expected.push_back(257); // 8 bits wrap after 256: a gap of six
    expected.push_back(267);
    ASSERT_GE(logged_at.size(), expected.size());
    logged_at.resize(expected.size());
    EXPECT_EQ(logged_at, expected);
}

TEST(Register, KeepsGoingToWhereTheManagerWasAtTheStart) {
    faults::shorten_waits(0.01);
    node_under_test node{9};
    bus::peer elsewhere{"192.168.1.77", 9400};
    ASSERT_TRUE(node.join({}));
    node.tell(bus::table({{"moved", "192.168.1.77", 9400, 0, 1}}));
    ASSERT_TRUE(node.settle());
    (void)node.manager().take_all();
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(node.manager().receive());
    }
    EXPECT_TRUE(elsewhere.silent());
    node.stop(); // the UNREGISTER goes where the table says
    const std::optional<bytes> last = elsewhere.receive();
    ASSERT_TRUE(last);
    EXPECT_TRUE(is_unregister(*last));
}

TEST(Pace, IsOneSecondUntilAcceptedAndTenThereafter) {
    faults::shorten_waits(0.01);
    node_under_test node{9};
    ASSERT_EQ(node.start(), 0);
    ASSERT_TRUE(wait_until([] { return register_waits().size() >= 5; }));
    for (const long wait : register_waits()) {
        EXPECT_EQ(wait, 1);
    }
    ASSERT_TRUE(node.accept({}));
    const size_t before = register_waits().size();
    ASSERT_TRUE(wait_until([before] { return register_waits().size() >= before + 6; }));
    const std::vector<long> waits = register_waits();
    for (size_t i = before + 1; i < waits.size(); ++i) { // one may have begun while the answer was on its way
        EXPECT_EQ(waits[i], 10) << i;
    }
}

TEST(Pace, IsStillOneSecondForARegisterWhoseAnswerIsThereAtOnce) {
    faults::shorten_waits(0.01);
    node_under_test node{9};
    // The answer has been dealt with before the worker gets to ask how long to wait.
    static std::atomic<bool> answered;
    answered = false;
    faults::before(faults::call::sendto, [&node] {
        if (!answered.exchange(true)) {
            node.tell(bus::table({}), bus::k_accepted);
            EXPECT_TRUE(wait_until([] { return nmapping_get_stat(0) == 1; }));
        }
    });
    ASSERT_EQ(node.start(), 0);
    ASSERT_TRUE(wait_until([] { return register_waits().size() >= 3; }));
    const std::vector<long> waits = register_waits();
    EXPECT_EQ(waits[0], 1);
    EXPECT_EQ(waits[1], 10);
    EXPECT_EQ(waits[2], 10);
}

TEST(Pace, IsOneSecondAgainAfterARestart) {
    faults::shorten_waits(0.01);
    node_under_test node{9};
    ASSERT_TRUE(node.join({}));
    ASSERT_TRUE(wait_until([] { return register_waits().size() >= 3 && register_waits().back() == 10; }));
    node.stop();
    faults::clear();
    faults::shorten_waits(0.01);
    ASSERT_EQ(node.start(), 0);
    ASSERT_TRUE(wait_until([] { return register_waits().size() >= 5; }));
    for (const long wait : register_waits()) {
        EXPECT_EQ(wait, 1);
    }
}

TEST(Pace, IsKeptInRealTime) {
    constexpr double slack_s = 4; // for a machine that is busy with other things
    node_under_test node{9};
    ASSERT_EQ(node.start(), 0);
    std::vector<double> arrivals;
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(node.manager().receive());
        arrivals.push_back(node.manager().last_arrival_s());
    }
    for (size_t i = 1; i < arrivals.size(); ++i) {
        EXPECT_GE(arrivals[i] - arrivals[i - 1], 0.9) << i;
        EXPECT_LE(arrivals[i] - arrivals[i - 1], 1 + slack_s) << i;
    }
    node.tell(bus::table({}), bus::k_accepted);
    ASSERT_TRUE(node.settle());
    const double accepted_s = wall_clock_s();
    ASSERT_TRUE(wait_until([] { return register_waits().back() == 10; }));
    ASSERT_TRUE(node.manager().receive());
    EXPECT_LE(node.manager().last_arrival_s() - accepted_s, 1 + slack_s);
    (void)node.manager().take_all();
    EXPECT_FALSE(node.manager().receive(milliseconds(2000)));
}

TEST(Pace, HasNothingToDoWithTheWallClock) {
    node_under_test node{9};
    ASSERT_EQ(node.start(), 0);
    ASSERT_TRUE(node.manager().receive());
    ASSERT_TRUE(node.manager().receive());
    for (const clockid_t clock : faults::wait_clocks()) {
        EXPECT_EQ(clock, CLOCK_MONOTONIC);
    }
    EXPECT_EQ(faults::calls(faults::call::gettimeofday), 0);
    EXPECT_EQ(faults::calls(faults::call::usleep), 0);
}

TEST(Unregister, HasTheImage) {
    node_under_test node{5};
    ASSERT_EQ(node.start("soa"), 0);
    ASSERT_TRUE(node.accept({}));
    (void)node.manager().take_all();
    node.stop();
    EXPECT_EQ(node.manager().receive(), vectors::bytes("route_unregister_node5"));
    EXPECT_EQ(node.manager().last_port(), 9005);
    EXPECT_LOGGED(INFO, k_unit, "on_write", k_unregister_line, "send UNREG to [192.168.1.1 : 9000]");
    EXPECT_LOGGED(WARN, k_unit, "wait_unreg_ack_timeout", k_end_line, k_end_line);
    EXPECT_LOGGED(INFO, "src/vx_msg", "vision_msg_component_deinit", "thrio thread exit\n",
                  "thrio thread exit\n");
}

TEST(Unregister, CarriesTheOwnRecordAsTheTableHasIt) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({}));
    const bus::record told = {"renamed", "192.168.1.99", 4711, 9, 0};
    node.tell(bus::table({told}));
    ASSERT_TRUE(node.settle());
    (void)node.manager().take_all();
    node.stop();
    const std::optional<bytes> got = node.manager().receive();
    ASSERT_TRUE(got && is_unregister(*got));
    EXPECT_EQ(bus::word_at(*got, 16), 1U);
    EXPECT_EQ(bus::word_at(*got, 18), 1U);
    EXPECT_EQ(bytes(got->begin() + 20, got->begin() + 58), bus::encoded(told));
    EXPECT_EQ(bytes(got->begin() + 58, got->end()), bytes(16, 0));
}

TEST(Unregister, IsTheLastTheManagerHearsOfTheNode) {
    faults::shorten_waits(0.0002);
    node_under_test node{9};
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(node.join({})) << i;
        node.stop();
        const std::vector<bytes> all = node.manager().take_all();
        ASSERT_FALSE(all.empty());
        EXPECT_TRUE(is_unregister(all.back())) << i;
        EXPECT_EQ(std::count_if(all.begin(), all.end(), is_unregister), 1) << i;
    }
}

TEST(Unregister, ComesThirtyMillisecondsBeforeTheThreadsEnd) {
    node_under_test node{9};
    double shortest = 1e9;
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(node.join({}));
        watch_for_the_end();
        (void)node.manager().take_all();
        node.stop();
        const std::optional<bytes> got = node.manager().receive(milliseconds(0));
        ASSERT_TRUE(got && is_unregister(*got));
        const double took = g_end_logged_s - node.manager().last_arrival_s();
        EXPECT_GE(took, 0.0295);
        shortest = std::min(shortest, took);
    }
    EXPECT_LT(shortest, 0.25); // ten times less than the line says, or nearly so on a busy machine
}

TEST(Unregister, IsNotAnsweredSoonerByAnAnswer) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({}));
    watch_for_the_end();
    (void)node.manager().take_all();
    std::jthread manager([&node] { // answers at once
        if (node.manager().receive()) {
            node.tell(bus::table({}), bus::k_accepted);
        }
    });
    node.stop();
    manager.join();
    EXPECT_EQ(logs::count(k_end_line), 1U);
    EXPECT_GE(g_end_logged_s - node.manager().last_arrival_s(), 0.0295);
}

TEST(Unregister, IsNotSentToAnInactiveManagerButTheNodeEnds) {
    node_under_test node{9};
    ASSERT_EQ(node.start(), 0);
    ASSERT_TRUE(node.manager().receive());
    (void)node.manager().take_all();
    node.stop();
    for (const bytes &datagram : node.manager().take_all()) {
        EXPECT_FALSE(is_unregister(datagram));
    }
    EXPECT_LOGGED(WARN, k_unit, "on_write", k_inactive_line, "dst node (mgr_server, 0), inactived\n");
    EXPECT_EQ(logs::count(k_unregister_line), 0U);
    EXPECT_EQ(logs::count(k_end_line), 1U);
    EXPECT_EQ(logs::count("thrio thread exit\n"), 1U);
}

TEST(EndOfSession, DoesNotBeginAnewWithASecondManagerMessage) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({}));
    ASSERT_TRUE(node.hold()); // so that the thread finds two of them at once
    ASSERT_EQ(vxmsg_send_general(0, 2, "x", 1), 0);
    ASSERT_EQ(vxmsg_send_general(0, 2, "x", 1), 0);
    node_under_test::let_go();
    // While these go on the timer would never expire if each set it up anew.
    const auto give_up = steady::now() + bus::k_patience;
    while (logs::count(k_end_line) == 0 && steady::now() < give_up) {
        (void)vxmsg_send_general(0, 2, "x", 1);
        std::this_thread::sleep_for(milliseconds(1));
    }
    EXPECT_EQ(logs::count(k_end_line), 1U);
    EXPECT_GT(logs::count(k_unregister_line), 1U);
}

TEST(EndOfSession, MayBeCalledForByAnyManagerMessageAndIsCleanedUpAfter) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({}));
    (void)node.manager().take_all();
    ASSERT_EQ(vxmsg_send_general(0, 2, "bye", 3), 0);
    EXPECT_EQ(node.manager().receive(), bus::message({2, 9, 0}, bus::text("bye")));
    ASSERT_TRUE(logs::wait_for(k_end_line));
    (void)vxmsg_send_general(0, 1, "too late", 8); // nobody takes it, but it harms nobody
    node.stop();
    EXPECT_EQ(logs::count(k_end_line), 1U);
    EXPECT_EQ(logs::count("thrio thread exit\n"), 1U);
    ASSERT_TRUE(node.join({3}));
    EXPECT_EQ(vision_send_msg(NODE_VIO, "x", 1), 0);
    EXPECT_TRUE(node.other(3).receive());
}

TEST(EndOfSession, BeginsAlsoForAManagerMessageThatCannotBeSent) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({127}));
    // The next hop is active, the destination itself is not in the table.
    ASSERT_EQ(vxmsg_send_general(64001, 2, "x", 1), 0);
    EXPECT_TRUE(logs::wait_for(k_end_line));
    EXPECT_EQ(logs::count(k_inactive_line), 1U);
    EXPECT_TRUE(node.other(127).silent());
}

TEST(NodeInfo, IsSentToAnActiveNode) {
    node_under_test node{9};
    ASSERT_EQ(node.start("detection"), 0);
    ASSERT_TRUE(node.accept({3}));
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    EXPECT_EQ(send_node_info(fd, 9, 3, 2), 0);
    EXPECT_EQ(node.other(3).receive(), vectors::bytes("route_node_info_9_to_3"));
    close(fd);
}

TEST(NodeInfo, IsNotSentToAnInactiveNode) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    nmapping_set_stat(3, 0);
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    EXPECT_EQ(send_node_info(fd, 9, 3, 2), -1);
    EXPECT_LOGGED(WARN, "src/node_mgr_msg_helper", "send_node_info", "dst node %u not actived\n",
                  "dst node 3 not actived\n");
    EXPECT_TRUE(node.other(3).silent());
    close(fd);
}

TEST(NodeInfo, ReservedCallsSendNothing) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    (void)node.manager().take_all();
    const long sent = faults::calls(faults::call::sendto);
    EXPECT_EQ(send_node_info_req(3), 0);
    EXPECT_EQ(send_heart_beat(3), 0);
    EXPECT_LE(faults::calls(faults::call::sendto), sent + 1); // a REGISTER may have come between
    EXPECT_TRUE(node.other(3).silent());
}
