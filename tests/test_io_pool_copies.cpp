// What becomes of the queues' copies: kept for good by default, released when the build says so.
#include "io_pool.h"

#include "pool_probe.h"

#include <functional>
#include <gtest/gtest.h>

#if defined(VEXAMSG_UNDER_ASAN) || defined(VEXAMSG_UNDER_TSAN)
#include <sanitizer/common_interface_defs.h>
extern "C" size_t __sanitizer_get_current_allocated_bytes(void); // NOLINT(bugprone-reserved-identifier)
#endif
#include <malloc.h>

using pool_probe::message;
using pool_probe::status;

namespace {

constexpr long k_messages = 500;
constexpr long k_size = 3000;                  // [bytes]
constexpr long k_copies = k_messages * k_size; // [bytes] of all copies, at least
constexpr long k_noise = 200 * 1024;           // [bytes] lists and other bookkeeping, at most

#ifdef VEXAMSG_RECLAIM_QUEUE_COPIES
constexpr bool k_reclaims = true;
#else
constexpr bool k_reclaims = false;
#endif

/// [bytes] that are allocated now.
long allocated() {
#if defined(VEXAMSG_UNDER_ASAN) || defined(VEXAMSG_UNDER_TSAN)
    return static_cast<long>(__sanitizer_get_current_allocated_bytes());
#else
    return static_cast<long>(mallinfo2().uordblks);
#endif
}

/// What `work` leaves allocated.
long left_by(const std::function<void()> &work) {
    const long before = allocated();
    work();
    return allocated() - before;
}

void expect_released_if_the_build_says_so(long left) {
    if (k_reclaims) {
        EXPECT_LT(left, k_noise);
    } else {
        EXPECT_GE(left, k_copies);
    }
}

class PoolCopies : public pool_probe::Pool {
protected:
    void SetUp() override {
        pool_probe::Pool::SetUp();
        pool_probe::matched().reserve(10'000'000 / sizeof(pool_probe::pair_of_keys));
    }

    const message m_ = status(6, k_size);
};

} // namespace

TEST_F(PoolCopies, OfMessagesThatAreTakenAreReleasedIfTheBuildSaysSo) {
    std::vector<char> room(VX_MSG_BUFFER_SIZE);
    expect_released_if_the_build_says_so(left_by([&] {
        for (int i = 0; i < k_messages; ++i) {
            int len = 0;
            ASSERT_EQ(io_pool_tx_put(m_), 0);
            ASSERT_GT(io_pool_tx_get(room.data(), &len), 0);
        }
    }));
}

TEST_F(PoolCopies, ThatAFullTransmitQueueDropsAreReleasedIfTheBuildSaysSo) {
    for (int i = 0; i < 1025; ++i) {
        ASSERT_EQ(io_pool_tx_put(m_), 0);
    }
    expect_released_if_the_build_says_so(left_by([&] {
        for (int i = 0; i < k_messages; ++i) {
            ASSERT_EQ(io_pool_tx_put(m_), 0);
        }
    }));
}

TEST_F(PoolCopies, ThatAFullReceiveQueueDropsAreReleasedIfTheBuildSaysSo) {
    for (unsigned key = 0; key < 1025; ++key) {
        ASSERT_EQ(io_pool_rx_put(status(key, k_size)), 0);
    }
    expect_released_if_the_build_says_so(left_by([&] {
        for (int i = 0; i < k_messages; ++i) {
            ASSERT_EQ(io_pool_rx_put(m_), 0);
        }
    }));
}

TEST_F(PoolCopies, ThatALongerMessageReplacesAreReleasedIfTheBuildSaysSo) {
    expect_released_if_the_build_says_so(left_by([&] {
        for (unsigned i = 0; i <= k_messages; ++i) {
            ASSERT_EQ(io_pool_rx_put(status(6, k_size + i)), 0);
        }
    }));
}

TEST_F(PoolCopies, OfAStoppedPoolAreReleasedIfTheBuildSaysSo) {
    expect_released_if_the_build_says_so(left_by([&] {
        for (unsigned key = 0; key < k_messages; ++key) {
            ASSERT_EQ(io_pool_rx_put(status(key, k_size)), 0);
            ASSERT_EQ(io_pool_tx_put(m_), 0);
        }
        io_pool_deinit();
    }));
}

TEST_F(PoolCopies, AreNotMadeOfAMessageThatOverwritesInPlace) {
    ASSERT_EQ(io_pool_rx_put(m_), 0);
    EXPECT_LT(left_by([&] {
                  for (int i = 0; i < k_messages; ++i) {
                      ASSERT_EQ(io_pool_rx_put(m_), 0);
                  }
              }),
              k_noise);
}
