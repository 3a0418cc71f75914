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

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr double k_soon_s = 10; // what an instrumented program may take
#else
constexpr double k_soon_s = 1;
#endif

double seconds_to_stop(node_under_test &node) {
    const auto start = steady::now();
    node.stop();
    return std::chrono::duration<double>(steady::now() - start).count();
}

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
    ASSERT_TRUE(node.join({3, 127}));
    (void)node.manager().take_all();
    logs::keep(false);
    const callers threads(every_sending_function());
    ASSERT_TRUE(wait_until([] { return g_sent > 2000; }));
    EXPECT_LT(seconds_to_stop(node), k_soon_s);
    EXPECT_TRUE(heard_the_farewell(node));
    for (const auto &send : every_sending_function()) {
        const long before = g_sent;
        for (int i = 0; i < 100; ++i) {
            send();
        }
        EXPECT_EQ(g_sent, before) << "later calls are refused";
    }
}

TEST(Load, DoesNotDisturbFiveRestarts) {
    node_under_test node{9};
    (void)node.other(3);
    (void)node.other(127);
    (void)node.other(bus::k_witness);
    logs::keep(false);
    ASSERT_TRUE(node.join({3, 127}));
    node.stop();
    const auto descriptors = process_state::descriptors();
    for (int i = 0; i < 5; ++i) {
        const callers threads(every_sending_function());
        ASSERT_TRUE(node.join({3, 127})) << i;
        const long before = g_sent;
        ASSERT_TRUE(wait_until([=] { return g_sent > before + 200; })) << i;
        EXPECT_LT(seconds_to_stop(node), k_soon_s) << i;
    }
    EXPECT_EQ(process_state::descriptors(), descriptors);
}

TEST(Load, OfQueuedMessagesForAThreadThatIsBusyDoesNotPushTheFarewellOut) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    logs::keep(false);
    ASSERT_TRUE(node.hold());
    const callers threads(
        std::vector<std::function<void()>>(8, [] { (void)vxmsg_send_general(3, 1, "x", 1); }));
    ASSERT_TRUE(wait_until([] { return vxmsg_send_general(3, 1, "x", 1) == -1; })) << "the pipe gets full";
    (void)node.manager().take_all();
    std::jthread let_go([] {
        ASSERT_TRUE(wait_until([] { return vision_brocast_msg("x", 1) == -1; }));
        node_under_test::let_go();
    });
    EXPECT_LT(seconds_to_stop(node), k_soon_s + 10);
    EXPECT_TRUE(heard_the_farewell(node));
}

TEST(Load, OfDatagramsDoesNotKeepTheNodeFromLeaving) {
    struct row {
        const char *name;
        bytes datagram;
    };
    const bytes short_one = {0x3A, 0x5E, 0};
    bytes foreign = message({1, 3, 9}, {1});
    foreign[0] = 0;
    node_under_test node{9};
    logs::keep(false);
    for (const row &r :
         {row{"callback", message({1, 3, 9}, {1})}, row{"status", message({0, 3, 9}, {6, 0, 1})},
          row{"heartbeat", message({4, 3, 9}, bus::encoded({{LED, 1}}))}, row{"no kind", message({3, 3, 9})},
          row{"stranger", message({1, 200, 9})}, row{"foreign", foreign}, row{"short", short_one}}) {
        ASSERT_TRUE(node.join({3}, [](void *, MsgExtra *) {})) << r.name;
        (void)node.manager().take_all();
        const callers senders(std::vector<std::function<void()>>(3, [&r] {
            thread_local const bus::peer from{"192.168.1.200", 0};
            from.send(r.datagram, 9);
        }));
        EXPECT_LT(seconds_to_stop(node), k_soon_s) << r.name;
        EXPECT_TRUE(heard_the_farewell(node)) << r.name;
    }
}
