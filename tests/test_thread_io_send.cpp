// What each sending function puts on the wire, for whom, and on which way.
#include "expect_log.h"
#include "node_mapping.h"
#include "peer.h"
#include "vectors.h"

#include <functional>
#include <gtest/gtest.h>

namespace {

using bus::bytes;
using bus::message;
using bus::node_under_test;
using bus::text;

const bytes k_status = {6, 0, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};

int size_of(const bytes &payload) {
    return static_cast<int>(payload.size());
}

/// One row of the table of sending functions.
struct sending {
    const char *name;
    std::function<int()> send;
    int kind;
    uint16_t dst; // as the header says
    uint16_t to;  // the node that gets it
    bool queued;  // leaves from the node's own port; else from another
    bytes payload;
};

std::vector<sending> all_sendings() {
    static const HeartBeatPair pairs[] = {{LED, 5}, {WORK_MODE, -2}};
    const bytes hello = text("hello");
    return {
        {"message", [=] { return vision_send_msg(NODE_VIO, hello.data(), 5); }, 1, 3, 3, false, hello},
        {"message, proxy", [=] { return vision_send_msg(PROXY_NODE_ID, hello.data(), 5); }, 1, 127, 127,
         false, hello},
        {"message, 128", [=] { return vision_send_msg(NODE_RESERVER_END, hello.data(), 5); }, 1, 128, 127,
         false, hello},
        {"message, app", [=] { return vision_send_msg(NODE_APP, hello.data(), 5); }, 1, 64001, 127, false,
         hello},
        {"message, test", [=] { return vision_send_msg(NODE_FOR_TEST, hello.data(), 5); }, 1, 64002, 127,
         false, hello},
        {"message, manager", [=] { return vision_send_msg(NODE_RESERVED_ZERO, hello.data(), 5); }, 1, 0, 0,
         false, hello},
        {"message, empty", [] { return vision_send_msg(NODE_VIO, nullptr, 0); }, 1, 3, 3, false, {}},
        {"status", [] { return vision_send_status(NODE_VIO, k_status.data(), size_of(k_status)); }, 0, 3, 3,
         false, k_status},
        {"status, app", [] { return vision_send_status(NODE_APP, k_status.data(), size_of(k_status)); }, 0,
         64001, 127, false, k_status},
        {"general 0", [] { return vxmsg_send_general(3, 0, k_status.data(), size_of(k_status)); }, 0, 3, 3,
         true, k_status},
        {"general 1", [=] { return vxmsg_send_general(3, 1, hello.data(), 5); }, 1, 3, 3, true, hello},
        {"general 4", [=] { return vxmsg_send_general(3, 4, hello.data(), 5); }, 4, 3, 3, true, hello},
        {"general, low 8 bits", [=] { return vxmsg_send_general(3, 0x7F01, hello.data(), 5); }, 1, 3, 3, true,
         hello},
        {"general, app", [=] { return vxmsg_send_general(64001, 1, hello.data(), 5); }, 1, 64001, 127, true,
         hello},
        {"general, 128", [=] { return vxmsg_send_general(128, 1, hello.data(), 5); }, 1, 128, 127, true,
         hello},
        {"general, empty", [] { return vxmsg_send_general(3, 1, nullptr, 0); }, 1, 3, 3, true, {}},
        {"broadcast status", [] { return vision_broadcast_status(k_status.data(), size_of(k_status)); }, 0, 3,
         3, true, k_status},
        {"broadcast message", [=] { return vision_brocast_msg(hello.data(), 5); }, 1, 3, 3, true, hello},
        {"general broadcast", [=] { return vxmsg_send_general(0xFF00, 1, hello.data(), 5); }, 1, 3, 3, true,
         hello},
        {"heartbeat", [] { return vision_set_hearbeat(pairs, 2); }, 4, 127, 127, false,
         bus::encoded({{LED, 5}, {WORK_MODE, -2}})},
        {"heartbeat, empty", [] { return vision_set_hearbeat(nullptr, 0); }, 4, 127, 127, false, {}},
    };
}

} // namespace

TEST(Sending, PutsOnTheWireWhatItsRowSays) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3, 127}));
    (void)node.manager().take_all();
    for (const sending &row : all_sendings()) {
        ASSERT_EQ(row.send(), 0) << row.name;
        std::optional<bytes> got = node.other(row.to).receive();
        ASSERT_TRUE(got) << row.name;
        EXPECT_EQ(*got, message({row.kind, 9, row.dst}, row.payload)) << row.name;
        EXPECT_EQ(node.other(row.to).last_port() == 9009, row.queued) << row.name;
    }
    ASSERT_TRUE(node.flush());
    EXPECT_TRUE(node.other(3).silent());
    EXPECT_TRUE(node.other(127).silent());
}

TEST(Sending, PutsTheImagesOnTheWire) {
    struct row {
        const char *image;
        uint16_t to;
        std::function<int()> send;
    };
    const bytes hello = text("hello");
    const HeartBeatPair pairs[] = {{LED, 5}, {WORK_MODE, -2}};
    node_under_test node{9};
    ASSERT_TRUE(node.join({3, 5, 127}));
    for (const row &r : {
             row{"route_message_node9_to_3", 3, [&] { return vision_send_msg(NODE_VIO, hello.data(), 5); }},
             row{"route_message_node9_to_app", 127,
                 [&] { return vision_send_msg(NODE_APP, hello.data(), 5); }},
             row{"route_status_node9_to_5", 5,
                 [] { return vision_send_status(NODE_SOA, k_status.data(), size_of(k_status)); }},
             row{"route_heartbeat_two_pairs", 127, [&] { return vision_set_hearbeat(pairs, 2); }},
             row{"route_broadcast_message_node9_at_3", 3,
                 [&] { return vision_brocast_msg(hello.data(), 5); }},
             row{"route_broadcast_status_node9_at_3", 3,
                 [] { return vision_broadcast_status(k_status.data(), size_of(k_status)); }},
         }) {
        ASSERT_EQ(r.send(), 0) << r.image;
        EXPECT_EQ(node.other(r.to).receive(), vectors::bytes(r.image)) << r.image;
        ASSERT_TRUE(node.flush());
        (void)node.other(5).take_all(); // the broadcasts reach it too
    }
}

TEST(Sending, DirectMessagesGoOutWhileTheThreadIsBusyAndQueuedOnesWait) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3, 127}));
    ASSERT_TRUE(node.hold());
    for (const sending &row : all_sendings()) {
        ASSERT_EQ(row.send(), 0) << row.name;
        if (row.queued) {
            EXPECT_TRUE(node.other(row.to).silent()) << row.name;
        } else {
            EXPECT_TRUE(node.other(row.to).receive(bus::milliseconds(2000))) << row.name;
        }
    }
    node_under_test::let_go();
    ASSERT_TRUE(node.flush());
    EXPECT_FALSE(node.other(3).silent());
}

TEST(Sending, OneWakeUpSendsAllThatIsQueuedInItsOrder) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    ASSERT_TRUE(node.hold());
    for (uint8_t i = 0; i < 100; ++i) {
        ASSERT_EQ(vxmsg_send_general(3, 1, &i, 1), 0);
    }
    node_under_test::let_go();
    for (uint8_t i = 0; i < 100; ++i) {
        EXPECT_EQ(node.other(3).receive(), message({1, 9, 3}, {i}));
    }
}

TEST(Sending, KeepsTheNewestWhenTooManyAreQueued) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    ASSERT_TRUE(node.hold());
    constexpr unsigned most = 1025;
    for (unsigned i = 0; i < most + 5; ++i) {
        bytes payload;
        bus::append16(payload, i);
        ASSERT_EQ(vxmsg_send_general(3, 1, payload.data(), 2), 0);
    }
    node_under_test::let_go();
    const std::optional<bytes> first = node.other(3).receive();
    ASSERT_TRUE(first);
    EXPECT_EQ(bus::word_at(*first, 16), 5U);
    EXPECT_EQ(logs::count("node %u, rxq overstocked, drop the oldest one\n"), 5U);
}

TEST(Sending, OfAnUnknownKindIsRefusedByTheThread) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    for (const int kind : {3, 5, 255, 0x103}) {
        EXPECT_EQ(vxmsg_send_general(3, kind, "x", 1), 0) << kind;
        EXPECT_EQ(vxmsg_send_general(3, 1, "y", 1), 0) << kind;
        EXPECT_EQ(node.other(3).receive(), message({1, 9, 3}, text("y"))) << kind;
    }
    EXPECT_TRUE(node.other(3).silent());
    for (const char *line : {"Unknown msgtype 5\n", "Unknown msgtype 255\n"}) {
        EXPECT_LOGGED(ERROR, logs::k_thread_io, "on_write", "Unknown msgtype %u\n", line);
    }
    EXPECT_EQ(logs::count_of({MODULE_MSG_ROUTE, VISION_LOG_LEVEL_ERROR, logs::k_thread_io, "on_write",
                              "Unknown msgtype %u\n", "Unknown msgtype 3\n"}),
              2U);
}

TEST(Sending, ToANodeThatHasLeftMeanwhileIsDroppedWithAWarning) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3, 4}));
    ASSERT_TRUE(node.hold());
    EXPECT_EQ(vxmsg_send_general(3, 1, "x", 1), 0);
    EXPECT_EQ(vxmsg_send_general(4, 1, "y", 1), 0);
    nmapping_set_stat(3, 0);
    node_under_test::let_go();
    EXPECT_EQ(node.other(4).receive(), message({1, 9, 4}, text("y")));
    EXPECT_TRUE(node.other(3).silent());
    EXPECT_LOGGED(WARN, logs::k_thread_io, "on_write", "dst node (%s, %u), inactived\n",
                  "dst node (node3, 3), inactived\n");
}

TEST(Sending, BehindTheProxyDependsOnTheProxyAlone) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({127}));
    ASSERT_TRUE(node.hold());
    EXPECT_EQ(vxmsg_send_general(64001, 1, "x", 1), 0);
    nmapping_set_stat(127, 0);
    node_under_test::let_go();
    ASSERT_TRUE(node.flush());
    EXPECT_TRUE(node.other(127).silent());
    EXPECT_LOGGED(WARN, logs::k_thread_io, "on_write", "dst node (%s, %u), inactived\n",
                  "dst node (node127, 127), inactived\n");
}

TEST(Sending, GoesWhereTheTableSaysNow) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    bus::peer moved{"192.168.1.44", 7777};
    bus::record record = bus::record_of(3);
    record.ip = "192.168.1.44";
    record.port = 7777;
    node.tell(bus::table({record}));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(vision_send_msg(NODE_VIO, "a", 1), 0);
    EXPECT_EQ(moved.receive(), message({1, 9, 3}, text("a")));
    EXPECT_EQ(vxmsg_send_general(3, 1, "b", 1), 0);
    EXPECT_EQ(moved.receive(), message({1, 9, 3}, text("b")));
    EXPECT_TRUE(node.other(3).silent());
}

TEST(Broadcast, ReachesTheActiveNodesBelowItsSenderOnly) {
    const bus::ids active = {1, 2, 3, 4, 5, 6, 7, 8, 10, 11, 125, 127};
    struct row {
        const char *name;
        std::function<int()> send;
    };
    node_under_test node{9};
    ASSERT_TRUE(node.join(active));
    nmapping_set_stat(4, 0);
    (void)node.manager().take_all();
    for (const row &r : {row{"status", [] { return vision_broadcast_status("\x06\0x", 3); }},
                         row{"message", [] { return vision_brocast_msg("abc", 3); }},
                         row{"general", [] { return vxmsg_send_general(0xFF00, 4, "abc", 3); }}}) {
        ASSERT_EQ(r.send(), 0) << r.name;
        ASSERT_TRUE(node.flush());
        for (const uint16_t id : active) {
            const std::vector<bytes> got = node.other(id).take_all();
            ASSERT_EQ(got.size(), id < 9 && id != 4 ? 1U : 0U) << r.name << " at " << id;
            if (!got.empty()) {
                EXPECT_EQ(bus::word_at(got[0], 8), id) << r.name;
            }
        }
    }
    for (const bytes &datagram : node.manager().take_all()) {
        EXPECT_EQ(datagram.size(), 58U) << "only REGISTERs go to the manager";
    }
}

TEST(Broadcast, OfNodeOneReachesNobody) {
    node_under_test node{1};
    ASSERT_TRUE(node.join({2, 3, 127}));
    EXPECT_EQ(vision_brocast_msg("abc", 3), 0);
    EXPECT_EQ(vision_broadcast_status("\x06\0x", 3), 0);
    ASSERT_TRUE(node.flush());
    for (const uint16_t id : bus::ids{2, 3, 127}) {
        EXPECT_TRUE(node.other(id).silent()) << id;
    }
}

TEST(Broadcast, OfTheProxyReachesEveryActiveNode) {
    const bus::ids active = {1, 5, 64, 125};
    node_under_test proxy{127};
    ASSERT_TRUE(proxy.join(active));
    EXPECT_EQ(vision_brocast_msg("abc", 3), 0);
    for (const uint16_t id : active) {
        EXPECT_EQ(proxy.other(id).receive(), message({1, 127, id}, text("abc"))) << id;
    }
    EXPECT_EQ(proxy.other(bus::k_witness).receive(), message({1, 127, bus::k_witness}, text("abc")));
}

TEST(Broadcast, NeedsNoActiveProxyButThroughTheGeneralFunction) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    EXPECT_EQ(vision_brocast_msg("abc", 3), 0);
    EXPECT_EQ(node.other(3).receive(), message({1, 9, 3}, text("abc")));
    EXPECT_EQ(vxmsg_send_general(0xFF00, 1, "abc", 3), -1);
    ASSERT_TRUE(node.flush());
    EXPECT_TRUE(node.other(3).silent());
}
