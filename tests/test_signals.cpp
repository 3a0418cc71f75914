// A thousand signals a second, for each thread, whose handler lets no system call go on: whatever can be
// interrupted is, and nobody notices.
#include "process_state.h"
#include "scenario.h"
#include "utils/netapi.h"
#include "wait.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <numeric>
#include <string>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using bus::bytes;
using bus::node_under_test;
using bus::play_scenario;
using bus::played;

constexpr uint16_t k_id = 9;
constexpr int k_signal = SIGUSR1;

std::atomic<long> g_handled{0};
std::atomic<long> g_handled_elsewhere{0}; // not on the thread that made the storm
pthread_t g_maker{};

/// While it lives, every thread of the process but its own is interrupted once a millisecond.
class signal_storm {
public:
    signal_storm() {
        g_maker = pthread_self();
        struct sigaction action {};
        action.sa_handler = [](int) {
            g_handled.fetch_add(1, std::memory_order_relaxed);
            if (pthread_equal(pthread_self(), g_maker) == 0) {
                g_handled_elsewhere.fetch_add(1, std::memory_order_relaxed);
            }
        };
        (void)sigaction(k_signal, &action, &before_); // no SA_RESTART
        blower_ = std::jthread([](const std::stop_token &stop) { blow(stop); });
        EXPECT_TRUE(wait_until([] { return g_handled > 10; }));
    }
    ~signal_storm() {
        blower_.request_stop();
        blower_.join();
        (void)sigaction(k_signal, &before_, nullptr);
    }
    signal_storm(const signal_storm &) = delete;
    signal_storm &operator=(const signal_storm &) = delete;

private:
    static void blow(const std::stop_token &stop) {
        const auto own = static_cast<pid_t>(syscall(SYS_gettid));
        auto next = std::chrono::steady_clock::now();
        while (!stop.stop_requested()) {
            std::error_code gone;
            for (const auto &task : std::filesystem::directory_iterator("/proc/self/task", gone)) {
                const pid_t thread = std::stoi(task.path().filename());
                if (thread != own) {
                    (void)syscall(SYS_tgkill, getpid(), thread, k_signal);
                }
            }
            std::this_thread::sleep_until(next += std::chrono::milliseconds(1));
        }
    }

    struct sigaction before_ {};
    std::jthread blower_;
};

struct connected_pair {
    explicit connected_pair(int type) {
        int fds[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, fds), 0);
        left.sockfd = fds[0];
        right.sockfd = fds[1];
    }
    ~connected_pair() {
        (void)net_close(&left);
        (void)net_close(&right);
    }
    connected_pair(const connected_pair &) = delete;
    connected_pair &operator=(const connected_pair &) = delete;

    net_sockfd_t left{};
    net_sockfd_t right{};
};

/// More than any socket's buffers hold, so that both sides wait again and again.
bytes much() {
    bytes made(8 << 20);
    std::iota(made.begin(), made.end(), uint8_t{0});
    return made;
}

} // namespace

TEST(SignalStorm, IsNotNoticedByANode) {
    node_under_test node{k_id};
    ASSERT_TRUE(play_scenario(node, k_id, bus::k_patience).all_well());
    const auto descriptors = process_state::descriptors();
    for (int i = 0; i < 10; ++i) {
        const signal_storm storm;
        const long before = g_handled_elsewhere;
        const played p = play_scenario(node, k_id, bus::k_patience);
        EXPECT_TRUE(p.all_well()) << p;
        EXPECT_GT(g_handled_elsewhere, before) << "the library's threads are to be hit";
    }
    EXPECT_EQ(process_state::descriptors(), descriptors);
}

TEST(SignalStorm, LosesNothingOfAStream) {
    const signal_storm storm;
    const bytes all = much();
    for (const auto send : {net_send, net_sendn}) {
        connected_pair pair{SOCK_STREAM};
        const int size = static_cast<int>(all.size());
        std::thread sender([&] { EXPECT_EQ(send(&pair.left, all.data(), size), size); });
        bytes got;
        bytes room(60'000);
        while (got.size() < all.size()) {
            const int n = net_recv(&pair.right, room.data(), static_cast<int>(room.size()));
            ASSERT_GT(n, 0);
            got.insert(got.end(), room.begin(), room.begin() + n);
        }
        sender.join();
        EXPECT_EQ(got, all);
    }
}

TEST(SignalStorm, LosesNothingOfATimedStream) {
    const signal_storm storm;
    const bytes all = much();
    connected_pair pair{SOCK_STREAM};
    std::thread sender([&] {
        EXPECT_EQ(net_writen_timedwait(pair.left.sockfd, all.data(), all.size()),
                  static_cast<int>(all.size()));
    });
    bytes got;
    std::array<char, 60'000> room{};
    while (got.size() < all.size()) {
        const bool by_read = got.size() % 2 == 0;
        const int n = by_read ? net_read_timedwait(pair.right.sockfd, room.data(), room.size(), 10'000)
                              : net_readn_timeout(&pair.right, room.data(), room.size(), 10'000);
        ASSERT_GT(n, 0);
        got.insert(got.end(), room.begin(), room.begin() + n);
    }
    sender.join();
    EXPECT_EQ(got, all);
}

TEST(SignalStorm, LosesNoDatagram) {
    const signal_storm storm;
    net_sockfd_t receiver{};
    net_sockfd_t sender{};
    ASSERT_EQ(net_udp_client(&receiver), 0);
    ASSERT_EQ(net_bind(&receiver, "192.168.1.5", 7005), 0);
    ASSERT_EQ(net_udp_client(&sender), 0);
    for (uint8_t i = 0; i < 200; ++i) {
        uint8_t got = 0;
        EXPECT_EQ(net_sendto_fd(sender.sockfd, &i, 1, "192.168.1.5", 7005), 1);
        EXPECT_GE(
            i % 2 == 0 ? net_read_timeout(&receiver, 10'000) : net_wait_readable(receiver.sockfd, 10'000), 1);
        EXPECT_GE(net_write_timeout(&sender, 10'000), 1);
        EXPECT_GE(net_wait_writeable(sender.sockfd, 10'000), 1);
        EXPECT_EQ(net_recvfrom(&receiver, &got, 1), 1);
        EXPECT_EQ(got, i);
        EXPECT_EQ(net_sendto_peer(&receiver, &i, 1), 1) << "to where it came from";
        EXPECT_EQ(net_recv_timedwait(&sender, &got, 1, 10'000), 1);
    }
    (void)net_close(&receiver);
    (void)net_close(&sender);
}

TEST(SignalStorm, DoesNotKeepAReceiverFromWhatComesLater) {
    const signal_storm storm;
    connected_pair pair{SOCK_DGRAM};
    const long before = g_handled;
    std::thread sender([&] {
        (void)wait_until([before] { return g_handled > before + 200; });
        EXPECT_EQ(net_send(&pair.left, "x", 1), 1);
    });
    char got = 0;
    EXPECT_EQ(net_recv(&pair.right, &got, 1), 1); // interrupted all the time until then
    sender.join();
    EXPECT_EQ(got, 'x');
}
