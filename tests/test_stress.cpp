// Everything at once: every function from many threads, starts and stops between, and datagrams of every
// sort.
#include "hb_mgr.h"
#include "log_capture.h"
#include "node_mapping.h"
#include "node_mgr_msg_helper.h"
#include "peer.h"
#include "seed.h"
#include "thread_io.h"
#include "vision_protocol.h"
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
using bus::text;

constexpr uint16_t k_spare_node = 100; // nobody is there

/// What tools and tests may do beside, with the units behind the component.
void call_the_units() {
    vexa_node_t node{};
    VPHeartbeatFrame frame{};
    const HeartBeatPair pair = {SOA_MODE, 1};
    alignas(vx_msg_head_t) uint8_t room[8240];
    vx_msg_head_t head{};
    int len = 0;
    node.node_id = k_spare_node;
    (void)nmapping_set(k_spare_node, &node);
    nmapping_set_stat(k_spare_node, NODE_STAT_INACTIVED);
    (void)nmapping_get_stat(k_spare_node);
    (void)nmapping_del(k_spare_node);
    nmapping_valid_item_show();
    (void)hbmgr_get_hb(&frame);
    (void)hbmgr_set_hb(&pair, 1);
    buid_unregist_msg(reinterpret_cast<vx_msg_head_t *>(room));
    (void)io_pool_rx_put(reinterpret_cast<const vx_msg_head_t *>(room));
    (void)io_pool_rx_get("\x06", reinterpret_cast<char *>(room), &len, &head);
    head.magic = VX_MSG_MAGIC;
    (void)node_check(&head);
    (void)send_node_info(-1, 9, 3, 1);
    (void)send_heart_beat(3);
    (void)vision_test_send_track_status();
}

/// What an application may do at any time from any thread, but for starting and stopping.
void call_every_function() {
    static const HeartBeatPair pairs[] = {{LED, 1}, {WORK_MODE, 2}, {VIO_RATE, 3}};
    MsgExtra extra{};
    VPHeartbeatFrame frame{};
    uint8_t room[8192];
    vexa_node_t node{};
    (void)vision_send_msg(NODE_VIO, "direct", 6);
    (void)vision_send_msg(NODE_APP, "direct", 6);
    (void)vision_send_status(NODE_VIO, "\x06\0direct", 8);
    (void)vxmsg_send_general(3, 1, "queued", 6);
    (void)vxmsg_send_general(64001, 0, "\x06\0queued", 8);
    (void)vision_broadcast_status("\x06\0all", 5);
    (void)vision_brocast_msg("all", 3);
    (void)vision_recv_status(MSG_DETECTION_OBJECTS, room, sizeof room, &extra);
    (void)vision_recv_status(MSG_VISION_STATE, room, sizeof room, &extra);
    vision_send_heartbeat();
    (void)vision_get_hearbeat(&frame);
    (void)vision_set_hearbeat(pairs, 3);
    (void)nmapping_get(3, &node);
    (void)nmapping_self_node_id();
    (void)send_node_info_req(3);
    __atomic_store_n(&gn_dbg_route, 0, __ATOMIC_RELAXED);
    call_the_units();
}

/// What the bus may send to a node, one after the other.
bytes traffic(unsigned n, uint16_t to) {
    switch (n % 6) {
    case 0:
        return message({0, 3, to}, {6, 0, static_cast<uint8_t>(n)});
    case 1:
        return message({1, 3, to}, bus::pattern(n % 100));
    case 2:
        return message({2, 0, to, bus::k_accepted}, bus::table({bus::record_of(3), bus::record_of(127)}));
    case 3:
        return message({4, 127, to}, bus::encoded({{VIO_MODE, static_cast<int>(n)}}));
    case 4:
        return message({0, 3, to}, bus::pattern(n % 1000 + 2));
    default:
        return message({3, 3, to});
    }
}

/// Threads that do something over and over until they are destroyed.
class crowd {
public:
    crowd(int size, const std::function<void(unsigned)> &work) {
        for (int i = 0; i < size; ++i) {
            threads_.emplace_back([work](const std::stop_token &stop) {
                for (unsigned n = 0; !stop.stop_requested(); ++n) {
                    work(n);
                }
            });
        }
    }

private:
    std::vector<std::jthread> threads_;
};

/// Datagrams like the right ones, and wrong in every way.
class mutator {
public:
    mutator(uint64_t seed, uint16_t own_id) : random_(seed) {
        const bytes pairs = bus::encoded({{LED, 1}, {WORK_MODE, 2}});
        originals_ = {
            message({0, 3, own_id}, {6, 0, 1, 2, 3}),
            message({1, 3, own_id}, text("a message for the callback")),
            message({2, 0, own_id, bus::k_accepted}, bus::table({far_away(3), far_away(64), far_away(126)})),
            message({2, 0, own_id}, bus::table({far_away(0)})),
            message({3, 3, own_id}),
            message({4, 5, own_id}, pairs),
            message({4, 5, 127}, pairs),
            message({1, 200, bus::k_everybody}, text("from a stranger")),
            message({0, 3, bus::k_everybody}, bus::pattern(300)),
        };
    }

    bytes next() {
        switch (below(8)) {
        case 0:
            return noise(below(64));
        case 1:
            return message({below(6), any16(), any16(), any8()}, noise(below(200)));
        case 2:
            return with_wrong_length();
        default:
            return mutated();
        }
    }

private:
    /// A record that no datagram reaches this node by: neither its address nor its port are of this network.
    static bus::record far_away(uint16_t id) { return {"far", "192.0.2.1", 30000, id, 1}; }

    int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }
    uint8_t any8() { return static_cast<uint8_t>(random_()); }
    uint16_t any16() { return static_cast<uint16_t>(random_() & random_()); } // small ones more often

    bytes noise(int size) {
        bytes made(static_cast<size_t>(size));
        std::generate(made.begin(), made.end(), [this] { return any8(); });
        return made;
    }

    bytes mutated() {
        bytes made = originals_[static_cast<size_t>(below(static_cast<int>(originals_.size())))];
        for (int changes = below(6); changes > 0; --changes) {
            made[static_cast<size_t>(below(static_cast<int>(made.size())))] = any8();
        }
        if (below(3) == 0) {
            made.resize(static_cast<size_t>(below(static_cast<int>(made.size()) + 1)));
        } else if (below(4) == 0) {
            made = bus::joined(std::move(made), noise(below(100)));
        }
        return made;
    }

    /// Sometimes longer than what is read of a datagram, too.
    bytes with_wrong_length() {
        const int size = below(40) == 0 ? 8170 + below(60) : below(300);
        constexpr unsigned lengths[] = {0, 1, 7, 8, 8176, 8177, 8192, 8193, 32767, 32768, 65535};
        const unsigned said = below(2) == 0 ? any16() : lengths[below(11)];
        bytes made = bus::message_saying(said, {below(5), 3, 5, any8()}, noise(size));
        if (made[3] == 2 && made.size() > 20) {
            made[18] = any8();
            made[19] = any8();
        }
        return made;
    }

    std::mt19937_64 random_;
    std::vector<bytes> originals_;
};

/// A marked callback message and a status of a type of its own come through, and every way out works.
void expect_works(node_under_test &node, uint16_t id) {
    node.tell(bus::table({bus::record_of(0), bus::record_of(3), bus::record_of(127), bus::record_of(126)}),
              bus::k_accepted);
    ASSERT_TRUE(node.settle());
    node_under_test::forget_heard();
    node.send(message({1, 3, id}, text("sane")));
    ASSERT_TRUE(node_under_test::wait_heard(1));
    EXPECT_EQ(node_under_test::all_heard()[0].payload, text("sane"));
    for (int i = 0; i < 1100; ++i) { // pushes out whatever the receive queue holds under this type
        node.send(message({0, 3, id}, {0xE0, 0, 'o', 'k'}));
        if (i % 50 == 49) {
            ASSERT_TRUE(node.settle());
        }
    }
    uint8_t room[8192];
    MsgExtra extra{};
    ASSERT_EQ(vision_recv_status(MSG_APP_CMD, room, sizeof room, &extra), 4);
    EXPECT_EQ(bytes(room, room + 4), (bytes{0xE0, 0, 'o', 'k'}));
    (void)node.other(3).take_all();
    EXPECT_EQ(vision_send_msg(NODE_VIO, "direct", 6), 0);
    EXPECT_EQ(node.other(3).receive(), message({1, id, 3}, text("direct")));
    EXPECT_EQ(vxmsg_send_general(3, 1, "queued", 6), 0);
    EXPECT_EQ(node.other(3).receive(), message({1, id, 3}, text("queued")));
    (void)node.manager().take_all();
    node.stop();
    const std::vector<bytes> told = node.manager().take_all();
    ASSERT_FALSE(told.empty());
    EXPECT_EQ(told.back().size(), 74U);
}

void survive_hostile_datagrams(uint16_t id) {
    constexpr int datagrams = 100'000;
    constexpr size_t at_once = 30'000; // [bytes] sure to fit the node's socket
    node_under_test node{id};
    ASSERT_TRUE(node.join({3}));
    mutator mutate{test_seed(), id};
    size_t since_settled = 0;
    for (int i = 0; i < datagrams; ++i) {
        const bytes datagram = mutate.next();
        node.send(datagram);
        since_settled += datagram.size() + 1000; // a short one takes its room too
        if (since_settled > at_once) {
            ASSERT_TRUE(node.settle()) << i;
            since_settled = 0;
            logs::clear();
            node_under_test::forget_heard();
        }
    }
    ASSERT_TRUE(node.settle());
    expect_works(node, id);
}

} // namespace

TEST(Stress, OfEveryFunctionFromEightThreadsWhileTrafficArrives) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3, 127}));
    logs::keep(false);
    std::atomic<long> rounds{0};
    {
        const crowd callers(8, [&rounds](unsigned) {
            call_every_function();
            ++rounds;
        });
        const bus::peer sender{"192.168.1.200", 0};
        const crowd senders(1, [&sender](unsigned n) { sender.send(traffic(n, 9), 9); });
        ASSERT_TRUE(wait_until([&] { return rounds > 1000; }, bus::milliseconds(40'000)));
    }
    logs::keep(true);
    ASSERT_TRUE(node.settle());
    expect_works(node, 9);
}

TEST(Stress, OfEveryFunctionFromEightThreadsWhileTheNodeComesAndGoes) {
    node_under_test node{127}; // the proxy, which sends out again what it hears
    (void)node.other(3);
    logs::keep(false);
    std::atomic<long> rounds{0};
    {
        const crowd callers(8, [&rounds](unsigned) {
            call_every_function();
            ++rounds;
        });
        const bus::peer sender{"192.168.1.200", 0};
        const crowd senders(1, [&sender](unsigned n) { sender.send(traffic(n, 127), 127); });
        for (int i = 0; i < 6; ++i) {
            ASSERT_EQ(node.start(), 0);
            const long before = rounds;
            ASSERT_TRUE(wait_until([&] { return rounds > before + 20; }));
            node.stop();
        }
    }
    logs::keep(true);
    ASSERT_TRUE(node.join({3}));
    expect_works(node, 127);
}

TEST(Stress, OfStartsAndStopsFromEightThreads) {
    node_under_test node{9};
    (void)node.manager();
    logs::keep(false);
    std::atomic<long> started{0};
    {
        const crowd threads(8, [&started](unsigned) {
            started += vision_msg_component_init(NODE_DETECTION_TRACKING, "node", "192.168.1.9",
                                                 node_under_test::hear) == 0;
            call_every_function();
            vision_msg_component_deinit();
        });
        EXPECT_TRUE(wait_until([&] { return started >= 10; }, bus::milliseconds(40'000)));
    }
    logs::keep(true);
    ASSERT_TRUE(node.join({3}));
    expect_works(node, 9);
}

TEST(Stress, OfHostileDatagramsIsSurvivedByANode) {
    survive_hostile_datagrams(5);
}

TEST(Stress, OfHostileDatagramsIsSurvivedByTheProxy) {
    survive_hostile_datagrams(127);
}
