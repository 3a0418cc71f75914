// The receive queue: the newest message per key, read without being taken.
#include "io_pool.h"

#include "log_lines.h"
#include "pool_probe.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using pool_probe::answer;
using pool_probe::ask;
using pool_probe::bytes;
using pool_probe::matched;
using pool_probe::message;
using pool_probe::pair_of_keys;
using pool_probe::payload;
using pool_probe::queued_keys;
using pool_probe::status;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr char k_another[] = "WARN src/io_pool io_pool_rx_put: alloc another one\n";

class ReceiveQueue : public pool_probe::Pool {
protected:
    static void put(const message &m) { ASSERT_EQ(io_pool_rx_put(m), 0); }

    /// Fills the queue with 1025 keys from 0 on.
    static void fill() {
        for (unsigned key = 0; key < 1025; ++key) {
            put(status(key, 4));
        }
    }
};

/// The queues with a match function that finds the first message of the queue whatever its key.
class ReceiveQueueOfAnyKey : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(io_pool_init(pool_probe::any_key), 0); }
    void TearDown() override { io_pool_deinit(); }
};

} // namespace

TEST_F(ReceiveQueue, ReturnsPayloadLengthAndHeader) {
    message m(127, 40000, payload(6, 10, 0x21));
    m.block()[2] = 0x81;
    for (size_t i = 10; i < 16; ++i) {
        m.block()[i] = static_cast<uint8_t>(0xA0 + i);
    }
    put(m);
    const answer a = ask(6);
    EXPECT_EQ(a.result, 10);
    EXPECT_EQ(a.len, 10);
    EXPECT_EQ(a.payload, payload(6, 10, 0x21));
    EXPECT_EQ(memcmp(&a.head, m.block().data(), 16), 0) << "all 16 bytes";
}

TEST_F(ReceiveQueue, ReturnsTheSameMessageAgain) {
    put(status(6, 10));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(ask(6).payload, payload(6, 10));
    }
}

TEST_F(ReceiveQueue, HasNothingForAnAbsentKey) {
    put(status(6, 10));
    const answer none = ask(7);
    EXPECT_EQ(none.result, 0);
    EXPECT_EQ(none.len, 0);
    EXPECT_EQ(none.head.magic, 0xEEEE) << "the header is left alone";
}

TEST_F(ReceiveQueue, ReturnsMessagesOfEverySize) {
    for (const size_t size : {2U, 3U, 4080U, 8191U, 8192U}) {
        put(status(static_cast<unsigned>(size), size));
        EXPECT_EQ(ask(static_cast<unsigned>(size)).payload, payload(static_cast<unsigned>(size), size));
    }
}

TEST_F(ReceiveQueue, KeepsACopyAndNotTheCallersMessage) {
    message m = status(6, 10);
    put(m);
    m.block().assign(m.block().size(), 0xFF);
    EXPECT_EQ(ask(6).payload, payload(6, 10));
}

TEST_F(ReceiveQueue, KeepsOneMessagePerKeyInTheOrderOfTheFirst) {
    put(status(6, 10));
    put(status(7, 10));
    put(status(8, 10));
    put(status(6, 10, 0x11));
    EXPECT_THAT(queued_keys(), ElementsAre(6U, 7U, 8U));
    EXPECT_EQ(ask(6).payload, payload(6, 10, 0x11));
}

TEST_F(ReceiveQueue, OverwritesWithTheNewHeaderToo) {
    put(message(3, 5, payload(6, 10)));
    put(message(4, 65280, payload(6, 8)));
    const answer a = ask(6);
    EXPECT_EQ(a.head.src, 4);
    EXPECT_EQ(a.head.dst, 65280);
    EXPECT_EQ(a.head.data_length, 8);
}

TEST_F(ReceiveQueue, KeepsThePlaceWithAShorterMessageAndGivesItUpForALonger) {
    put(status(6, 20));
    put(status(7, 20));
    put(status(6, 10, 0x11));
    EXPECT_THAT(queued_keys(), ElementsAre(6U, 7U));
    EXPECT_EQ(ask(6).payload, payload(6, 10, 0x11));
    EXPECT_THAT(logs::lines_of("alloc another one\n"), IsEmpty());
    put(status(6, 20, 0x22)); // the room would do, the length of what is queued decides
    EXPECT_THAT(queued_keys(), ElementsAre(7U, 6U));
    EXPECT_EQ(ask(6).payload, payload(6, 20, 0x22));
    EXPECT_THAT(logs::lines_of("alloc another one\n"), ElementsAre(k_another));
}

TEST_F(ReceiveQueue, GivesUpThePlaceForOneByteMore) {
    put(status(6, 10));
    put(status(7, 10));
    put(status(6, 11));
    EXPECT_THAT(queued_keys(), ElementsAre(7U, 6U));
    EXPECT_THAT(logs::lines_of("alloc another one\n"), ElementsAre(k_another));
}

TEST_F(ReceiveQueue, ShowsTheNewcomerFirstAndTheQueuedMessageSecond) {
    put(status(6, 10));
    put(status(7, 10));
    put(status(8, 10));
    matched().clear();
    put(status(7, 10));
    EXPECT_THAT(matched(), ElementsAre(pair_of_keys{7, 6}, pair_of_keys{7, 7})) << "stops at the match";
    matched().clear();
    EXPECT_EQ(ask(8).len, 10);
    EXPECT_THAT(matched(), ElementsAre(pair_of_keys{8, 6}, pair_of_keys{8, 7}, pair_of_keys{8, 8}));
}

TEST_F(ReceiveQueue, AsksNobodyWhenItIsEmpty) {
    matched().clear();
    put(status(6, 10));
    EXPECT_THAT(matched(), IsEmpty());
}

TEST_F(ReceiveQueue, RefusesASenderWithoutPlaceInTheNodeTable) {
    for (const unsigned src : {128U, 129U, 64001U, 65535U}) {
        logs::clear();
        EXPECT_EQ(io_pool_rx_put(message(src, 5, payload(6, 10))), -1) << src;
        EXPECT_THAT(
            logs::lines_of("msg src %u >= %u"),
            ElementsAre("ERROR src/io_pool io_pool_rx_put: msg src " + std::to_string(src) + " >= 128"));
    }
    EXPECT_THAT(queued_keys(), IsEmpty());
    put(message(127, 5, payload(6, 10)));
    put(message(0, 5, payload(7, 10)));
    EXPECT_THAT(queued_keys(), ElementsAre(6U, 7U));
}

TEST_F(ReceiveQueue, HoldsAtMost1025AndDropsTheOldest) {
    fill();
    EXPECT_THAT(logs::lines(), IsEmpty());
    for (unsigned key = 1025; key < 1030; ++key) {
        put(status(key, 4));
    }
    EXPECT_THAT(logs::lines(),
                Each("WARN src/io_pool io_pool_rx_put: rxq overstocked, drop the oldest one\n"));
    EXPECT_EQ(logs::count("rxq overstocked, drop the oldest one\n"), 5U);
    const std::vector<unsigned> keys = queued_keys();
    ASSERT_THAT(keys, SizeIs(1025));
    for (unsigned i = 0; i < 1025; ++i) {
        EXPECT_EQ(keys[i], i + 5);
    }
}

TEST_F(ReceiveQueue, OfManyMessagesLooksForNoKeyAndMayHoldItTwice) {
    fill();
    matched().clear();
    put(status(500, 4, 0x11));
    EXPECT_THAT(matched(), IsEmpty());
    EXPECT_EQ(logs::count("rxq overstocked, drop the oldest one\n"), 1U);
    const std::vector<unsigned> keys = queued_keys();
    EXPECT_THAT(keys, SizeIs(1025));
    EXPECT_EQ(std::count(keys.begin(), keys.end(), 500U), 2);
    EXPECT_EQ(keys.back(), 500U);
    EXPECT_EQ(ask(500).payload, payload(500, 4)) << "the one nearer to the head is found";
}

TEST_F(ReceiveQueue, Of1024MessagesStillOverwrites) {
    for (unsigned key = 0; key < 1024; ++key) {
        put(status(key, 4));
    }
    put(status(0, 4, 0x11));
    EXPECT_EQ(logs::count("rxq overstocked, drop the oldest one\n"), 0U);
    EXPECT_THAT(queued_keys(), SizeIs(1024));
    EXPECT_EQ(ask(0).payload, payload(0, 4, 0x11));
}

TEST_F(ReceiveQueue, RemarksUponMessagesOf4097BytesAndMore) {
    put(status(6, 4080));
    EXPECT_THAT(logs::lines(), IsEmpty());
    put(status(7, 4081));
    EXPECT_THAT(logs::lines(), ElementsAre("WARN src/io_pool list_node_dup: msg too long 4097\n"));
    logs::clear();
    put(status(7, 4081, 0x11));
    EXPECT_EQ(logs::count("msg too long %u\n"), 0U) << "an overwrite in place makes no copy";
}

TEST_F(ReceiveQueue, RefusesAPayloadThatNoReaderHasRoomFor) {
    put(status(6, 8192));
    logs::clear();
    for (const unsigned size : {8193U, 65535U}) {
        EXPECT_EQ(io_pool_rx_put(status(6, size, 0x11)), -1) << size;
    }
    EXPECT_THAT(logs::lines(), ElementsAre("ERROR src/io_pool io_pool_rx_put: max msg len 8192\n",
                                           "ERROR src/io_pool io_pool_rx_put: max msg len 8192\n"));
    EXPECT_EQ(ask(6).payload, payload(6, 8192));
}

TEST_F(ReceiveQueue, TakesMissingKeyBytesForZero) {
    put(status(0x0005, 1));
    put(status(0, 0)); // no byte at all
    EXPECT_THAT(queued_keys(), ElementsAre(5U, 0U));
    EXPECT_EQ(ask(5).payload, payload(5, 1));
    const answer empty = ask(0);
    EXPECT_EQ(empty.result, 0);
    EXPECT_EQ(empty.len, 0);
    EXPECT_EQ(empty.head.magic, VX_MSG_MAGIC) << "the empty message was found";
}

TEST_F(ReceiveQueue, ShowsAShortNewcomerWithZerosToo) {
    put(status(5, 4));
    put(status(0, 4));
    matched().clear();
    put(message(4, 5, {5}));
    EXPECT_THAT(matched(), ElementsAre(pair_of_keys{5, 5}));
    EXPECT_EQ(ask(5).payload, bytes{5});
    matched().clear();
    put(message(4, 5, {}));
    EXPECT_THAT(matched(), ElementsAre(pair_of_keys{0, 5}, pair_of_keys{0, 0}));
    EXPECT_EQ(ask(0).head.data_length, 0);
    EXPECT_THAT(queued_keys(), ElementsAre(5U, 0U));
}

TEST_F(ReceiveQueue, OverwritesAShortMessageInPlace) {
    put(message(3, 5, {5}));
    put(message(3, 5, {}));
    put(message(4, 5, {5}));
    put(message(4, 5, {}));
    EXPECT_THAT(queued_keys(), ElementsAre(5U, 0U));
    EXPECT_EQ(ask(5).head.src, 4);
    EXPECT_EQ(ask(0).head.src, 4);
}

TEST_F(ReceiveQueueOfAnyKey, ClearsKeyBytesThatAShorterMessageLacks) {
    ASSERT_EQ(io_pool_rx_put(status(0x7766, 4)), 0);
    struct {
        bytes payload;
        unsigned key;
    } const rows[] = {{{0x55, 0x44}, 0x4455}, {{0x33}, 0x0033}, {{}, 0x0000}};
    for (const auto &row : rows) {
        ASSERT_EQ(io_pool_rx_put(message(3, 5, row.payload)), 0);
        matched().clear();
        EXPECT_EQ(ask(0x1234).payload, row.payload);
        EXPECT_THAT(matched(), ElementsAre(pair_of_keys{0x1234, row.key}));
    }
}
