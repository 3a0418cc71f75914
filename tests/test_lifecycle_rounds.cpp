// Starting and stopping over and over in one process: nothing is left of any round. VEXAMSG_TEST_ROUNDS says
// how many; scripts/lifecycle runs the great number.
#include "log_capture.h"
#include "peer.h"
#include "process_state.h"
#include "stop_time.h"
#include "test_rounds.h"
#include "wait.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <iostream>

#if defined(VEXAMSG_UNDER_ASAN) // elsewhere kept copies share their memory
// Of the sanitizers' interface; gcc brings no header for it.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void *, size_t),
                                                         void (*)(const volatile void *));
#define HEAP_IS_COUNTED 1
#else
#define HEAP_IS_COUNTED 0
#endif

namespace {

using bus::node_under_test;

constexpr uint16_t k_id = 9;
constexpr long k_warm_up = 12;      // rounds after which everything that stays for good is there
constexpr long k_few_mappings = 50; // allocators take and give back some of their own
#ifdef VEXAMSG_RECLAIM_QUEUE_COPIES
constexpr long k_kept_a_round = 0;
#else
constexpr long k_kept_a_round = 1; // the queue's copy of the UNREGISTER
#endif

std::atomic<long> g_blocks{0}; // on the heap

void count_heap_blocks() {
#if HEAP_IS_COUNTED
    (void)__sanitizer_install_malloc_and_free_hooks([](const volatile void *, size_t) { ++g_blocks; },
                                                    [](const volatile void *) { --g_blocks; });
#endif
}

/// In turn: stopped at once, stopped before the manager answers, a member of the bus.
double play_round(node_under_test &node, long round) {
    EXPECT_EQ(node.start(), 0);
    if (round % 3 > 0) {
        EXPECT_TRUE(round % 3 == 1 ? node.manager().receive().has_value() : node.accept({3}));
    }
    if (round % 3 == 2) {
        EXPECT_EQ(vision_send_msg(NODE_VIO, "x", 1), 0);
        EXPECT_TRUE(node.other(3).receive());
    }
    const double took_s = timed_stop();
    (void)node.manager().take_all();
    return took_s;
}

} // namespace

TEST(LifeCycle, LeavesNothingBehindHoweverOften) {
    const long rounds = test_rounds("VEXAMSG_TEST_ROUNDS", 150);
    node_under_test node{k_id};
    logs::keep(false);
    count_heap_blocks();
    for (long i = 0; i < k_warm_up; ++i) {
        (void)play_round(node, i);
    }
    const auto descriptors = process_state::descriptors();
    const size_t threads = process_state::threads();
    const long mappings = process_state::mappings();
    const long blocks = g_blocks;
    double longest_s = 0;
    const auto start = std::chrono::steady_clock::now();
    for (long i = 0; i < rounds && !HasFailure(); ++i) {
        longest_s = std::max(longest_s, play_round(node, i));
    }
    const long grown = g_blocks - blocks;
    EXPECT_EQ(process_state::descriptors(), descriptors);
    EXPECT_TRUE(wait_until([threads] { return process_state::threads() <= threads; }));
    EXPECT_LT(process_state::mappings(), mappings + k_few_mappings);
    EXPECT_EQ(grown, HEAP_IS_COUNTED ? rounds * k_kept_a_round : 0);
    std::cout << rounds << " rounds in "
              << std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count()
              << " s, longest stop " << longest_s << " s, descriptors " << descriptors.size() << ", threads "
              << process_state::threads() << ", mappings +" << process_state::mappings() - mappings
              << ", heap blocks " << (HEAP_IS_COUNTED ? "" : "not counted ") << '+' << grown << std::endl;
}
