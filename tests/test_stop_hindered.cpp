// Stopping a node that something keeps from ending: the callback, the network, its own pipe. The stop comes
// back in time all the same, what it had to leave behind harms nobody, and the node works again once that has
// ended.
#include "expect_log.h"
#include "faults.h"
#include "node_mapping.h"
#include "peer.h"
#include "process_state.h"
#include "refusals.h"
#include "stop_time.h"
#include "wait.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <utility>

namespace {

using bus::bytes;
using bus::message;
using bus::node_under_test;
using bus::text;
using faults::call;

constexpr char k_left[] = "a callback or a send does not return, left to end by itself\n";
constexpr char k_refused[] = "refused: a callback or a send of the last start has not returned yet\n";
constexpr char k_exit_line[] = "thrio thread exit\n";
constexpr uint16_t k_id = 9;

/// A node that has run before, so that what stays for good is there.
class HinderedStop : public testing::Test {
protected:
    void SetUp() override {
        (void)node.other(3);
        ASSERT_TRUE(node.join({3}));
        node.stop();
        descriptors = process_state::descriptors();
        threads = process_state::threads();
        logs::clear();
        faults::clear();
        ASSERT_TRUE(node.join({3}));
        (void)node.manager().take_all();
    }

    void expect_left_behind() {
        EXPECT_LOGGED(ERROR, "src/vx_msg", "vision_msg_component_deinit", k_left, k_left);
        bus::expect_refusals();
    }

    void expect_farewell() {
        const std::vector<bytes> told = node.manager().take_all();
        ASSERT_FALSE(told.empty());
        EXPECT_EQ(told.back().size(), 74U);
        EXPECT_EQ(std::count_if(told.begin(), told.end(), [](const bytes &d) { return d.size() == 74; }), 1);
    }

    void expect_nothing_left() {
        EXPECT_EQ(process_state::descriptors(), descriptors);
        EXPECT_TRUE(wait_until([this] { return process_state::threads() <= threads; }));
        EXPECT_EQ(logs::count(k_exit_line), 1U);
    }

    void expect_recovery() {
        logs::clear();
        ASSERT_TRUE(wait_until([this] { return node.start() == 0; })) << "what was left has ended";
        ASSERT_TRUE(node.accept({3}));
        (void)node.other(3).take_all();
        EXPECT_EQ(vxmsg_send_general(3, 1, "queued", 6), 0);
        EXPECT_EQ(node.other(3).receive(), message({1, k_id, 3}, text("queued")));
        EXPECT_EQ(vision_send_msg(NODE_VIO, "direct", 6), 0);
        EXPECT_EQ(node.other(3).receive(), message({1, k_id, 3}, text("direct")));
        logs::clear();
        node.stop();
        expect_nothing_left();
    }

    node_under_test node{k_id};
    std::map<std::string, std::string> descriptors;
    size_t threads = 0;
};

/// A thread that sends, and does not come back while the network says "again".
class stuck_sender {
public:
    explicit stuck_sender(int (*send)()) : thread_([send] { (void)send(); }) {}
    ~stuck_sender() {
        faults::clear();
        thread_.join();
    }
    stuck_sender(const stuck_sender &) = delete;
    stuck_sender &operator=(const stuck_sender &) = delete;

private:
    std::thread thread_;
};

bool tried_again() {
    const long before = faults::calls(call::sendto);
    return wait_until([before] { return faults::calls(call::sendto) > before + 20; });
}

} // namespace

TEST_F(HinderedStop, ByASleepingCallbackComesBackAndSaysGoodbye) {
    ASSERT_TRUE(node.hold());
    EXPECT_LT(timed_stop(), k_busy_limit_s);
    expect_left_behind();
    expect_farewell();
    EXPECT_EQ(logs::count(k_exit_line), 0U);
    node_under_test::let_go();
    expect_recovery();
}

TEST_F(HinderedStop, ByASleepingCallbackRefusesANewStartInTime) {
    ASSERT_TRUE(node.hold());
    (void)timed_stop();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(node.start(), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_LOGGED(ERROR, "src/vx_msg", "vision_msg_component_init", k_refused, k_refused);
    bus::expect_refusals();
    node_under_test::let_go();
    expect_recovery();
}

TEST_F(HinderedStop, ANewStartWaitsForACallbackThatIsAboutToReturn) {
    ASSERT_TRUE(node.hold());
    (void)timed_stop();
    std::thread releaser([] {
        const auto soon = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
        (void)wait_until([soon] { return std::chrono::steady_clock::now() > soon; });
        node_under_test::let_go();
    });
    EXPECT_EQ(node.start(), 0);
    releaser.join();
    EXPECT_TRUE(node.accept({3}));
}

TEST_F(HinderedStop, IsFinishedByAnotherStop) {
    ASSERT_TRUE(node.hold());
    (void)timed_stop();
    EXPECT_LT(timed_stop(), k_busy_limit_s) << "again in time while it still sleeps";
    EXPECT_EQ(logs::count(k_exit_line), 0U);
    node_under_test::let_go();
    node.stop();
    expect_nothing_left();
    expect_recovery();
}

TEST_F(HinderedStop, StartsNoCallbackAfterwards) {
    ASSERT_TRUE(node.hold());
    for (int i = 0; i < 10; ++i) {
        node.send(message({1, 3, k_id}, text("behind the one that sleeps")));
    }
    (void)timed_stop();
    node_under_test::forget_heard();
    node_under_test::let_go();
    node.stop();
    EXPECT_EQ(logs::count(k_exit_line), 1U);
    EXPECT_TRUE(node_under_test::all_heard().empty());
}

TEST_F(HinderedStop, ByASleepingCallbackSendsNothingOfTheQueueAfterwards) {
    ASSERT_TRUE(node.hold());
    EXPECT_EQ(vxmsg_send_general(3, 1, "too late", 8), 0);
    (void)timed_stop();
    node_under_test::let_go();
    node.stop();
    EXPECT_TRUE(node.other(3).silent());
    expect_farewell();
}

TEST_F(HinderedStop, BySleepingCallbackAndSilentManager) {
    nmapping_set_stat(0, 0);
    ASSERT_TRUE(node.hold());
    EXPECT_LT(timed_stop(), k_busy_limit_s);
    EXPECT_TRUE(node.manager().silent()) << "it is not known to be there";
    node_under_test::let_go();
    expect_recovery();
}

TEST_F(HinderedStop, ByASilentManagerAlone) {
    nmapping_set_stat(0, 0);
    EXPECT_LT(timed_stop(), k_busy_limit_s);
    EXPECT_EQ(logs::count(k_left), 0U);
    expect_nothing_left();
}

/// A machine that is busy with other things may delay one stop, but not every one of them.
TEST_F(HinderedStop, TakesLessThanASecondWhateverTheCallbackDoes) {
    double shortest_s = 1e9;
    for (int i = 0; i < 5 && shortest_s >= k_stop_limit_s; ++i) {
        ASSERT_TRUE(node.hold());
        shortest_s = std::min(shortest_s, timed_stop());
        node_under_test::let_go();
        ASSERT_TRUE(wait_until([this] { return node.start() == 0; }));
        ASSERT_TRUE(node.accept({3}));
    }
    EXPECT_LT(shortest_s, k_stop_limit_s);
}

TEST_F(HinderedStop, ByEightThreadsThatFloodTheQueueComesBackAndSaysGoodbye) {
    constexpr double not_given_up_s = 0.6;
    logs::keep(false);
    double shortest_s = 1e9;
    for (int i = 0; i < 5 && shortest_s >= not_given_up_s; ++i) {
        std::atomic<bool> over{false};
        std::atomic<long> accepted{0};
        std::vector<std::thread> flood;
        for (int t = 0; t < 8; ++t) {
            flood.emplace_back([&] {
                while (!over) {
                    accepted += vxmsg_send_general(3, 1, "x", 1) == 0 ? 1 : 0;
                }
            });
        }
        EXPECT_TRUE(wait_until([&] { return accepted > 5000; }));
        (void)node.manager().take_all();
        const double took_s = timed_stop();
        EXPECT_LT(took_s, k_busy_limit_s);
        shortest_s = std::min(shortest_s, took_s);
        const std::vector<bytes> told = node.manager().take_all();
        EXPECT_TRUE(!told.empty() && told.back().size() == 74);
        over = true;
        for (std::thread &thread : flood) {
            thread.join();
        }
        ASSERT_TRUE(wait_until([this] { return node.start() == 0; }));
        ASSERT_TRUE(node.accept({3}));
    }
    EXPECT_LT(shortest_s, not_given_up_s);
}

TEST_F(HinderedStop, ByANetworkThatNeverHasRoomEndsThoseWhoWaitForIt) {
    faults::fail(call::sendto, EAGAIN);
    // As the system answers on a socket that was shut down for sending.
    faults::before(call::shutdown, [] { faults::fail(call::sendto, EPIPE); });
    EXPECT_EQ(vxmsg_send_general(3, 1, "q", 1), 0);
    const stuck_sender direct([] { return vision_send_msg(NODE_VIO, "d", 1); });
    ASSERT_TRUE(tried_again());
    EXPECT_LT(timed_stop(), k_busy_limit_s);
    EXPECT_EQ(logs::count(k_left), 0U);
    expect_nothing_left();
    faults::clear();
    expect_recovery();
}

TEST_F(HinderedStop, ByTheIoThreadsSendThatNeverReturns) {
    faults::fail(call::sendto, EAGAIN);
    EXPECT_EQ(vxmsg_send_general(3, 1, "q", 1), 0);
    ASSERT_TRUE(tried_again());
    EXPECT_LT(timed_stop(), k_busy_limit_s);
    expect_left_behind();
    faults::clear();
    expect_recovery();
}

TEST_F(HinderedStop, ByADirectSendThatNeverReturns) {
    faults::fail(call::sendto, EAGAIN);
    const stuck_sender direct([] { return vision_send_msg(NODE_VIO, "d", 1); });
    ASSERT_TRUE(tried_again());
    faults::fail(call::sendto, EAGAIN);
    EXPECT_LT(timed_stop(), k_busy_limit_s);
    expect_left_behind();
    EXPECT_EQ(node.start(), -1);
    faults::clear();
    expect_recovery();
}

TEST(HinderedStart, ByARegisterThatNeverReturnsIsStoppedInTime) {
    node_under_test node{k_id};
    faults::fail(call::sendto, EAGAIN);
    ASSERT_EQ(node.start(), 0);
    ASSERT_TRUE(tried_again());
    EXPECT_LT(timed_stop(), k_busy_limit_s);
    EXPECT_EQ(logs::count(k_left), 1U);
    faults::clear();
    ASSERT_TRUE(wait_until([&node] { return node.start() == 0; }));
    EXPECT_TRUE(node.accept({3}));
}

TEST(HinderedStart, WithAPipeThatBlocksIsRefusedWhenItIsFullAndStopsInTime) {
    node_under_test node{k_id};
    faults::fail(call::fcntl, EINVAL, 4); // neither end can be made non-blocking
    ASSERT_EQ(node.start(), 0);
    ASSERT_TRUE(node.accept({3}));
    ASSERT_TRUE(node.hold());
    logs::keep(false);
    int sent = 0;
    while (vxmsg_send_general(3, 1, "x", 1) == 0) {
        ASSERT_LT(++sent, 1'000'000) << "the pipe never gets full";
    }
    logs::keep(true);
    EXPECT_LT(timed_stop(), k_busy_limit_s);
    EXPECT_EQ(logs::count(k_left), 1U);
    node_under_test::let_go();
    ASSERT_TRUE(wait_until([&node] { return node.start() == 0; }));
    EXPECT_TRUE(node.accept({3}));
}

/// The real thing: an interface that lets next to nothing out.
TEST(HinderedNetwork, IsLeftInTimeThoughNothingGoesOut) {
    node_under_test node{k_id};
    ASSERT_TRUE(node.join({3}));
    if (system("tc qdisc add dev lo root tbf rate 8bit burst 20000 limit 100000000 2>/dev/null") != 0) {
        GTEST_SKIP() << "this system's kernel cannot hold packets back (tc, tbf)";
    }
    const std::vector<char> much(8192);
    std::atomic<long> sends{0};
    std::atomic<bool> refused{false};
    std::thread sender([&] {
        while (vision_send_msg(NODE_VIO, much.data(), 8192) == 0) {
            ++sends;
        }
        refused = true;
    });
    for (int i = 0; i < 200; ++i) {
        (void)vxmsg_send_general(3, 1, much.data(), 8192);
    }
    long seen = -1;
    int unchanged = 0; // looks in a row, a millisecond apart
    ASSERT_TRUE(wait_until([&] {
        unchanged = std::exchange(seen, sends.load()) == sends ? unchanged + 1 : 0;
        return unchanged > 200;
    }));
    EXPECT_FALSE(refused);
    const double took_s = timed_stop();
    EXPECT_LT(took_s, k_busy_limit_s);
    EXPECT_GT(took_s, 0.5) << "nothing was in its way";
    EXPECT_EQ(system("tc qdisc del dev lo root"), 0);
    sender.join();
    EXPECT_EQ(logs::count(k_left), 0U);
    EXPECT_EQ(logs::count(k_exit_line), 1U);
}

TEST(HinderedNetwork, ASocketShutDownForSendingRefusesToSend) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(shutdown(fd, SHUT_WR), -1);
    EXPECT_EQ(errno, ENOTCONN) << "what it says; what it does:";
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(9003);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(sendto(fd, "x", 1, 0, reinterpret_cast<const sockaddr *>(&to), sizeof to), -1);
    EXPECT_EQ(errno, EPIPE);
    (void)close(fd);
}
