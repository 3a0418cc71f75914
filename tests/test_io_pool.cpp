// The life of the queues, and the transmit queue. The receive queue is in test_io_pool_rx.cpp.
#include "io_pool.h"

#include "log_lines.h"
#include "node_mapping.h"
#include "pool_probe.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using pool_probe::ask;
using pool_probe::bytes;
using pool_probe::message;
using pool_probe::payload;
using pool_probe::queued_keys;
using pool_probe::same_key;
using pool_probe::status;
using pool_probe::take;
using pool_probe::take_all;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr char k_duplicated[] = "WARN src/io_pool io_pool_init: io_pool init duplicated\n";

void expect_both_queues_work() {
    EXPECT_THAT(queued_keys(), IsEmpty());
    EXPECT_THAT(take(), IsEmpty());
    const message m = status(6, 10);
    EXPECT_EQ(io_pool_rx_put(m), 0);
    EXPECT_EQ(ask(6).payload, payload(6, 10));
    EXPECT_EQ(io_pool_tx_put(m), 0);
    EXPECT_EQ(take(), m.block());
}

void expect_every_operation_is_refused() {
    logs::clear();
    EXPECT_EQ(io_pool_rx_put(message(3, 5, payload(6, 10))), -1);
    EXPECT_EQ(io_pool_tx_put(message(3, 64001, payload(6, 10))), -1);
    EXPECT_EQ(io_pool_tx_put(message(3, 5, {})), -1);
    EXPECT_THAT(logs::lines(), ElementsAre("ERROR src/io_pool io_pool_rx_put: msg src 3 >= 128",
                                           "ERROR src/io_pool io_pool_tx_put: msg dst 64001 >= 128",
                                           "ERROR src/io_pool io_pool_tx_put: msg dst 5 >= 128"));
    EXPECT_EQ(logs::count("msg src %u >= %u"), 1U);
    EXPECT_EQ(logs::count("msg dst %u >= %u"), 2U);
    EXPECT_THAT(take(), IsEmpty());
    const pool_probe::answer none = ask(6);
    EXPECT_EQ(none.result, 0);
    EXPECT_EQ(none.len, 0);
    EXPECT_EQ(none.head.magic, 0xEEEE) << "the header is left alone";
}

class TransmitQueue : public pool_probe::Pool {};

} // namespace

TEST(PoolLife, StartsSilentlyWithTwoEmptyQueues) {
    EXPECT_EQ(io_pool_init(same_key), 0);
    EXPECT_THAT(logs::lines(), IsEmpty());
    expect_both_queues_work();
    io_pool_deinit();
}

TEST(PoolLife, StartedTwiceSaysSoAndChangesNothing) {
    ASSERT_EQ(io_pool_init(same_key), 0);
    ASSERT_EQ(io_pool_rx_put(status(6, 10)), 0);
    ASSERT_EQ(io_pool_tx_put(status(7, 10)), 0);
    EXPECT_EQ(io_pool_init(pool_probe::any_key), 0);
    EXPECT_THAT(logs::lines(), ElementsAre(k_duplicated));
    EXPECT_EQ(logs::count("io_pool init duplicated\n"), 1U);
    EXPECT_EQ(ask(9).result, 0) << "the first match function stays";
    EXPECT_THAT(queued_keys(), ElementsAre(6U));
    EXPECT_THAT(take_all(), SizeIs(1));
    io_pool_deinit();
}

TEST(PoolLife, StartedAgainAfterAStopSaysSoAndHasTwoEmptyQueues) {
    ASSERT_EQ(io_pool_init(same_key), 0);
    for (int life = 0; life < 5; ++life) {
        EXPECT_EQ(io_pool_rx_put(status(6, 10)), 0);
        EXPECT_EQ(io_pool_tx_put(status(7, 10)), 0);
        io_pool_deinit();
        logs::clear();
        EXPECT_EQ(io_pool_init(same_key), 0);
        EXPECT_THAT(logs::lines(), ElementsAre(k_duplicated));
        expect_both_queues_work();
    }
    io_pool_deinit();
}

TEST(PoolLife, RefusesEverythingBeforeTheStart) {
    expect_every_operation_is_refused();
    ASSERT_EQ(io_pool_init(same_key), 0);
    expect_both_queues_work();
    io_pool_deinit();
}

TEST(PoolLife, RefusesEverythingAfterTheStop) {
    ASSERT_EQ(io_pool_init(same_key), 0);
    EXPECT_EQ(io_pool_rx_put(status(6, 10)), 0);
    EXPECT_EQ(io_pool_tx_put(status(6, 10)), 0);
    io_pool_deinit();
    expect_every_operation_is_refused();
}

TEST(PoolLife, MayBeStoppedBeforeTheStartAndTwice) {
    io_pool_deinit();
    EXPECT_EQ(io_pool_init(same_key), 0);
    EXPECT_THAT(logs::lines(), IsEmpty()) << "a stop before it leaves the first start the first";
    io_pool_deinit();
    io_pool_deinit();
    EXPECT_EQ(io_pool_init(same_key), 0);
    expect_both_queues_work();
    io_pool_deinit();
}

TEST(PoolLife, StopsSilently) {
    ASSERT_EQ(io_pool_init(same_key), 0);
    ASSERT_EQ(io_pool_rx_put(status(6, 10)), 0);
    io_pool_deinit();
    EXPECT_THAT(logs::lines(), IsEmpty());
}

TEST_F(TransmitQueue, GivesWholeMessagesInTheirOrder) {
    std::vector<bytes> put;
    for (const unsigned size : {0U, 1U, 2U, 3U, 100U, 4080U, 4081U, 8191U, 8192U}) {
        message m(size, 40000 + size, payload(size, size, static_cast<uint8_t>(size + 1)));
        for (size_t i = 10; i < 16; ++i) {
            m.block()[i] = static_cast<uint8_t>(0xA0 + i); // sequence and receive time travel as they are
        }
        m.block()[2] = 0x80;
        EXPECT_EQ(io_pool_tx_put(m), 0);
        put.push_back(m.block());
    }
    EXPECT_EQ(take_all(), put);
}

TEST_F(TransmitQueue, KeepsACopyAndNotTheCallersMessage) {
    message m = status(6, 10);
    const bytes before = m.block();
    EXPECT_EQ(io_pool_tx_put(m), 0);
    m.block().assign(m.block().size(), 0xFF);
    EXPECT_EQ(take(), before);
}

TEST_F(TransmitQueue, IsEmptyWhenAllIsTaken) {
    EXPECT_EQ(io_pool_tx_put(status(6, 10)), 0);
    EXPECT_THAT(take(), SizeIs(26));
    char untouched = 'u';
    int len = 77;
    EXPECT_EQ(io_pool_tx_get(&untouched, &len), 0);
    EXPECT_EQ(len, 0);
    EXPECT_EQ(untouched, 'u');
}

TEST_F(TransmitQueue, TakesEqualMessagesEachForItself) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(io_pool_tx_put(status(6, 10)), 0);
    }
    EXPECT_THAT(take_all(), SizeIs(3));
}

TEST_F(TransmitQueue, TakesAnyDestinationAndAnySource) {
    for (const unsigned id : {0U, 127U, 128U, 64001U, 64002U, 65280U, 65535U}) {
        EXPECT_EQ(io_pool_tx_put(message(id, id, payload(1, 2))), 0) << id;
    }
    EXPECT_THAT(take_all(), SizeIs(7));
    EXPECT_THAT(logs::lines(), IsEmpty());
}

TEST_F(TransmitQueue, HoldsAtMost1025AndDropsTheOldest) {
    nmapping_set_self(9);
    for (unsigned i = 0; i < 1025; ++i) {
        ASSERT_EQ(io_pool_tx_put(status(i, 4)), 0);
    }
    EXPECT_THAT(logs::lines(), IsEmpty());
    for (unsigned i = 1025; i < 1030; ++i) {
        EXPECT_EQ(io_pool_tx_put(status(i, 4)), 0);
        EXPECT_THAT(logs::lines(), SizeIs(i - 1024));
    }
    EXPECT_THAT(logs::lines(),
                Each("WARN src/io_pool io_pool_tx_put: node 9, rxq overstocked, drop the oldest one\n"));
    EXPECT_EQ(logs::count("node %u, rxq overstocked, drop the oldest one\n"), 5U);
    const std::vector<bytes> left = take_all();
    ASSERT_THAT(left, SizeIs(1025));
    for (unsigned i = 0; i < 1025; ++i) {
        EXPECT_EQ(left[i], status(i + 5, 4).block()) << i;
    }
}

TEST_F(TransmitQueue, HasRoomAgainAfterATake) {
    for (unsigned i = 0; i < 1025; ++i) {
        ASSERT_EQ(io_pool_tx_put(status(i, 4)), 0);
    }
    EXPECT_EQ(take(), status(0, 4).block());
    EXPECT_EQ(io_pool_tx_put(status(2000, 4)), 0);
    EXPECT_THAT(logs::lines(), IsEmpty());
    EXPECT_EQ(take(), status(1, 4).block());
}

TEST_F(TransmitQueue, RemarksUponMessagesOf4097BytesAndMore) {
    EXPECT_EQ(io_pool_tx_put(status(6, 4080)), 0);
    EXPECT_THAT(logs::lines(), IsEmpty());
    EXPECT_EQ(io_pool_tx_put(status(6, 4081)), 0);
    EXPECT_EQ(io_pool_tx_put(status(6, 8192)), 0);
    EXPECT_THAT(logs::lines(), ElementsAre("WARN src/io_pool list_node_dup: msg too long 4097\n",
                                           "WARN src/io_pool list_node_dup: msg too long 8208\n"));
    EXPECT_EQ(logs::count("msg too long %u\n"), 2U);
    EXPECT_THAT(take_all(), SizeIs(3));
}

TEST_F(TransmitQueue, RefusesAPayloadThatNoReaderHasRoomFor) {
    for (const unsigned size : {8193U, 20000U, 65535U}) {
        logs::clear();
        EXPECT_EQ(io_pool_tx_put(status(6, size)), -1);
        EXPECT_THAT(logs::lines(), ElementsAre("ERROR src/io_pool io_pool_tx_put: max msg len 8192\n"));
    }
    EXPECT_THAT(take_all(), IsEmpty());
}

TEST_F(TransmitQueue, IsNotTheReceiveQueue) {
    EXPECT_EQ(io_pool_tx_put(status(6, 10)), 0);
    EXPECT_EQ(ask(6).result, 0);
    EXPECT_EQ(io_pool_rx_put(status(7, 10)), 0);
    EXPECT_EQ(take_all(), std::vector<bytes>{status(6, 10).block()});
}
