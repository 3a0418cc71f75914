// Stopping a node that is under load from inside and from outside.
#include "log_capture.h"
#include "node_mapping.h"
#include "peer.h"
#include "process_state.h"
#include "wait.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <thread>

namespace {

using bus::bytes;
using bus::message;
using bus::node_under_test;
using steady = std::chrono::steady_clock;

constexpr int k_rounds = 5;
#if defined(VEXAMSG_UNDER_TSAN) || defined(VEXAMSG_UNDER_ASAN)
constexpr double k_soon_s = 5; // an instrumented program is slow
#else
constexpr double k_soon_s = 1;
#endif

/// How long stops take. A machine that is busy with other things may delay one, but not every one of them.
class stop_watch {
public:
    void stop(node_under_test &node) {
        const auto start = steady::now();
        node.stop();
        shortest_s_ = std::min(shortest_s_, std::chrono::duration<double>(steady::now() - start).count());
    }
    [[nodiscard]] double shortest_s() const { return shortest_s_; }

private:
    double shortest_s_ = 1e9;
};

bool heard_the_farewell(node_under_test &node) {
    const std::vector<bytes> told = node.manager().take_all();
    return std::count_if(told.begin(), told.end(), [](const bytes &d) { return d.size() == 74; }) == 1 &&
           told.back().size() == 74;
}

/// One thread per function, each calling it over and over until it is destroyed.
class callers {
public:
    explicit callers(const std::vector<std::function<void()>> &functions) {
        for (const auto &function : functions) {
            threads_.emplace_back([function](const std::stop_token &stop) {
                while (!stop.stop_requested()) {
                    function();
                }
            });
        }
    }

private:
    std::vector<std::jthread> threads_;
};

std::atomic<long> g_sent{0};

std::function<void()> counted(const std::function<int()> &send) {
    return [send] { g_sent += send() == 0 ? 1 : 0; };
}

std::vector<std::function<void()>> every_sending_function() {
    static const HeartBeatPair pair = {LED, 1};
    return {
        counted([] { return vision_send_msg(NODE_VIO, "x", 1); }),
        counted([] { return vision_send_status(NODE_APP, "\x06\0x", 3); }),
        counted([] { return vxmsg_send_general(3, 1, "x", 1); }),
        counted([] { return vxmsg_send_general(64001, 0, "\x06\0x", 3); }),
        counted([] { return vxmsg_send_general(3, 4, "x", 1); }),
        counted([] { return vision_broadcast_status("\x06\0x", 3); }),
        counted([] { return vision_brocast_msg("x", 1); }),
        counted([] { return vision_set_hearbeat(&pair, 1); }),
    };
}

} // namespace

TEST(Load, OfEverySendingFunctionDoesNotKeepTheNodeFromLeaving) {
    node_under_test node{9};
    (void)node.other(3);
    (void)node.other(127);
    (void)node.other(bus::k_witness);
    logs::keep(false);
    ASSERT_TRUE(node.join({3, 127}));
    node.stop();
    const auto descriptors = process_state::descriptors();
    stop_watch watch;
    for (int i = 0; i < k_rounds; ++i) {
        ASSERT_TRUE(node.join({3, 127})) << i;
        (void)node.manager().take_all();
        const callers threads(every_sending_function());
        const long before = g_sent;
        ASSERT_TRUE(wait_until([=] { return g_sent > before + 2000; })) << i;
        watch.stop(node);
        EXPECT_TRUE(heard_the_farewell(node)) << i;
    }
    EXPECT_LT(watch.shortest_s(), k_soon_s);
    EXPECT_EQ(process_state::descriptors(), descriptors);
}

TEST(Load, IsRefusedAfterTheNodeHasLeft) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3, 127}));
    logs::keep(false);
    const callers threads(every_sending_function());
    ASSERT_TRUE(wait_until([] { return g_sent > 100; }));
    node.stop();
    const long after = g_sent;
    for (int i = 0; i < 100; ++i) {
        for (const auto &send : every_sending_function()) {
            send();
        }
    }
    EXPECT_LE(g_sent, after + 8) << "but for the calls that were under way";
}

TEST(Load, FromBeforeTheStartDoesNotDisturbIt) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3, 127})); // so that these are active from the next start on
    node.stop();
    logs::keep(false);
    const callers threads(every_sending_function());
    for (int i = 0; i < k_rounds; ++i) {
        ASSERT_EQ(node.start(), 0) << i;
        const long before = g_sent;
        ASSERT_TRUE(wait_until([=] { return g_sent > before + 100; })) << i;
        node.stop();
    }
}

TEST(Load, OfMoreThanThePipeHoldsDoesNotPushTheFarewellOut) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    logs::keep(false);
    ASSERT_TRUE(node.hold());
    const auto send = [] { (void)vxmsg_send_general(3, 1, "x", 1); };
    const callers threads(std::vector<std::function<void()>>(8, send));
    ASSERT_TRUE(wait_until([] { return vxmsg_send_general(3, 1, "x", 1) == -1; })) << "the pipe gets full";
    (void)node.manager().take_all();
    std::thread stopper([&node] { node.stop(); });
    node_under_test::let_go(); // at the same time as the stop
    stopper.join();
    EXPECT_TRUE(heard_the_farewell(node));
}

TEST(Load, OfMoreThanThePipeHoldsIsOverWhenTheThreadIsLetGo) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    ASSERT_TRUE(node.hold());
    logs::keep(false);
    for (int i = 0; vxmsg_send_general(3, 1, "x", 1) == 0; ++i) {
        ASSERT_LT(i, 10'000'000) << "the pipe never gets full";
    }
    logs::keep(true);
    node_under_test::let_go();
    // The thread may hear before it comes to the pipe, so the first tries may still find it full.
    ASSERT_TRUE(wait_until([&node] { return node.flush(); }));
}

TEST(Load, OfDatagramsDoesNotKeepTheNodeFromLeaving) {
    struct row {
        const char *name;
        bytes datagram;
    };
    bytes foreign = message({1, 3, 9}, {1});
    foreign[0] = 0;
    node_under_test node{9};
    stop_watch watch;
    for (const row &r :
         {row{"callback", message({1, 3, 9}, {1})}, row{"status", message({0, 3, 9}, {6, 0, 1})},
          row{"heartbeat", message({4, 3, 9}, bus::encoded({{LED, 1}}))}, row{"no kind", message({3, 3, 9})},
          row{"stranger", message({1, 200, 9})}, row{"foreign", foreign}, row{"short", {0x3A, 0x5E, 0}}}) {
        ASSERT_TRUE(node.join({3}, [](void *, MsgExtra *) {})) << r.name;
        (void)node.manager().take_all();
        logs::keep(false);
        const auto send = [&r] {
            thread_local const bus::peer from{"192.168.1.200", 0};
            from.send(r.datagram, 9);
        };
        const callers senders(std::vector<std::function<void()>>(3, send));
        watch.stop(node);
        EXPECT_TRUE(heard_the_farewell(node)) << r.name;
        logs::keep(true);
    }
    EXPECT_LT(watch.shortest_s(), k_soon_s);
}
