// Senders on several threads at once: one socket, no number twice.
#include "vision_protocol.h"

#include "faults.h"
#include "udp_peer.h"
#include "wait.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <latch>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using faults::call;
using namespace std::chrono_literals;

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

/// The threads of a test, asked whether the kernel has put them to sleep.
class sleepers {
public:
    void enter() {
        const std::lock_guard hold{lock_};
        threads_.push_back(gettid());
    }

    /// Waits until this many of those that entered sleep.
    bool sleep_within(std::chrono::milliseconds deadline, int how_many) {
        return wait_until(
            [&] {
                const std::lock_guard hold{lock_};
                return std::count_if(threads_.begin(), threads_.end(), is_asleep) == how_many;
            },
            deadline);
    }

private:
    static bool is_asleep(pid_t thread) {
        std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
        std::string number;
        std::string name;
        char state = 0;
        file >> number >> name >> state;
        return state == 'S';
    }

    std::mutex lock_;
    std::vector<pid_t> threads_;
};

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

TEST(SendersOnThreads, LoseNoNumberUnderPressure) {
    constexpr int rounds = 100000; // two threads meet in the counter every few ten thousand
    faults::fail(call::usleep, 0, faults::k_forever, 0, 0); // no pauses, and nothing leaves
    faults::fail(call::sendto, 0, faults::k_forever, 0, 48);
    at_once([] {
        for (int i = 0; i < rounds; ++i) {
            (void)send_ifly_command_ack(1, 1);
        }
    });
    faults::clear();
    udp_peer flight("192.168.1.5", 5673);
    EXPECT_EQ(send_ifly_command_ack(1, 1), 48);
    EXPECT_EQ(sequence_of(flight.receive().value()), static_cast<uint16_t>(k_threads * rounds));
}

TEST(SendersOnThreads, WaitForTheOneThatMakesTheSocket) {
    const udp_peer flight("192.168.1.5", 5673);
    sleepers others;
    bool all_waited = false;
    faults::before(call::socket, [&] { all_waited = others.sleep_within(10s, k_threads - 1); });
    at_once([&] {
        others.enter();
        EXPECT_EQ(send_ifly_command_ack(1, 1), 48);
    });
    EXPECT_TRUE(all_waited) << "the others sleep while one makes the socket, and are woken";
    EXPECT_EQ(faults::calls(call::socket), 1);
    EXPECT_EQ(faults::calls(call::close), 0);
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
