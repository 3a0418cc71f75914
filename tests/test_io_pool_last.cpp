// The last message of a session: nothing comes behind it until the next start.
#include "io_pool.h"

#include "log_lines.h"
#include "node_mapping.h"
#include "pool_probe.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

using pool_probe::bytes;
using pool_probe::message;
using pool_probe::payload;
using pool_probe::same_key;
using pool_probe::status;
using pool_probe::take_all;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class LastMessage : public pool_probe::Pool {};

} // namespace

TEST_F(LastMessage, IsSentBehindAllOthers) {
    EXPECT_EQ(io_pool_tx_put(status(1, 10)), 0);
    io_pool_tx_put_last(status(2, 10));
    EXPECT_EQ(take_all(), (std::vector<bytes>{status(1, 10).block(), status(2, 10).block()}));
    EXPECT_THAT(logs::lines(), IsEmpty());
}

TEST_F(LastMessage, IsFollowedByNothing) {
    io_pool_tx_put_last(status(2, 10));
    EXPECT_EQ(io_pool_tx_put(message(3, 64001, payload(3, 10))), -1);
    EXPECT_THAT(logs::lines(), ElementsAre("ERROR src/io_pool io_pool_tx_put: msg dst 64001 >= 128"));
    EXPECT_EQ(take_all(), std::vector<bytes>{status(2, 10).block()});
    EXPECT_EQ(io_pool_tx_put(status(3, 10)), -1) << "also when it has been taken";
}

TEST_F(LastMessage, CannotBePushedOutOfAFullQueue) {
    nmapping_set_self(9);
    for (unsigned i = 0; i < 1025; ++i) {
        ASSERT_EQ(io_pool_tx_put(status(i, 4)), 0);
    }
    io_pool_tx_put_last(status(2000, 4));
    EXPECT_THAT(
        logs::lines(),
        ElementsAre("WARN src/io_pool io_pool_tx_put: node 9, rxq overstocked, drop the oldest one\n"));
    EXPECT_EQ(io_pool_tx_put(status(2001, 4)), -1);
    const std::vector<bytes> left = take_all();
    ASSERT_THAT(left, SizeIs(1025));
    EXPECT_EQ(left.front(), status(1, 4).block());
    EXPECT_EQ(left.back(), status(2000, 4).block());
}

TEST_F(LastMessage, LeavesTheReceiveQueueOpen) {
    io_pool_tx_put_last(status(2, 10));
    EXPECT_EQ(io_pool_rx_put(status(6, 10)), 0);
    EXPECT_EQ(pool_probe::ask(6).len, 10);
}

TEST_F(LastMessage, IsForgottenByTheNextStart) {
    io_pool_tx_put_last(status(2, 10));
    io_pool_deinit();
    ASSERT_EQ(io_pool_init(same_key), 0);
    EXPECT_EQ(io_pool_tx_put(status(3, 10)), 0);
    EXPECT_EQ(take_all(), std::vector<bytes>{status(3, 10).block()});
}

TEST(LastMessageWithoutQueues, IsDropped) {
    io_pool_tx_put_last(status(2, 10));
    ASSERT_EQ(io_pool_init(same_key), 0);
    EXPECT_THAT(take_all(), IsEmpty());
    EXPECT_EQ(io_pool_tx_put(status(3, 10)), 0) << "and closes nothing";
    io_pool_deinit();
}
