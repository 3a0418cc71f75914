// Senders on several threads at once: one socket, no number twice.
#include "vision_protocol.h"

#include "faults.h"
#include "udp_peer.h"

#include <atomic>
#include <cerrno>
#include <functional>
#include <gtest/gtest.h>
#include <latch>
#include <set>
#include <thread>
#include <vector>

using faults::call;

namespace {

constexpr int k_threads = 4;

/// Runs the work on all threads at once.
void at_once(const std::function<void()> &work) {
    std::latch start(k_threads);
    std::vector<std::thread> threads;
    for (int i = 0; i < k_threads; ++i) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            work();
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

uint16_t sequence_of(const std::vector<uint8_t> &datagram) {
    return ut_get_le16(datagram.data() + 12);
}

} // namespace

TEST(SendersOnThreads, UseEveryNumberOnce) {
    udp_peer flight("192.168.1.5", 5673);
    udp_peer camera("192.168.1.11", 5685);
    at_once([] {
        for (int i = 0; i < 32; ++i) {
            EXPECT_EQ(send_ifly_command_ack(1, 1), 48);
            EXPECT_EQ(send_ifly_command_cam(1, nullptr, 0), 0);
        }
    });
    std::multiset<uint16_t> numbers;
    for (int i = 0; i < k_threads * 32; ++i) {
        numbers.insert(sequence_of(flight.receive().value()));
        numbers.insert(sequence_of(camera.receive().value()));
    }
    std::multiset<uint16_t> expected;
    for (uint16_t i = 0; i < k_threads * 64; ++i) {
        expected.insert(i);
    }
    EXPECT_EQ(numbers, expected);
}

TEST(SendersOnThreads, MakeOneSocketHoweverManyMeet) {
    udp_peer flight("192.168.1.5", 5673);
    std::atomic<int> inside{0};
    std::atomic<int> most_inside{0};
    faults::before(call::socket, [&] {
        most_inside = std::max(most_inside.load(), ++inside);
        std::this_thread::yield(); // room for another thread to come along
        --inside;
    });
    at_once([] { EXPECT_EQ(send_ifly_command_ack(1, 1), 48); });
    EXPECT_EQ(faults::calls(call::socket), 1);
    EXPECT_EQ(faults::calls(call::close), 0);
    EXPECT_EQ(most_inside, 1);
}

TEST(SendersOnThreads, ThatFindNoSocketMakeItOneAfterTheOther) {
    udp_peer flight("192.168.1.5", 5673);
    faults::fail(call::socket, EMFILE, k_threads - 1);
    std::atomic<int> failed{0};
    at_once([&] { failed += send_ifly_command_ack(1, 1) == -1 ? 1 : 0; });
    // Each failed try is one caller's; whoever waited meanwhile tries himself.
    EXPECT_EQ(failed, k_threads - 1);
    EXPECT_EQ(faults::calls(call::socket), k_threads);
    EXPECT_EQ(faults::calls(call::close), 0);
}

TEST(SendersOnThreads, CountTheTestReportsOnce) {
    udp_peer flight("192.168.1.5", 5673);
    at_once([] {
        for (int i = 0; i < 16; ++i) {
            EXPECT_EQ(vision_test_send_track_status(), 72);
        }
    });
    std::set<uint32_t> ids;
    for (int i = 0; i < k_threads * 16; ++i) {
        ids.insert(ut_get_le32(flight.receive().value().data() + 64));
    }
    EXPECT_EQ(ids.size(), static_cast<size_t>(k_threads * 16));
    EXPECT_EQ(*ids.rbegin(), static_cast<uint32_t>(k_threads * 16 - 1));
}
