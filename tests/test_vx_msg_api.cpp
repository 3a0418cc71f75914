// The component's functions as an application calls them: what they accept, refuse and say.
#include "expect_log.h"
#include "node_mapping.h"
#include "peer.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>

namespace {

using bus::bytes;
using bus::message;
using bus::node_under_test;

constexpr char k_unit[] = "src/vx_msg";
constexpr char k_too_long[] = "max msg len %d\n";
constexpr char k_unreachable[] = "dst node %u, route by next_hop node_id %u inactived, may be unreachable\n";

/// A sending function with a payload: what differs is only the name, the way and the receiver.
struct sender {
    const char *name;
    std::function<int(const void *, int)> send;
    bool checks_next_hop;
};

const std::vector<sender> &senders() {
    static const std::vector<sender> all = {
        {"vision_send_msg", [](const void *m, int n) { return vision_send_msg(NODE_VIO, m, n); }, true},
        {"vision_send_status", [](const void *m, int n) { return vision_send_status(NODE_VIO, m, n); }, true},
        {"vxmsg_send_general", [](const void *m, int n) { return vxmsg_send_general(3, 1, m, n); }, true},
        {"vision_broadcast_status", [](const void *m, int n) { return vision_broadcast_status(m, n); },
         false},
        {"vision_brocast_msg", [](const void *m, int n) { return vision_brocast_msg(m, n); }, false},
    };
    return all;
}

bool logged_at_error_by(const std::string &function) {
    const std::vector<logs::line> lines = logs::all();
    return std::any_of(lines.begin(), lines.end(), [&](const logs::line &l) {
        return l.level == VISION_LOG_LEVEL_ERROR && l.unit == k_unit && l.function == function;
    });
}

unsigned led() {
    VPHeartbeatFrame frame{};
    vision_get_hearbeat(&frame);
    return frame.device.details.bottom_flash_state;
}

struct polled {
    int result;
    bytes payload;
    MsgExtra extra;
};

polled poll_status(MsgType type) {
    bytes room(8192);
    MsgExtra extra{static_cast<NodeID>(77), static_cast<NodeID>(78), 79, 80};
    const int result = vision_recv_status(type, room.data(), 0, &extra);
    room.resize(result > 0 ? static_cast<size_t>(result) : 0);
    return {result, room, extra};
}

} // namespace

TEST(Api, SendsThePayloadOfTheLargestSizeWhole) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    const bytes payload = bus::pattern(8192);
    for (const sender &s : senders()) {
        ASSERT_EQ(s.send(payload.data(), 8192), 0) << s.name;
        const std::optional<bytes> got = node.other(3).receive();
        ASSERT_TRUE(got) << s.name;
        EXPECT_EQ(got->size(), 8208U) << s.name;
        EXPECT_EQ(bus::word_at(*got, 4), 8192U) << s.name;
        EXPECT_EQ(bus::payload_of(*got), payload) << s.name;
    }
}

TEST(Api, RefusesALargerPayload) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    const bytes payload(8193);
    for (const sender &s : senders()) {
        for (const int length : {8193, 65535, 65536, INT_MAX}) {
            logs::clear();
            EXPECT_EQ(s.send(payload.data(), length), -1) << s.name << ' ' << length;
            EXPECT_LOGGED(ERROR, k_unit, s.name, k_too_long, "max msg len 8192\n");
        }
    }
    ASSERT_TRUE(node.flush());
    EXPECT_TRUE(node.other(3).silent());
}

TEST(Api, RefusesANegativeLength) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    for (const sender &s : senders()) {
        for (const int length : {-1, -16, -65536, INT_MIN}) {
            logs::clear();
            EXPECT_EQ(s.send("abc", length), -1) << s.name << ' ' << length;
            EXPECT_TRUE(logged_at_error_by(s.name)) << s.name;
        }
    }
    ASSERT_TRUE(node.flush());
    EXPECT_TRUE(node.other(3).silent());
}

TEST(Api, RefusesNoPayloadWithALength) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    for (const sender &s : senders()) {
        logs::clear();
        EXPECT_EQ(s.send(nullptr, 1), -1) << s.name;
        EXPECT_TRUE(logged_at_error_by(s.name)) << s.name;
    }
    ASSERT_TRUE(node.flush());
    EXPECT_TRUE(node.other(3).silent());
}

TEST(Api, SendsNoPayloadWithoutALength) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    for (const sender &s : senders()) {
        EXPECT_EQ(s.send(nullptr, 0), 0) << s.name;
        const std::optional<bytes> got = node.other(3).receive();
        ASSERT_TRUE(got) << s.name;
        EXPECT_EQ(got->size(), 16U) << s.name;
    }
}

TEST(Api, RefusesANodeThatIsNotActive) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3, 127}));
    nmapping_set_stat(3, 0);
    nmapping_set_stat(127, 0);
    const auto expect_refused = [](int result, const char *function, const char *line) {
        EXPECT_EQ(result, -1) << function;
        EXPECT_LOGGED(ERROR, k_unit, function, k_unreachable, line);
    };
    constexpr char three[] = "dst node 3, route by next_hop node_id 3 inactived, may be unreachable\n";
    constexpr char app[] = "dst node 64001, route by next_hop node_id 127 inactived, may be unreachable\n";
    constexpr char proxy[] = "dst node 127, route by next_hop node_id 127 inactived, may be unreachable\n";
    expect_refused(vision_send_msg(NODE_VIO, "x", 1), "vision_send_msg", three);
    expect_refused(vision_send_msg(NODE_APP, "x", 1), "vision_send_msg", app);
    expect_refused(vision_send_status(NODE_VIO, "x", 1), "vision_send_status", three);
    expect_refused(vision_send_status(PROXY_NODE_ID, "x", 1), "vision_send_status", proxy);
    expect_refused(vxmsg_send_general(3, 1, "x", 1), "vxmsg_send_general", three);
    expect_refused(vxmsg_send_general(64001, 1, "x", 1), "vxmsg_send_general", app);
    ASSERT_TRUE(node.flush());
    EXPECT_TRUE(node.other(3).silent());
    EXPECT_TRUE(node.other(127).silent());
    EXPECT_EQ(logs::count("dst node (%s, %u), inactived\n"), 0U); // nothing was queued
}

TEST(Api, TakesOnlyAStatOfOneForActive) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    nmapping_set_stat(3, 2);
    EXPECT_EQ(vision_send_msg(NODE_VIO, "x", 1), -1);
    EXPECT_EQ(vxmsg_send_general(3, 1, "x", 1), -1);
}

TEST(Api, LooksAtTheNextHopBeforeTheLength) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({}));
    for (const sender &s : senders()) {
        if (s.checks_next_hop) {
            EXPECT_EQ(s.send(nullptr, 8193), -1) << s.name;
        }
    }
    EXPECT_EQ(logs::count(k_too_long), 0U);
    EXPECT_EQ(logs::count(k_unreachable), 3U);
}

TEST(Api, SendsTheHeartbeatToTheProxyWhateverItsState) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({127}));
    nmapping_set_stat(127, 0);
    const HeartBeatPair pair = {LED, 5};
    EXPECT_EQ(vision_set_hearbeat(&pair, 1), 0);
    EXPECT_EQ(node.other(127).receive(), message({4, 9, 127}, bus::encoded({{LED, 5}})));
    EXPECT_EQ(led(), 5U);
}

TEST(Api, SetsTheHeartbeatAlsoWhenNobodyKnowsTheProxy) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({}));
    const HeartBeatPair pair = {LED, 6};
    EXPECT_EQ(vision_set_hearbeat(&pair, 1), 0);
    EXPECT_EQ(led(), 6U);
}

TEST(Api, SendsAsManyHeartbeatPairsAsFitOneMessage) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({127}));
    std::vector<HeartBeatPair> pairs(1024, {VIO_MODE, 1});
    pairs.back() = {LED, 4};
    EXPECT_EQ(vision_set_hearbeat(pairs.data(), 1024), 0);
    const std::optional<bytes> got = node.other(127).receive();
    ASSERT_TRUE(got);
    EXPECT_EQ(got->size(), 8208U);
    EXPECT_EQ(led(), 4U);
}

TEST(Api, RefusesMoreHeartbeatPairsBeforeAnythingIsApplied) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({127}));
    const std::vector<HeartBeatPair> pairs(1025, {LED, 7});
    EXPECT_EQ(vision_set_hearbeat(pairs.data(), 1025), -1);
    EXPECT_EQ(vision_set_hearbeat(pairs.data(), INT_MAX), -1);
    EXPECT_LOGGED(ERROR, k_unit, "vision_set_hearbeat", k_too_long, "max msg len 8192\n");
    EXPECT_EQ(led(), 0U);
    EXPECT_TRUE(node.other(127).silent());
}

TEST(Api, RefusesHeartbeatPairsThatAreNotThere) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({127}));
    const HeartBeatPair pair = {LED, 7};
    EXPECT_EQ(vision_set_hearbeat(&pair, -1), -1);
    EXPECT_EQ(vision_set_hearbeat(&pair, INT_MIN), -1);
    EXPECT_EQ(vision_set_hearbeat(nullptr, 1), -1);
    EXPECT_EQ(led(), 0U);
    EXPECT_TRUE(node.other(127).silent());
}

TEST(Api, GivesTheWholeHeartbeatFrame) {
    VPHeartbeatFrame frame;
    memset(&frame, 0xEE, sizeof frame);
    EXPECT_EQ(vision_get_hearbeat(&frame), 0);
    bytes image(sizeof frame);
    memcpy(image.data(), &frame, sizeof frame);
    bytes expected(56, 0);
    expected[0] = 0x01;
    expected[2] = 0x7E;
    expected[4] = 0x08;
    EXPECT_EQ(image, expected);
}

TEST(Api, SendHeartbeatDoesNothing) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3, 127}));
    logs::clear();
    vision_send_heartbeat();
    EXPECT_TRUE(logs::all().empty());
    ASSERT_TRUE(node.flush());
    EXPECT_TRUE(node.other(3).silent());
    EXPECT_TRUE(node.other(127).silent());
}

TEST(RecvStatus, WantsAPlaceForWhatItLearns) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    node.send(message({0, 3, 5}, {6, 0, 1}));
    ASSERT_TRUE(node.settle());
    logs::clear();
    uint8_t room[8192] = {0xEE};
    EXPECT_EQ(vision_recv_status(MSG_DETECTION_OBJECTS, room, sizeof room, nullptr), -1);
    EXPECT_EQ(room[0], 0xEE);
    EXPECT_EQ(logs::count("GET msg type %d len %u\n"), 0U); // the queue was not searched
    MsgExtra extra{};
    EXPECT_EQ(vision_recv_status(MSG_DETECTION_OBJECTS, nullptr, sizeof room, &extra), -1);
}

TEST(RecvStatus, GivesTheSameMessageAgainUntilANewerComes) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    node.send(message({0, 3, 5}, {6, 0, 1, 2, 3}));
    ASSERT_TRUE(node.settle());
    const polled first = poll_status(MSG_DETECTION_OBJECTS);
    EXPECT_EQ(first.result, 5);
    EXPECT_EQ(first.payload, (bytes{6, 0, 1, 2, 3}));
    const polled again = poll_status(MSG_DETECTION_OBJECTS);
    EXPECT_EQ(again.payload, first.payload);
    EXPECT_EQ(again.extra.recv_time, first.extra.recv_time);
    EXPECT_EQ(again.extra.src, NODE_VIO);
    node.send(message({0, 4, 5}, {6, 0, 9}));
    ASSERT_TRUE(node.settle());
    const polled newer = poll_status(MSG_DETECTION_OBJECTS);
    EXPECT_EQ(newer.payload, (bytes{6, 0, 9}));
    EXPECT_EQ(newer.extra.src, NODE_DPU);
    EXPECT_EQ(newer.extra.len, 3);
}

TEST(RecvStatus, KeepsTypesApart) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    node.send(message({0, 3, 5}, {6, 0, 0x66}));
    node.send(message({0, 3, 5}, {7, 0, 0x77}));
    node.send(message({0, 3, 5}, {6, 1, 0x99}));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(poll_status(MSG_DETECTION_OBJECTS).payload, (bytes{6, 0, 0x66}));
    EXPECT_EQ(poll_status(MSG_TRACK_OBJECTS).payload, (bytes{7, 0, 0x77}));
    EXPECT_EQ(poll_status(static_cast<MsgType>(0x0106)).payload, (bytes{6, 1, 0x99}));
    // Only the low 16 bits of a type are looked at.
    EXPECT_EQ(poll_status(static_cast<MsgType>(0xABCD0007)).payload, (bytes{7, 0, 0x77}));
}

TEST(RecvStatus, OfATypeThatNeverCameIsNothing) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    const polled got = poll_status(MSG_APP_CMD);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.extra.len, 0);
}

TEST(Callback, MayCallEveryFunctionButDeinit) {
    node_under_test node{5};
    static int result;
    static int sent;
    result = -7;
    sent = -7;
    ASSERT_TRUE(node.join({3}, [](void *, MsgExtra *) {
        uint8_t room[8192];
        MsgExtra extra{};
        result = vision_recv_status(MSG_DETECTION_OBJECTS, room, sizeof room, &extra);
        const HeartBeatPair pair = {LED, 1};
        VPHeartbeatFrame frame{};
        sent = vision_send_msg(NODE_VIO, "direct", 6) | vxmsg_send_general(3, 1, "queued", 6) |
               vision_brocast_msg("broadcast", 9) | vision_set_hearbeat(&pair, 1) |
               vision_get_hearbeat(&frame) | vision_send_status(NODE_VIO, "\x06\0", 2) |
               vision_broadcast_status("\x07\0", 2);
    }));
    node.send(message({0, 3, 5}, {6, 0, 1}));
    node.send(message({1, 3, 5}, {}));
    // The direct ones leave at once, the queued ones after the callback.
    EXPECT_EQ(node.other(3).receive(), message({1, 5, 3}, bus::text("direct")));
    EXPECT_EQ(node.other(3).receive(), message({0, 5, 3}, {6, 0}));
    for (const char *words : {"queued", "broadcast"}) {
        EXPECT_EQ(node.other(3).receive(), message({1, 5, 3}, bus::text(words)));
    }
    EXPECT_EQ(node.other(3).receive(), message({0, 5, 3}, {7, 0}));
    node.stop();
    EXPECT_EQ(result, 3);
    EXPECT_EQ(sent, 0);
}

TEST(Api, TellsAnInactiveNodeFromOneThatIsNone) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({127}));
    // An id that no 16 bits hold has no next hop at all: it must not come out as node 3.
    nmapping_set_stat(3, 1);
    EXPECT_EQ(vision_send_msg(static_cast<NodeID>(0x10003), "x", 1), -1);
    EXPECT_EQ(vision_send_status(static_cast<NodeID>(0x10003), "x", 1), -1);
    EXPECT_TRUE(logged_at_error_by("vision_send_msg"));
    EXPECT_TRUE(logged_at_error_by("vision_send_status"));
}
