// The locks of the queues. A look at the transmit queue takes one, which shows how often it is looked at.
#include "io_pool.h"

#include "lock_probe.h"
#include "log_lines.h"
#include "pool_probe.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

using pool_probe::message;
using pool_probe::status;
using pool_probe::take;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

size_t looks = 0; // locks taken by what was counted last

/// Does something and counts how often it takes a lock; before lock number `look`, `at` runs.
template <class Work>
auto counting(Work work, size_t look = 0, const std::function<void()> &at = {}) {
    lock_probe::watch locks;
    locks.before_lock = [&] {
        if (locks.taken.size() == look) {
            at();
        }
    };
    auto result = lock_probe::during(locks, work);
    looks = locks.taken.size();
    EXPECT_LE(locks.most_held, 1);
    return result;
}

void put_one() {
    ASSERT_EQ(io_pool_tx_put(status(6, 10)), 0);
}

class TransmitQueueLooks : public pool_probe::Pool {};

} // namespace

TEST_F(TransmitQueueLooks, Are128WhenItIsEmpty) {
    EXPECT_THAT(counting(take), IsEmpty());
    EXPECT_EQ(looks, 128U);
}

TEST_F(TransmitQueueLooks, AreOneWhenThereIsAMessage) {
    put_one();
    EXPECT_EQ(counting(take), status(6, 10).block());
    EXPECT_EQ(looks, 1U);
}

TEST_F(TransmitQueueLooks, FindAMessageThatComesBeforeTheLastOfThem) {
    EXPECT_EQ(counting(take, 128, put_one), status(6, 10).block());
    EXPECT_EQ(looks, 128U);
}

TEST_F(TransmitQueueLooks, EndWithTheFirstMessage) {
    EXPECT_EQ(counting(take, 50, put_one), status(6, 10).block());
    EXPECT_EQ(looks, 50U);
}

TEST_F(TransmitQueueLooks, AreNotTakenByASenderOnceTheLastMessageIsIn) {
    const auto refused = [] { return io_pool_tx_put(status(3, 10)); };
    io_pool_tx_put_last(status(2, 10));
    EXPECT_EQ(counting(refused), -1);
    const size_t while_leaving = looks;
    io_pool_deinit();
    EXPECT_EQ(counting(refused), -1);
    EXPECT_EQ(while_leaving, looks) << "no more locks than the log line of a refusal without queues";
}

TEST_F(TransmitQueueLooks, OfASenderFindTheLastMessageThatCameJustBeforeHim) {
    const int result = counting([] { return io_pool_tx_put(message(3, 64001, {})); }, 1,
                                [] { io_pool_tx_put_last(status(2, 10)); });
    EXPECT_EQ(result, -1);
    EXPECT_THAT(logs::lines(), ElementsAre("ERROR src/io_pool io_pool_tx_put: msg dst 64001 >= 128"));
    EXPECT_EQ(pool_probe::take_all(), std::vector<pool_probe::bytes>{status(2, 10).block()});
}

TEST(PoolLocks, AreOnePerQueueAndNeverHeldTogether) {
    ASSERT_EQ(io_pool_init(pool_probe::same_key), 0);
    ASSERT_EQ(io_pool_rx_put(status(6, 10)), 0);
    (void)pool_probe::ask(6); // both throttled lines are out: the log takes no lock below
    ASSERT_EQ(io_pool_rx_put(status(6, 10)), 0);
    lock_probe::watch receive;
    lock_probe::watch transmit;
    const message m = status(6, 10);
    EXPECT_EQ(lock_probe::during(receive, [&] { return io_pool_rx_put(m); }), 0);
    EXPECT_EQ(lock_probe::during(receive, [] { return pool_probe::ask(6).len; }), 10);
    EXPECT_EQ(lock_probe::during(transmit, [&] { return io_pool_tx_put(m); }), 0);
    EXPECT_EQ(lock_probe::during(transmit, [] { return take(); }), m.block());
    EXPECT_THAT(receive.taken, ElementsAre(receive.taken.at(0), receive.taken.at(0)));
    EXPECT_THAT(transmit.taken, ElementsAre(transmit.taken.at(0), transmit.taken.at(0)));
    EXPECT_NE(receive.taken.at(0), transmit.taken.at(0));
    EXPECT_EQ(receive.most_held, 1);
    EXPECT_EQ(transmit.most_held, 1);
    io_pool_deinit();
}
