// What becomes of a datagram: which are accepted, and where each kind goes.
#include "thread_io.h"

#include "expect_log.h"
#include "node_mapping.h"
#include "peer.h"
#include "vectors.h"

#include <cstring>
#include <gtest/gtest.h>
#include <sys/time.h>

namespace {

using bus::bytes;
using bus::message;
using bus::node_under_test;
using bus::text;

vx_msg_head_t head_from_to(uint16_t src, uint16_t dst) {
    vx_msg_head_t head{};
    head.magic = VX_MSG_MAGIC;
    head.src = src;
    head.dst = dst;
    return head;
}

HeartBeatPair pair_of(HeartBeatField field, int value) {
    return {field, value};
}

/// The frame's byte with the LED's state, and the one with the VIO's mode.
unsigned led() {
    VPHeartbeatFrame frame{};
    vision_get_hearbeat(&frame);
    return frame.device.details.bottom_flash_state;
}

unsigned vio_mode() {
    VPHeartbeatFrame frame{};
    vision_get_hearbeat(&frame);
    return frame.core.details.vio_mode;
}

} // namespace

TEST(NodeCheck, AcceptsWhatTheTableSays) {
    struct row {
        uint16_t self;
        uint16_t src;
        uint16_t dst;
        int result;
    };
    for (const row &r : {
             row{5, 0, 0, 0},
             row{5, 127, 127, 0},
             row{5, 0, 127, 0},
             row{5, 128, 5, -1},
             row{5, 3, 128, -1},
             row{5, 3, 200, -1},
             row{5, 200, 0xFF00, 0},
             row{5, 64001, 0xFF00, 0},
             row{5, 3, 0xFF00, 0},
             row{5, 3, 0xFF01, -1},
             row{5, 3, 0xFEFF, -1},
             row{5, 64001, 5, -1},
             row{5, 5, 64001, -1},
             row{126, 3, 200, -1},
             row{127, 3, 200, 0},
             row{127, 64001, 64002, 0},
             row{127, 65535, 65535, 0},
         }) {
        nmapping_set_self(r.self);
        const vx_msg_head_t head = head_from_to(r.src, r.dst);
        EXPECT_EQ(node_check(&head), r.result) << r.self << ": " << r.src << " to " << r.dst;
    }
}

TEST(NodeCheck, SaysWhomItRefuses) {
    nmapping_set_self(5);
    const vx_msg_head_t head = head_from_to(3, 200);
    EXPECT_EQ(node_check(&head), -1);
    EXPECT_LOGGED(ERROR, logs::k_thread_io, "node_check", "node check  error, src %u, dst %u\n",
                  "node check  error, src 3, dst 200\n");
}

TEST(Dispatch, DropsAForeignMagicWhateverFollows) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    for (const bytes &start : {bytes{0x5E, 0x3A}, bytes{0x3A, 0x5F}, bytes{0x3B, 0x5E}, bytes{0, 0}}) {
        for (const int kind : {0, 1, 2, 4}) {
            bytes datagram = message({kind, 3, 5, bus::k_accepted}, bus::encoded({{LED, 7}, {0, 0}}));
            std::copy(start.begin(), start.end(), datagram.begin());
            node.send(datagram);
        }
    }
    ASSERT_TRUE(node.settle());
    EXPECT_TRUE(node_under_test::all_heard().empty());
    EXPECT_EQ(led(), 0U);
    EXPECT_EQ(logs::count("mgic check error\n"), 16U);
    EXPECT_LOGGED(ERROR, logs::k_thread_io, "msg_check", "mgic check error\n", "mgic check error\n");
}

TEST(Dispatch, AcceptsABroadcastFromAStranger) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    node.send(message({1, 200, bus::k_everybody}, text("x")));
    ASSERT_TRUE(node_under_test::wait_heard(1));
    const MsgExtra extra = node_under_test::all_heard()[0].extra;
    EXPECT_EQ(static_cast<unsigned>(extra.src), 200U);
    EXPECT_EQ(static_cast<unsigned>(extra.dst), 0xFF00U);
}

TEST(Dispatch, DropsWhatIsForANodeOutsideTheTable) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    node.send(message({1, 3, 200}, text("x")));
    ASSERT_TRUE(node.settle());
    EXPECT_TRUE(node_under_test::all_heard().empty());
    EXPECT_LOGGED(ERROR, logs::k_thread_io, "node_check", "node check  error, src %u, dst %u\n",
                  "node check  error, src 3, dst 200\n");
}

TEST(Dispatch, OnTheProxyAcceptsWhatIsForANodeOutsideTheTable) {
    node_under_test proxy{127};
    ASSERT_TRUE(proxy.join({}));
    proxy.send(message({1, 3, 200}, text("x")));
    ASSERT_TRUE(node_under_test::wait_heard(1));
    EXPECT_EQ(static_cast<unsigned>(node_under_test::all_heard()[0].extra.dst), 200U);
    EXPECT_EQ(logs::count("node check  error, src %u, dst %u\n"), 0U);
}

TEST(Dispatch, HandsACallbackMessageOverWithTheWholeDatagramsLength) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    const bytes payload = bus::pattern(100);
    node.send(message({1, 3, 5}, payload));
    ASSERT_TRUE(node_under_test::wait_heard(1));
    const bus::heard got = node_under_test::all_heard()[0];
    EXPECT_EQ(got.payload, payload);
    EXPECT_EQ(got.extra.len, 116);
    EXPECT_EQ(got.extra.src, NODE_VIO);
    EXPECT_EQ(got.extra.dst, NODE_SOA);
}

TEST(Dispatch, HandsAnEmptyCallbackMessageOver) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    node.send(message({1, 3, 5}));
    ASSERT_TRUE(node_under_test::wait_heard(1));
    EXPECT_EQ(node_under_test::all_heard()[0].extra.len, 16);
}

TEST(Dispatch, StampsTheTimeOfArrivalWithinItsSecond) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    timeval before{};
    timeval after{};
    do { // until both lie in the same second
        node_under_test::forget_heard();
        gettimeofday(&before, nullptr);
        bytes datagram = message({1, 3, 5}, text("x"));
        std::fill(datagram.begin() + 12, datagram.begin() + 16, uint8_t{0xFF}); // the sender's word for it
        node.send(datagram);
        ASSERT_TRUE(node_under_test::wait_heard(1));
        gettimeofday(&after, nullptr);
    } while (before.tv_sec != after.tv_sec);
    const int64_t stamp = node_under_test::all_heard()[0].extra.recv_time;
    EXPECT_EQ(stamp % 1000, 0);
    EXPECT_GE(stamp, before.tv_usec * 1000);
    EXPECT_LE(stamp, after.tv_usec * 1000);
}

TEST(Dispatch, WithoutACallbackDropsItsMessagesSilently) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}, nullptr));
    logs::clear();
    node.send(message({1, 3, 5}, text("x")));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(logs::all().size(), 1U); // what settling itself left
}

TEST(Dispatch, KeepsAStatusForPolling) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    node.send(vectors::bytes("route_status_node9_to_5"));
    ASSERT_TRUE(node.settle());
    uint8_t payload[8192];
    MsgExtra extra{};
    ASSERT_EQ(vision_recv_status(MSG_DETECTION_OBJECTS, payload, sizeof payload, &extra), 10);
    EXPECT_EQ(bytes(payload, payload + 10), bus::payload_of(vectors::bytes("route_status_node9_to_5")));
    EXPECT_EQ(extra.src, NODE_DETECTION_TRACKING);
    EXPECT_EQ(extra.dst, NODE_SOA);
    EXPECT_EQ(extra.len, 10);
    EXPECT_GE(extra.recv_time, 0);
    EXPECT_LT(extra.recv_time, 1'000'000'000);
    EXPECT_EQ(extra.recv_time % 1000, 0);
    EXPECT_TRUE(node_under_test::all_heard().empty());
}

TEST(Dispatch, RefusesAStatusOfAStrangerInTheQueue) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    node.send(message({0, 200, bus::k_everybody}, {6, 0, 1}));
    ASSERT_TRUE(node.settle());
    uint8_t payload[8192];
    MsgExtra extra{};
    EXPECT_EQ(vision_recv_status(MSG_DETECTION_OBJECTS, payload, sizeof payload, &extra), 0);
    EXPECT_LOGGED(ERROR, "src/io_pool", "io_pool_rx_put", "msg src %u >= %u", "msg src 200 >= 128");
}

TEST(Dispatch, DropsKindsThatNobodyReceives) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    logs::clear();
    for (const int kind : {3, 5, 6, 127, 128, 255}) {
        node.send(message({kind, 3, 5}, text("payload")));
    }
    ASSERT_TRUE(logs::wait_for("mgr server receive irreletive msg\n", 6));
    EXPECT_LOGGED(WARN, logs::k_thread_io, "thrio_proc_message", "mgr server receive irreletive msg\n",
                  "mgr server receive irreletive msg\n");
    EXPECT_EQ(logs::all().size(), 6U);
    EXPECT_TRUE(node_under_test::all_heard().empty());
}

TEST(Dispatch, AppliesAHeartbeatOperation) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    node.send(message({4, 127, 5}, bus::encoded({{LED, 5}, {VIO_MODE, 0x1FF}})));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(led(), 5U);
    EXPECT_EQ(vio_mode(), 0xFFU);
    EXPECT_LOGGED(INFO, "src/hb_mgr", "hbmgr_set_hb", "LED:value 0x%0x\n", "LED:value 0x5\n");
}

TEST(Dispatch, OfThirteenHeartbeatBytesAppliesOnePair) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    const bytes whole = bus::payload_of(vectors::bytes("route_heartbeat_13_bytes"));
    node.send(message({4, 127, 5}, whole));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(vio_mode(), 0xFFU);
    EXPECT_EQ(led(), 0U); // the pair that did not fit
}

TEST(Dispatch, OfSevenHeartbeatBytesAppliesNone) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    bytes part = bus::encoded({{VIO_MODE, 3}});
    part.pop_back();
    node.send(message({4, 127, 5}, part));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(vio_mode(), 0U);
}

TEST(Dispatch, HandsNoHeartbeatOperationOnUnlessItIsTheProxy) {
    node_under_test node{126 - 1};
    ASSERT_TRUE(node.join({3, 127}));
    node.send(message({4, 3, 125}, bus::encoded({{LED, 5}})));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(led(), 5U);
    EXPECT_TRUE(node.other(3).silent());
    EXPECT_TRUE(node.other(127).silent());
}

TEST(Proxy, HandsAHeartbeatOperationOnToEveryActiveNodeItsSenderIncluded) {
    node_under_test proxy{127};
    ASSERT_TRUE(proxy.join({1, 3, 5, 9, 125}));
    proxy.tell(bus::table({bus::record_of(9, 0)})); // no longer there
    ASSERT_TRUE(proxy.settle());
    (void)proxy.manager().take_all();
    const bytes pairs = bus::encoded({{LED, 5}, {VIO_MODE, 2}});
    proxy.send(message({4, 5, 127}, pairs));
    for (const uint16_t id : bus::ids{1, 3, 5, 125, 126}) {
        std::optional<bytes> got = proxy.other(id).receive();
        ASSERT_TRUE(got) << id;
        const unsigned stamp = bus::word_at(*got, 12) | bus::word_at(*got, 14) << 16;
        EXPECT_EQ(stamp % 1000, 0U);
        EXPECT_LT(stamp, 1'000'000'000U);
        std::fill(got->begin() + 12, got->begin() + 16, uint8_t{0});
        EXPECT_EQ(*got, message({4, 127, id}, pairs));
        EXPECT_EQ(proxy.other(id).last_port(), 9127);
    }
    ASSERT_TRUE(proxy.settle());
    EXPECT_EQ(led(), 5U);
    EXPECT_EQ(vio_mode(), 2U);
    EXPECT_TRUE(proxy.other(9).silent());
    for (const bytes &datagram : proxy.manager().take_all()) {
        EXPECT_NE(datagram.at(3), 4) << "the manager is no target";
    }
}

TEST(Proxy, HandsOnBytesThatMakeNoPairToo) {
    node_under_test proxy{127};
    ASSERT_TRUE(proxy.join({5}));
    const bytes payload = bus::payload_of(vectors::bytes("route_heartbeat_13_bytes"));
    proxy.send(vectors::bytes("route_heartbeat_13_bytes"));
    const std::optional<bytes> got = proxy.other(5).receive();
    ASSERT_TRUE(got);
    EXPECT_EQ(bus::word_at(*got, 4), 13U);
    EXPECT_EQ(bus::payload_of(*got), payload);
}

TEST(Proxy, AppliesItsOwnOperationOnceAndTellsTheOthers) {
    node_under_test proxy{127};
    ASSERT_TRUE(proxy.join({5}));
    const HeartBeatPair pair = pair_of(LED, 3);
    EXPECT_EQ(vision_set_hearbeat(&pair, 1), 0); // goes to the proxy, which is this node
    const std::optional<bytes> got = proxy.other(5).receive();
    ASSERT_TRUE(got);
    EXPECT_EQ(bus::word_at(*got, 6), 127U);
    EXPECT_EQ(bus::payload_of(*got), bus::encoded({{LED, 3}}));
    EXPECT_EQ(led(), 3U);
}
