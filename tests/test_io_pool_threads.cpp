// The queues under eight threads, also while they are started and stopped.
#include "io_pool.h"

#include "pool_probe.h"
#include "vx_msg_buf.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using pool_probe::message;
using pool_probe::payload;

namespace {

constexpr int k_rounds = 1000;
constexpr unsigned k_keys = 4;

/// Without the record that the one for single threads keeps.
bool same_two_bytes(const void *a, const void *b) {
    return memcmp(a, b, 2) == 0;
}

/// What marks a message shows in its header's `dst` and in every byte behind the key.
message marked(unsigned key, int mark) {
    const auto byte = static_cast<uint8_t>(mark);
    return {3, byte, payload(key, 20 + byte % 100U, byte)};
}

bool is_whole(const vx_msg_head_t &head, const uint8_t *data, int len) {
    const auto byte = static_cast<uint8_t>(head.dst);
    return len == 20 + byte % 100 && head.data_length == len &&
           std::all_of(data + 2, data + len, [&](uint8_t b) { return b == byte; });
}

class PoolThreads : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(io_pool_init(same_two_bytes), 0); }
    void TearDown() override {
        join_all();
        io_pool_deinit();
        EXPECT_EQ(torn, 0);
        EXPECT_EQ(failed, 0);
    }

    void join_all() {
        for (std::thread &t : threads) {
            t.join();
        }
        threads.clear();
    }

    void receive(int first) {
        for (int i = 0; i < k_rounds; ++i) {
            refused += io_pool_rx_put(marked(static_cast<unsigned>(i) % k_keys, first + i)) == 0 ? 0 : 1;
        }
    }

    void poll_status() {
        for (int i = 0; i < k_rounds; ++i) {
            const uint8_t key[2] = {static_cast<uint8_t>(static_cast<unsigned>(i) % k_keys), 0};
            vx_msg_buf room{};
            int len = 0;
            if (io_pool_rx_get(key, reinterpret_cast<char *>(room.payload), &len, &room.head) > 0) {
                torn += is_whole(room.head, room.payload, len) ? 0 : 1;
            }
        }
    }

    void send(int first) {
        for (int i = 0; i < k_rounds; ++i) {
            refused += io_pool_tx_put(marked(0, first + i)) == 0 ? 0 : 1;
        }
    }

    /// Takes one message; false when there is none.
    bool take_one() {
        vx_msg_buf room;
        int len = 0;
        if (io_pool_tx_get(reinterpret_cast<char *>(room.bytes()), &len) < 1) {
            return false;
        }
        torn += is_whole(room.head, room.payload, len - VX_MSG_HEAD_SIZE) ? 0 : 1;
        ++taken;
        return true;
    }

    void take_some() {
        for (int i = 0; i < k_rounds; ++i) {
            (void)take_one();
        }
    }

    void start_and_stop() {
        for (int i = 0; i < k_rounds / 10; ++i) {
            io_pool_deinit();
            failed += io_pool_init(same_two_bytes) == 0 ? 0 : 1;
        }
    }

    std::vector<std::thread> threads;
    std::atomic<int> torn{0};
    std::atomic<int> refused{0};
    std::atomic<int> failed{0};
    std::atomic<int> taken{0};
};

} // namespace

TEST_F(PoolThreads, NeverReadAHalfOverwrittenStatus) {
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this, i] { receive(50 * i); });
        threads.emplace_back([this] { poll_status(); });
    }
    join_all();
    EXPECT_EQ(refused, 0);
}

TEST_F(PoolThreads, LoseNoMessageToBeSent) {
    std::atomic<int> senders{4};
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this, i, &senders] {
            for (int round = 0; round < 250; ++round) { // never more than the queue holds
                refused += io_pool_tx_put(marked(0, i + round)) == 0 ? 0 : 1;
            }
            --senders;
        });
        threads.emplace_back([this, &senders] {
            bool last = false;
            while (!last) {
                last = senders == 0;
                while (take_one()) {
                }
            }
        });
    }
    join_all();
    EXPECT_EQ(refused, 0);
    EXPECT_EQ(taken, 1000);
}

TEST_F(PoolThreads, MayUseTheQueuesWhileTheyAreStartedAndStopped) {
    threads.emplace_back([this] { receive(0); });
    threads.emplace_back([this] { receive(100); });
    threads.emplace_back([this] { poll_status(); });
    threads.emplace_back([this] { send(0); });
    threads.emplace_back([this] { send(100); });
    threads.emplace_back([this] { take_some(); });
    threads.emplace_back([this] { start_and_stop(); });
    threads.emplace_back([this] { start_and_stop(); });
    join_all();
    ASSERT_EQ(io_pool_init(same_two_bytes), 0);
    EXPECT_EQ(io_pool_rx_put(marked(1, 1)), 0);
    EXPECT_EQ(io_pool_tx_put(marked(1, 1)), 0);
}
