// Datagrams that say something else than what has arrived.
#include "expect_log.h"
#include "node_mapping.h"
#include "peer.h"

#include <gtest/gtest.h>

namespace {

using bus::bytes;
using bus::message;
using bus::message_saying;
using bus::node_under_test;
using bus::record_of;

constexpr size_t k_most_read = 8192;    // [bytes] of a datagram, header included
constexpr size_t k_most_payload = 8176; // [bytes] of it behind the header

struct polled {
    int result;
    bytes payload;
    int len;
};

polled poll_status(unsigned key) {
    bytes room(8192, 0xEE);
    MsgExtra extra{};
    extra.len = -7;
    const int result = vision_recv_status(static_cast<MsgType>(key), room.data(), 8192, &extra);
    room.resize(result > 0 ? static_cast<size_t>(result) : 0);
    return {result, room, extra.len};
}

bytes status(unsigned key, size_t size) {
    bytes payload = bus::pattern(size);
    payload.at(0) = static_cast<uint8_t>(key);
    payload.at(1) = static_cast<uint8_t>(key >> 8);
    return payload;
}

VPHeartbeatFrame frame_now() {
    VPHeartbeatFrame frame{};
    vision_get_hearbeat(&frame);
    return frame;
}

/// How many lines are at this level.
size_t lines_at(int level) {
    size_t found = 0;
    for (const logs::line &l : logs::all()) {
        found += l.level == level ? 1U : 0U;
    }
    return found;
}

/// Heartbeat pairs that write one field over and over; the last whole one shows how many were applied.
bytes counting_pairs(int pairs) {
    bytes made;
    for (int i = 1; i <= pairs; ++i) {
        made = bus::joined(std::move(made), bus::encoded({{VIO_MODE, i % 251}}));
    }
    return made;
}

} // namespace

TEST(ShortDatagram, IsDroppedWithAWarning) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    logs::clear();
    const bytes whole = message({1, 3, 5}, {});
    for (size_t size = 0; size < 16; ++size) {
        node.send({whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)});
    }
    ASSERT_TRUE(node.settle());
    EXPECT_TRUE(node_under_test::all_heard().empty());
    const std::vector<logs::line> lines = logs::all();
    ASSERT_EQ(lines.size(), 16U);
    for (size_t size = 0; size < 16; ++size) {
        EXPECT_EQ(lines[size].level, VISION_LOG_LEVEL_WARN);
        EXPECT_EQ(lines[size].unit, logs::k_thread_io);
        EXPECT_EQ(lines[size].function, "thrio_proc_message");
        EXPECT_NE(lines[size].text.find(std::to_string(size)), std::string::npos) << lines[size].text;
    }
}

TEST(StatusDatagram, SayingMoreThanArrivedIsDroppedWithAWarning) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    logs::clear();
    node.send(message_saying(11, {0, 3, 5}, status(6, 10)));
    node.send(message_saying(8192, {0, 3, 5}, status(7, 8175))); // one byte short of the read limit
    node.send(message_saying(2, {0, 3, 5}, {}));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(lines_at(VISION_LOG_LEVEL_WARN), 3U);
    EXPECT_EQ(logs::all()[0].unit, logs::k_thread_io);
    EXPECT_EQ(logs::all()[0].function, "thrio_proc_message");
    for (const unsigned key : {0U, 6U, 7U}) {
        EXPECT_EQ(poll_status(key).result, 0) << key;
    }
}

TEST(StatusDatagram, SayingMoreThanAnyMessageHasIsDroppedWithAWarning) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    logs::clear();
    node.send(message_saying(8193, {0, 3, 5}, status(6, 10)));
    node.send(message_saying(8193, {0, 3, 5}, status(6, 8193))); // cut at the read limit
    node.send(message_saying(65535, {0, 3, 5}, status(6, 8176)));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(lines_at(VISION_LOG_LEVEL_WARN), 3U);
    EXPECT_EQ(poll_status(6).result, 0);
}

TEST(StatusDatagram, CutAtTheReadLimitIsKeptWithZerosForWhatIsMissing) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    for (const size_t size : {size_t{8177}, size_t{8185}, size_t{8192}}) {
        const bytes sent = status(6, size);
        node.send(message({0, 3, 5}, sent));
        ASSERT_TRUE(node.settle());
        bytes expected = sent;
        std::fill(expected.begin() + k_most_payload, expected.end(), uint8_t{0});
        const polled got = poll_status(6);
        EXPECT_EQ(got.result, static_cast<int>(size));
        EXPECT_EQ(got.len, static_cast<int>(size));
        EXPECT_EQ(got.payload, expected) << size;
    }
}

TEST(StatusDatagram, AtTheReadLimitIsWhole) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    const bytes sent = status(6, k_most_payload);
    node.send(message({0, 3, 5}, sent));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(poll_status(6).payload, sent);
}

TEST(StatusDatagram, SayingLessThanArrivedKeepsWhatItSays) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    const bytes sent = status(6, 40);
    node.send(message_saying(10, {0, 3, 5}, sent));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(poll_status(6).payload, bytes(sent.begin(), sent.begin() + 10));
}

TEST(StatusDatagram, ShorterThanItsKeyHasTheMissingKeyBytesZero) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    node.send(message({0, 3, 5}, {0xE0})); // as far as it goes, 224
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(poll_status(MSG_APP_CMD).payload, bytes{0xE0});
    node.send(message({0, 3, 5}, {0xE0, 0x00, 0x55}));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(poll_status(MSG_APP_CMD).payload, (bytes{0xE0, 0x00, 0x55})); // the same key: replaced
}

TEST(StatusDatagram, WithoutAPayloadHasTheKeyZero) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    node.send(message({0, 3, 5}, {0, 0, 9, 9}));
    node.send(message({0, 3, 5}));
    ASSERT_TRUE(node.settle());
    const polled got = poll_status(MSG_VISION_STATE);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.len, 0);
}

TEST(CallbackDatagram, IsHandedOverWhateverItsLengthSays) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    const bytes payload = bus::pattern(4);
    for (const unsigned said : {0U, 3U, 5U, 500U, 65535U}) {
        node_under_test::forget_heard();
        node.send(message_saying(said, {1, 3, 5}, payload));
        ASSERT_TRUE(node_under_test::wait_heard(1)) << said;
        EXPECT_EQ(node_under_test::all_heard()[0].payload, payload) << said;
        EXPECT_EQ(node_under_test::all_heard()[0].extra.len, 20) << said;
    }
}

TEST(CallbackDatagram, LongerThanTheReadLimitArrivesCut) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    const bytes payload = bus::pattern(8192);
    node.send(message({1, 3, 5}, payload));
    ASSERT_TRUE(node_under_test::wait_heard(1));
    EXPECT_EQ(node_under_test::all_heard()[0].extra.len, static_cast<int>(k_most_read));
    EXPECT_EQ(node_under_test::all_heard()[0].payload,
              bytes(payload.begin(), payload.begin() + k_most_payload));
}

TEST(ManagerDatagram, YieldsTheWholeRecordsThatArrived) {
    struct row {
        int said;
        size_t arrived; // [bytes] of the payload
        uint16_t taken;
    };
    const std::vector<bus::record> three = {record_of(10), record_of(11), record_of(12)};
    for (const row &r :
         {row{3, 4 + 3 * 38, 3}, row{3, 4 + 3 * 38 - 1, 2}, row{2, 4 + 3 * 38, 2}, row{32767, 4 + 3 * 38, 3},
          row{3, 4 + 38 + 37, 1}, row{3, 4, 0}, row{3, 3, 0}, row{3, 0, 0}, row{0, 4 + 3 * 38, 0},
          row{-1, 4 + 3 * 38, 0}, row{-32768, 4 + 3 * 38, 0}}) {
        node_under_test node{5};
        ASSERT_TRUE(node.join({}));
        for (const uint16_t id : bus::ids{10, 11, 12}) {
            nmapping_del(id);
        }
        bytes payload = bus::table_saying(r.said, three);
        payload.resize(r.arrived);
        for (const unsigned length : {0U, 65535U}) { // which plays no part
            node.send(message_saying(length, {2, 0, 5}, payload));
        }
        ASSERT_TRUE(node.settle());
        for (uint16_t i = 0; i < 3; ++i) {
            EXPECT_EQ(nmapping_get_stat(static_cast<uint16_t>(10 + i)), i < r.taken ? 1 : 0)
                << r.said << " said, " << r.arrived << " bytes, record " << i;
        }
    }
}

TEST(ManagerDatagram, CutAtTheReadLimitYieldsTheRecordsThatArrived) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    constexpr int fit = (8176 - 4) / 38;
    std::vector<bus::record> records(fit + 1, record_of(10));
    records[fit - 1] = record_of(11);
    records[fit] = record_of(12); // cut
    node.tell(bus::table(records));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(nmapping_get_stat(10), 1);
    EXPECT_EQ(nmapping_get_stat(11), 1);
    EXPECT_EQ(nmapping_get_stat(12), 0);
}

TEST(ManagerDatagram, SkipsRecordsOfNodesThatTheTableDoesNotHave) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    logs::clear();
    node.tell(
        bus::table({record_of(128), record_of(10), record_of(64001), record_of(65535), record_of(127)}));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(nmapping_get_stat(10), 1);
    EXPECT_EQ(nmapping_get_stat(127), 1);
    EXPECT_EQ(lines_at(VISION_LOG_LEVEL_WARN), 3U);
    const logs::line first = logs::all()[0];
    EXPECT_EQ(first.unit, logs::k_thread_io);
    EXPECT_EQ(first.function, "thrio_proc_message");
    EXPECT_NE(first.text.find("128"), std::string::npos);
}

TEST(ManagerDatagram, WithTextsThatHaveNoEndIsUsedUpToTheirLastPlace) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    node.tell(bus::table({{"0123456789abcdef", "192.168.1.10AAAA", 9010, 10, 1}}));
    ASSERT_TRUE(node.settle());
    // Its address is no address: the message goes nowhere, and nothing is read beyond the record.
    EXPECT_EQ(vision_send_msg(NODE_MAPPING_PLANNING, "x", 1), 0);
    EXPECT_EQ(vxmsg_send_general(10, 1, "x", 1), 0);
    ASSERT_TRUE(node.hold());
    EXPECT_EQ(vxmsg_send_general(10, 1, "x", 1), 0);
    nmapping_set_stat(10, 0);
    node_under_test::let_go();
    ASSERT_TRUE(node.flush());
    EXPECT_LOGGED(WARN, logs::k_thread_io, "on_write", "dst node (%s, %u), inactived\n",
                  "dst node (0123456789abcde, 10), inactived\n");
}

TEST(HeartbeatDatagram, AppliesThePairsThatArrived) {
    struct row {
        unsigned said;
        size_t arrived; // [bytes]
        unsigned applied;
    };
    for (const row &r :
         {row{24, 24, 3}, row{24, 17, 2}, row{24, 16, 2}, row{24, 15, 1}, row{24, 7, 0}, row{65535, 24, 3},
          row{16, 24, 2}, row{13, 13, 1}, row{7, 7, 0}, row{0, 24, 0}, row{8, 0, 0}}) {
        node_under_test node{5};
        ASSERT_TRUE(node.join({}));
        const HeartBeatPair none = {VIO_MODE, 0};
        EXPECT_EQ(vision_set_hearbeat(&none, 1), 0);
        bytes payload = counting_pairs(3);
        payload.resize(r.arrived);
        node.send(message_saying(r.said, {4, 127, 5}, payload));
        ASSERT_TRUE(node.settle());
        EXPECT_EQ(frame_now().core.details.vio_mode, r.applied) << r.said << " said, " << r.arrived;
    }
}

TEST(HeartbeatDatagram, CutAtTheReadLimitAppliesThePairsThatArrived) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    node.send(message({4, 127, 5}, counting_pairs(1024)));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(frame_now().core.details.vio_mode, 1022 % 251);
}

TEST(HeartbeatDatagram, CutOnItsWayIsPassedOnWithThePairsThatArrived) {
    node_under_test proxy{127};
    ASSERT_TRUE(proxy.join({5}));
    const bytes three = counting_pairs(3);
    proxy.send(message_saying(24, {4, 5, 127}, {three.begin(), three.begin() + 20}));
    std::optional<bytes> got = proxy.other(5).receive();
    ASSERT_TRUE(got);
    EXPECT_EQ(bus::word_at(*got, 4), 16U);
    EXPECT_EQ(bus::payload_of(*got), bytes(three.begin(), three.begin() + 16));
    EXPECT_EQ(frame_now().core.details.vio_mode, 2);

    const bytes many = counting_pairs(1024);
    proxy.send(message({4, 5, 127}, many));
    got = proxy.other(5).receive();
    ASSERT_TRUE(got);
    EXPECT_EQ(bus::word_at(*got, 4), k_most_payload);
    EXPECT_EQ(bus::payload_of(*got), bytes(many.begin(), many.begin() + k_most_payload));
}

TEST(HeartbeatDatagram, WithUnknownFieldsAppliesTheOthers) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    node.send(message({4, 127, 5}, bus::encoded({{73, 1}, {-1, 1}, {0x7FFFFFFF, 1}, {VIO_MODE, 9}})));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(frame_now().core.details.vio_mode, 9);
}
