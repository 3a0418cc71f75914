// How often the transmit queue is looked at before it counts as empty. A look takes the queue's lock, so the
// test stands between the library and pthread_mutex_lock.
#include "io_pool.h"

#include "pool_probe.h"

#include <dlfcn.h>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using pool_probe::status;
using pool_probe::take;
using testing::IsEmpty;

namespace {

thread_local int looks = -1;                 // counted from 0 on
thread_local std::function<void()> *at_look; // runs before look number `look_of_interest`
thread_local int look_of_interest = 0;

/// Takes a message and counts how often a lock is taken; before one of these, `work` runs.
pool_probe::bytes take_and_count(int look = 0, std::function<void()> work = {}) {
    at_look = work ? &work : nullptr;
    look_of_interest = look;
    looks = 0;
    const pool_probe::bytes taken = take();
    at_look = nullptr;
    return taken;
}

class TransmitQueueLooks : public pool_probe::Pool {};

} // namespace

extern "C" int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept {
    using lock_t = int (*)(pthread_mutex_t *);
    static const auto real = reinterpret_cast<lock_t>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    if (looks >= 0 && ++looks == look_of_interest && at_look != nullptr) {
        const int counted = looks;
        looks = -1;
        (*at_look)();
        looks = counted;
    }
    return real(mutex);
}

TEST_F(TransmitQueueLooks, Are128WhenItIsEmpty) {
    EXPECT_THAT(take_and_count(), IsEmpty());
    EXPECT_EQ(looks, 128);
}

TEST_F(TransmitQueueLooks, AreOneWhenThereIsAMessage) {
    ASSERT_EQ(io_pool_tx_put(status(6, 10)), 0);
    EXPECT_EQ(take_and_count(), status(6, 10).block());
    EXPECT_EQ(looks, 1);
}

TEST_F(TransmitQueueLooks, FindAMessageThatComesBeforeTheLastOfThem) {
    EXPECT_EQ(take_and_count(128, [] { ASSERT_EQ(io_pool_tx_put(status(6, 10)), 0); }),
              status(6, 10).block());
    EXPECT_EQ(looks, 128);
}

TEST_F(TransmitQueueLooks, EndWithTheFirstMessage) {
    EXPECT_EQ(take_and_count(50, [] { ASSERT_EQ(io_pool_tx_put(status(6, 10)), 0); }), status(6, 10).block());
    EXPECT_EQ(looks, 50);
}
