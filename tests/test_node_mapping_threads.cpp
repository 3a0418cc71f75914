// The node table under eight threads, also while it is started and stopped.
#include "node_mapping.h"

#include "node_records.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using node_records::filled;

namespace {

constexpr int k_rounds = 2000;
constexpr uint16_t k_slot = 42;

/// Every record that is written here has one byte throughout, but for id and state.
vexa_node_t uniform(int byte) {
    vexa_node_t node = filled(static_cast<uint8_t>(byte));
    node.node_id = k_slot;
    node.stat = 1;
    return node;
}

bool is_whole(vexa_node_t node) {
    node.node_id = 0;
    node.stat = 0;
    vexa_node_t expected = filled(static_cast<uint8_t>(node.name[0]));
    expected.node_id = 0;
    expected.stat = 0;
    return node_records::bytes_of(node) == node_records::bytes_of(expected);
}

class NodeTableThreads : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(nmapping_create(), 0);
        const vexa_node_t first = uniform('a');
        ASSERT_EQ(nmapping_set(k_slot, &first), 0);
    }
    void TearDown() override {
        join_all();
        nmapping_destroy();
        EXPECT_EQ(torn, 0);
    }

    void join_all() {
        for (std::thread &t : threads) {
            t.join();
        }
        threads.clear();
    }

    void write(int first) {
        for (int i = 0; i < k_rounds; ++i) {
            const vexa_node_t node = uniform(first + i % 8);
            refused += nmapping_set(k_slot, &node) == 0 ? 0 : 1;
        }
    }

    void read() {
        for (int i = 0; i < k_rounds; ++i) {
            vexa_node_t node{};
            if (nmapping_get(k_slot, &node) == 0) {
                torn += is_whole(node) ? 0 : 1;
            } else {
                ++refused;
            }
        }
    }

    void touch_everything() {
        for (int i = 0; i < k_rounds; ++i) {
            const auto id = static_cast<uint16_t>(i % 140);
            vexa_node_t node{};
            (void)nmapping_get(id, &node);
            nmapping_set_self(id);
            (void)nmapping_self_node_id();
            (void)nmapping_get_next_hop(id);
            if (id != k_slot) {
                nmapping_set_stat(id, i);
                (void)nmapping_del(id);
            }
            (void)nmapping_get_stat(id);
        }
    }

    void start_and_stop() {
        for (int i = 0; i < k_rounds / 20; ++i) {
            nmapping_destroy();
            failed += nmapping_create() == 0 ? 0 : 1;
        }
    }

    std::vector<std::thread> threads;
    std::atomic<int> torn{0};
    std::atomic<int> refused{0};
    std::atomic<int> failed{0};
};

} // namespace

TEST_F(NodeTableThreads, NeverSeeAHalfWrittenRecord) {
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this, i] { write('a' + 8 * i); });
        threads.emplace_back([this] { read(); });
    }
    join_all();
    EXPECT_EQ(refused, 0);
}

TEST_F(NodeTableThreads, MayUseTheTableWhileItIsStartedAndStopped) {
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([this, i] { write('a' + 8 * i); });
        threads.emplace_back([this] { read(); });
        threads.emplace_back([this] { touch_everything(); });
        threads.emplace_back([this] { start_and_stop(); });
    }
    join_all();
    EXPECT_EQ(failed, 0);
    ASSERT_EQ(nmapping_create(), 0);
    vexa_node_t node{};
    EXPECT_EQ(nmapping_get(k_slot, &node), 0);
}

TEST_F(NodeTableThreads, MayDumpTheTableWhileItIsStartedAndStopped) {
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 50; ++round) {
                nmapping_valid_item_show();
            }
        });
        threads.emplace_back([this] { touch_everything(); });
    }
    threads.emplace_back([this] { start_and_stop(); });
    threads.emplace_back([this] { write('a'); });
    join_all();
    EXPECT_EQ(failed, 0);
}
