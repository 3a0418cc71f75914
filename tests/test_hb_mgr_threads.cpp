// The heartbeat frame under eight threads.
#include "hb_mgr.h"

#include "hb_rows.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

constexpr int k_rounds = 300;

/// The twenty modes and rates, all with one value.
std::vector<HeartBeatPair> all_core_bytes(int value) {
    std::vector<HeartBeatPair> pairs;
    for (int field = VISION_MACHINE_MODE; field <= MAPPING_PATHPLANNING_RATE; ++field) {
        pairs.push_back({static_cast<HeartBeatField>(field), value});
    }
    return pairs;
}

bool core_bytes_are_equal(const VPHeartbeatFrame &frame) {
    const hb_rows::frame_bytes bytes = hb_rows::to_bytes(frame);
    return std::all_of(bytes.begin() + 8, bytes.begin() + 28, [&](uint8_t b) { return b == bytes[8]; });
}

void write_core_bytes(int first) {
    for (int i = 0; i < k_rounds; ++i) {
        const std::vector<HeartBeatPair> pairs = all_core_bytes(first + i);
        (void)hbmgr_set_hb(pairs.data(), static_cast<int>(pairs.size()));
    }
}

/// Reads until the writers are done and once more.
void read_until(const std::atomic<bool> &done, std::atomic<int> &torn, std::atomic<int> &reads) {
    bool last = false;
    while (!last) {
        last = done.load();
        VPHeartbeatFrame frame;
        hbmgr_get_hb(&frame);
        torn += core_bytes_are_equal(frame) ? 0 : 1;
        ++reads;
    }
}

} // namespace

TEST(HeartbeatThreads, NeverSeeAHalfAppliedArray) {
    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::atomic<int> reads{0};
    std::vector<std::thread> readers;
    std::vector<std::thread> writers;
    for (int i = 0; i < 4; ++i) {
        readers.emplace_back([&] { read_until(done, torn, reads); });
        writers.emplace_back([i] { write_core_bytes(i * 64); });
    }
    for (std::thread &t : writers) {
        t.join();
    }
    done = true;
    for (std::thread &t : readers) {
        t.join();
    }
    EXPECT_EQ(torn, 0);
    EXPECT_GE(reads, 4);
}

TEST(HeartbeatThreads, LoseNoFieldThatAnotherThreadWrites) {
    // Eight bits of one byte, each written by a thread of its own.
    std::vector<std::thread> writers;
    for (int i = 0; i < 8; ++i) {
        writers.emplace_back([field = static_cast<HeartBeatField>(SHOW_HEAD_RADAR + i)] {
            for (int round = 0; round <= k_rounds; ++round) {
                const HeartBeatPair pair = {field, (round + 1) % 2}; // ends with 1
                (void)hbmgr_set_hb(&pair, 1);
            }
        });
    }
    for (std::thread &t : writers) {
        t.join();
    }
    VPHeartbeatFrame frame;
    hbmgr_get_hb(&frame);
    EXPECT_EQ(hb_rows::to_bytes(frame)[40], 0xFF);
}
