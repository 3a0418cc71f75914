// The memory of copies that are kept for good.
#include "copy_store.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

// Asked by the leak checker, which has nothing to find where nothing is meant to be given back.
extern "C" const char *__lsan_default_options(void);  // NOLINT(bugprone-reserved-identifier)
extern "C" const char *__lsan_default_options(void) { // NOLINT(bugprone-reserved-identifier)
    return "detect_leaks=0";
}

namespace {

constexpr size_t k_long = 8208; // [bytes] the longest copy
constexpr int k_threads = 4;

/// A place that was handed out, and the byte that its owner has filled it with.
struct place {
    uint8_t *bytes;
    size_t size;
    uint8_t mark;
};

/// Takes places of many sizes and fills each from end to end.
std::vector<place> take_and_fill(copy_store &store, int count, uint8_t mark) {
    std::vector<place> taken;
    for (int i = 0; i < count; ++i) {
        const size_t size = 18 + static_cast<size_t>(i) * 997 % (k_long - 17);
        auto *bytes = static_cast<uint8_t *>(store.take(size));
        memset(bytes, mark, size);
        taken.push_back({bytes, size, mark});
    }
    return taken;
}

void expect_untouched(const std::vector<place> &taken) {
    for (const place &p : taken) {
        EXPECT_TRUE(std::all_of(p.bytes, p.bytes + p.size, [&](uint8_t byte) { return byte == p.mark; }));
    }
}

} // namespace

TEST(CopyStore, HandsOutMemoryAlignedLikeMalloc) {
    copy_store store;
    for (const size_t size : {1U, 17U, 18U, 8208U, 3U}) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(store.take(size)) % alignof(std::max_align_t), 0U) << size;
    }
}

TEST(CopyStore, HandsOutNothingTwice) {
    copy_store store;
    std::vector<place> all;
    for (int i = 0; i < 100; ++i) { // some pieces' worth
        const std::vector<place> more = take_and_fill(store, 3, static_cast<uint8_t>(i));
        all.insert(all.end(), more.begin(), more.end());
    }
    expect_untouched(all);
}

TEST(CopyStore, HandsOutNothingTwiceToSeveralThreads) {
    constexpr uint64_t taken_each = 200'000; // small ones, so that the threads meet often
    copy_store store;
    std::array<std::vector<uint64_t *>, k_threads> taken;
    std::atomic<int> missing{k_threads};
    std::vector<std::thread> threads;
    for (uint64_t i = 0; i < k_threads; ++i) {
        threads.emplace_back([&store, &missing, &mine = taken[i], i] {
            mine.reserve(taken_each);
            --missing;
            while (missing > 0) { // all begin at once
            }
            for (uint64_t n = 0; n < taken_each; ++n) {
                mine.push_back(static_cast<uint64_t *>(store.take(sizeof(uint64_t))));
                *mine.back() = i * taken_each + n;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    uint64_t expected = 0;
    for (const auto &mine : taken) {
        for (const uint64_t *number : mine) {
            ASSERT_EQ(*number, expected++);
        }
    }
}

TEST(CopyStore, UsesUpAPieceBeforeItBeginsAnother) {
    copy_store store;
    const auto *first = static_cast<const uint8_t *>(store.take(16));
    for (size_t used = 2; (used + 1) * 16 <= copy_store::k_piece_size; ++used) {
        ASSERT_EQ(static_cast<const uint8_t *>(store.take(16)), first + (used - 1) * 16);
    }
    const auto *next = static_cast<const uint8_t *>(store.take(16));
    EXPECT_TRUE(next < first || next >= first + copy_store::k_piece_size - 16);
}
