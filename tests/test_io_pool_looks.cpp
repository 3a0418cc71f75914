// How often the transmit queue is looked at before it counts as empty. A look takes the queue's lock, so the
// test stands between the library and pthread_mutex_lock.
#include "io_pool.h"

#include "log_lines.h"
#include "pool_probe.h"

#include <dlfcn.h>
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

thread_local int looks = -1;                 // locks taken since the count began; negative: not counted
thread_local int interesting_look = 0;       // before this one, at_look runs
thread_local std::function<void()> *at_look; // null: nothing runs

/// Does something and counts how often a lock is taken meanwhile; before one of these, `at` runs.
template <class Work>
auto counting(Work work, int look = 0, std::function<void()> at = {}) {
    at_look = at ? &at : nullptr;
    interesting_look = look;
    looks = 0;
    auto result = work();
    at_look = nullptr;
    return result;
}

void put_one() {
    ASSERT_EQ(io_pool_tx_put(status(6, 10)), 0);
}

class TransmitQueueLooks : public pool_probe::Pool {};

} // namespace

extern "C" int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept {
    using lock_t = int (*)(pthread_mutex_t *);
    static const auto real = reinterpret_cast<lock_t>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    if (looks >= 0 && ++looks == interesting_look && at_look != nullptr) {
        const int counted = looks;
        looks = -1;
        (*at_look)();
        looks = counted;
    }
    return real(mutex);
}

TEST_F(TransmitQueueLooks, Are128WhenItIsEmpty) {
    EXPECT_THAT(counting(take), IsEmpty());
    EXPECT_EQ(looks, 128);
}

TEST_F(TransmitQueueLooks, AreOneWhenThereIsAMessage) {
    put_one();
    EXPECT_EQ(counting(take), status(6, 10).block());
    EXPECT_EQ(looks, 1);
}

TEST_F(TransmitQueueLooks, FindAMessageThatComesBeforeTheLastOfThem) {
    EXPECT_EQ(counting(take, 128, put_one), status(6, 10).block());
    EXPECT_EQ(looks, 128);
}

TEST_F(TransmitQueueLooks, EndWithTheFirstMessage) {
    EXPECT_EQ(counting(take, 50, put_one), status(6, 10).block());
    EXPECT_EQ(looks, 50);
}

TEST_F(TransmitQueueLooks, AreNotTakenByASenderOnceTheLastMessageIsIn) {
    const auto refused = [] { return io_pool_tx_put(status(3, 10)); };
    io_pool_tx_put_last(status(2, 10));
    EXPECT_EQ(counting(refused), -1);
    const int while_leaving = looks;
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
