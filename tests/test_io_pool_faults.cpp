// The queues when locks, lists or copies cannot be made.
#include "io_pool.h"

#include "copy_store.h"
#include "faults.h"
#include "log_lines.h"
#include "pool_probe.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

using faults::call;
using pool_probe::ask;
using pool_probe::bytes;
using pool_probe::payload;
using pool_probe::queued_keys;
using pool_probe::same_key;
using pool_probe::status;
using pool_probe::take;
using pool_probe::take_all;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr char k_mutex_failed[] = "ERROR src/io_pool io_pool_init: mutex init failed\n";
constexpr char k_list_failed[] = "ERROR src/io_pool io_pool_init: create list failed\n";
constexpr char k_duplicated[] = "WARN src/io_pool io_pool_init: io_pool init duplicated\n";
constexpr int k_of_the_node = 0; // which allocation of a put: the list's node, then the message's copy
constexpr int k_of_the_copy = 1;

class PoolFaults : public testing::Test {
protected:
    void TearDown() override {
        faults::clear();
        io_pool_deinit();
    }

    static void expect_not_started() {
        EXPECT_EQ(io_pool_rx_put(status(6, 10)), -1);
        EXPECT_EQ(io_pool_tx_put(status(6, 10)), -1);
        EXPECT_EQ(ask(6).len, 0);
        EXPECT_THAT(take(), IsEmpty());
    }

    static void expect_working() {
        EXPECT_EQ(io_pool_rx_put(status(6, 10)), 0);
        EXPECT_EQ(ask(6).payload, payload(6, 10));
        EXPECT_EQ(io_pool_tx_put(status(7, 10)), 0);
        EXPECT_EQ(take(), status(7, 10).block());
    }
};

/// Passes messages through the transmit queue until the next copy needs memory of its own: copies that are
/// kept share it.
void use_up_shared_memory() {
    constexpr size_t room = 32; // [bytes] that this message takes
    const auto pass_one = [] {
        const long before = faults::calls(call::malloc);
        EXPECT_EQ(io_pool_tx_put(status(6, 10)), 0);
        EXPECT_EQ(take(), status(6, 10).block());
        return faults::calls(call::malloc) - before;
    };
    while (pass_one() == 1) { // no more than the queue's node
    }
    for (size_t left = copy_store::k_piece_size - room; left >= 2 * room; left -= room) {
        (void)pass_one();
    }
}

class PoolWithoutMemory : public PoolFaults, public testing::WithParamInterface<int> {
protected:
    void SetUp() override {
        ASSERT_EQ(io_pool_init(same_key), 0);
        ASSERT_EQ(io_pool_rx_put(status(6, 10)), 0);
        ASSERT_EQ(io_pool_tx_put(status(6, 10)), 0);
        use_up_shared_memory();
    }

    static void fail_next() { faults::fail(call::malloc, 0, 1, GetParam()); }
};

} // namespace

TEST_F(PoolFaults, InitFailsAtWhicheverLockCannotBeMade) {
    for (const int lock : {0, 1}) {
        logs::clear();
        faults::fail(call::pthread_mutex_init, ENOMEM, 1, lock);
        EXPECT_EQ(io_pool_init(same_key), -1) << lock;
        EXPECT_THAT(logs::lines(), ElementsAre(k_mutex_failed)) << lock;
        EXPECT_EQ(logs::count("mutex init failed\n"), 1U);
        expect_not_started();
    }
    logs::clear();
    EXPECT_EQ(io_pool_init(same_key), 0);
    EXPECT_THAT(logs::lines(), IsEmpty()) << "what failed before is no start";
    expect_working();
}

TEST_F(PoolFaults, InitMakesTheReceiveLockBeforeTheOther) {
    faults::fail(call::pthread_mutex_init, ENOMEM, 1, 0);
    EXPECT_EQ(io_pool_init(same_key), -1);
    EXPECT_EQ(faults::calls(call::pthread_mutex_init), 1) << "the first that fails ends it";
    EXPECT_EQ(faults::calls(call::calloc), 0);
}

TEST_F(PoolFaults, ALockThatCouldBeMadeStays) {
    faults::fail(call::pthread_mutex_init, ENOMEM, 1, 1);
    EXPECT_EQ(io_pool_init(same_key), -1);
    EXPECT_EQ(faults::calls(call::pthread_mutex_destroy), 0);
    EXPECT_EQ(io_pool_init(same_key), 0);
    EXPECT_EQ(faults::calls(call::pthread_mutex_init), 3) << "no living lock is made anew";
    io_pool_deinit();
    EXPECT_EQ(faults::calls(call::pthread_mutex_destroy), 2);
}

TEST_F(PoolFaults, InitFailsAtWhicheverQueueCannotBeMade) {
    for (const int queue : {0, 1}) {
        logs::clear();
        faults::clear();
        faults::fail(call::calloc, 0, 1, queue);
        EXPECT_EQ(io_pool_init(same_key), -1) << queue;
        EXPECT_THAT(logs::lines(), ElementsAre(k_list_failed)) << queue;
        EXPECT_EQ(logs::count("create list failed\n"), 1U);
        expect_not_started();
    }
    logs::clear();
    EXPECT_EQ(io_pool_init(same_key), 0);
    EXPECT_THAT(logs::lines(), IsEmpty());
    expect_working();
}

TEST_F(PoolFaults, AQueueThatCouldBeMadeIsUsedByTheNextAttempt) {
    faults::fail(call::calloc, 0, 1, 1);
    EXPECT_EQ(io_pool_init(same_key), -1);
    EXPECT_EQ(io_pool_init(same_key), 0);
    EXPECT_EQ(faults::calls(call::calloc), 3) << "two for the attempt that failed, one for the missing queue";
    EXPECT_EQ(faults::calls(call::pthread_mutex_init), 2);
    expect_working();
}

TEST_F(PoolFaults, AStopAfterAFailedStartDoesNothing) {
    faults::fail(call::calloc, 0, 1, 1);
    EXPECT_EQ(io_pool_init(same_key), -1);
    io_pool_deinit();
    EXPECT_EQ(faults::calls(call::pthread_mutex_destroy), 0);
    EXPECT_EQ(io_pool_init(same_key), 0);
    expect_working();
}

TEST_F(PoolFaults, ARestartThatFailsSaysSoAndTheNextOneWorks) {
    struct {
        call what;
        int error;
        const char *line;
    } const rows[] = {{call::pthread_mutex_init, EAGAIN, k_mutex_failed}, {call::calloc, 0, k_list_failed}};
    ASSERT_EQ(io_pool_init(same_key), 0);
    for (const auto &row : rows) {
        io_pool_deinit();
        logs::clear();
        faults::fail(row.what, row.error, 1, 1);
        EXPECT_EQ(io_pool_init(same_key), -1);
        EXPECT_THAT(logs::lines(), ElementsAre(k_duplicated, row.line));
        expect_not_started();
        EXPECT_EQ(io_pool_init(same_key), 0);
        expect_working();
    }
}

TEST_P(PoolWithoutMemory, LosesAReceivedMessageAndSaysSo) {
    fail_next();
    EXPECT_EQ(io_pool_rx_put(status(7, 10)), 0);
    EXPECT_THAT(logs::lines(),
                ElementsAre("ERROR src/io_pool io_pool_rx_put: no memory for a message of 26 bytes, lost\n"));
    EXPECT_THAT(queued_keys(), ElementsAre(6U));
    EXPECT_EQ(io_pool_rx_put(status(7, 10)), 0);
    EXPECT_THAT(queued_keys(), ElementsAre(6U, 7U));
}

TEST_P(PoolWithoutMemory, LosesAMessageToBeSentAndSaysSo) {
    fail_next();
    EXPECT_EQ(io_pool_tx_put(status(7, 12)), 0);
    EXPECT_THAT(logs::lines(),
                ElementsAre("ERROR src/io_pool io_pool_tx_put: no memory for a message of 28 bytes, lost\n"));
    EXPECT_EQ(io_pool_tx_put(status(8, 10)), 0);
    EXPECT_EQ(take_all(), (std::vector<bytes>{status(6, 10).block(), status(8, 10).block()}));
}

TEST_P(PoolWithoutMemory, LosesAMessageThatIsTooLongForItsPlaceAndSaysSo) {
    fail_next();
    EXPECT_EQ(io_pool_rx_put(status(6, 20)), 0);
    EXPECT_THAT(logs::lines(),
                ElementsAre("WARN src/io_pool io_pool_rx_put: alloc another one\n",
                            "ERROR src/io_pool io_pool_rx_put: no memory for a message of 36 bytes, lost\n"));
    EXPECT_THAT(queued_keys(), IsEmpty()) << "the older one is out of date";
    EXPECT_EQ(io_pool_rx_put(status(6, 20)), 0);
    EXPECT_EQ(ask(6).len, 20);
}

TEST_P(PoolWithoutMemory, StillOverwritesInPlace) {
    const long before = faults::calls(call::malloc);
    faults::fail(call::malloc, 0, faults::k_forever, GetParam());
    EXPECT_EQ(io_pool_rx_put(status(6, 10, 0x11)), 0);
    EXPECT_EQ(ask(6).payload, payload(6, 10, 0x11));
    EXPECT_EQ(faults::calls(call::malloc), before);
}

INSTANTIATE_TEST_SUITE_P(Allocation, PoolWithoutMemory, testing::Values(k_of_the_node, k_of_the_copy),
                         [](const testing::TestParamInfo<int> &which) {
                             return which.param == k_of_the_node ? "OfTheNode" : "OfTheCopy";
                         });
