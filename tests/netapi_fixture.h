/**
 * @file
 * What the tests of the socket layer share: sockets of the test's own, made without the layer, and questions
 * about them.
 */
#ifndef NETAPI_FIXTURE_H
#define NETAPI_FIXTURE_H

#include "utils/netapi.h"

#include "faults.h"
#include "log_capture.h"
#include "vision_log.h"
#include "wait.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <ostream>
#include <string>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

using faults::call;

constexpr char k_loopback[] = "127.0.0.1";
constexpr int k_all = faults::k_forever;

class NetapiTest : public testing::Test {
protected:
    void SetUp() override {
        faults::clear();
        logs::clear();
    }
    void TearDown() override {
        faults::clear();
        logs::on_line({});
    }

    /// The one line that was logged, whole.
    static void expect_one_line(const std::string &function, const std::string &format,
                                const std::string &text) {
        const auto lines = logs::all();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].module, MODULE_MSG_ROUTE);
        EXPECT_EQ(lines[0].level, VISION_LOG_LEVEL_INFO);
        EXPECT_EQ(lines[0].unit, "src/utils/netapi");
        EXPECT_EQ(lines[0].function, function);
        EXPECT_EQ(lines[0].format, format);
        EXPECT_EQ(lines[0].text, text);
    }
    static void expect_one_line(const std::string &function, const std::string &format) {
        expect_one_line(function, format, format);
    }
};

/// The address a socket is bound to.
inline sockaddr_in own_address(int fd) {
    sockaddr_in addr{};
    socklen_t len = sizeof addr;
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&addr), &len), 0);
    return addr;
}

inline unsigned short port_of(int fd) {
    return ntohs(own_address(fd).sin_port);
}

inline std::string ip_of(const sockaddr_in &addr) {
    char text[INET_ADDRSTRLEN] = {};
    return inet_ntop(AF_INET, &addr.sin_addr, text, sizeof text);
}

/// The peer that an object holds, as an IPv4 address.
inline sockaddr_in peer_of(const net_sockfd_t &sock) {
    sockaddr_in addr{};
    memcpy(&addr, &sock.remote_addr, sizeof addr);
    return addr;
}

inline bool is_nonblocking(int fd) {
    return (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0;
}

inline bool is_open(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

inline int int_option(int fd, int level, int name) {
    int value = -12345;
    socklen_t len = sizeof value;
    EXPECT_EQ(getsockopt(fd, level, name, &value, &len), 0);
    return value;
}

/// A socket bound to a free port of the loopback address.
class bound_socket {
public:
    explicit bound_socket(int type) : fd_(socket(AF_INET, type, 0)) {
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr *>(&addr), sizeof addr), 0);
    }
    ~bound_socket() { (void)close(fd_); }
    bound_socket(const bound_socket &) = delete;
    bound_socket &operator=(const bound_socket &) = delete;

    int fd() const { return fd_; }
    unsigned short port() const { return port_of(fd_); }

    /// The next datagram, or what a peer sends on a stream.
    std::string received() const {
        std::array<char, 2048> buf{};
        const ssize_t len = recv(fd_, buf.data(), buf.size(), 0);
        return len < 0 ? "recv failed" : std::string(buf.data(), static_cast<size_t>(len));
    }

private:
    int fd_;
};

/// A TCP listener with room for `backlog` connections that nobody has accepted.
class tcp_listener : public bound_socket {
public:
    explicit tcp_listener(int backlog = 5) : bound_socket(SOCK_STREAM) {
        EXPECT_EQ(listen(fd(), backlog), 0);
    }
};

/// Two connected sockets: the near one in an object for the layer, the far one bare.
class connected_pair {
public:
    explicit connected_pair(int type = SOCK_STREAM) {
        int fds[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, type, 0, fds), 0);
        near.sockfd = fds[0];
        far = fds[1];
    }
    ~connected_pair() {
        (void)close(near.sockfd);
        close_far();
    }
    connected_pair(const connected_pair &) = delete;
    connected_pair &operator=(const connected_pair &) = delete;

    void close_far() {
        if (far != -1) {
            (void)close(far);
            far = -1;
        }
    }
    void make_nonblocking() const { EXPECT_EQ(fcntl(near.sockfd, F_SETFL, O_NONBLOCK), 0); }

    /// Fills what the near end may send, so that it can send no more.
    void fill() const {
        const std::string bytes(4096, 'f');
        while (send(near.sockfd, bytes.data(), bytes.size(), MSG_DONTWAIT) > 0) {
        }
    }

    /// Reads at the far end until nothing is there.
    void drain() const {
        std::array<char, 4096> bytes{};
        while (recv(far, bytes.data(), bytes.size(), MSG_DONTWAIT) > 0) {
        }
    }

    /// Reads `len` bytes at the far end.
    std::string read_far(size_t len) const {
        std::string bytes(len, '\0');
        const ssize_t got = recv(far, bytes.data(), len, MSG_WAITALL);
        bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
        return bytes;
    }

    net_sockfd_t near{-1, {}};
    int far = -1;
};

/// The same open file under a number that a descriptor set has no place for.
inline int high_duplicate(int fd) {
    rlimit limit{};
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, FD_SETSIZE + 64);
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    const int high = fcntl(fd, F_DUPFD, FD_SETSIZE);
    EXPECT_GE(high, FD_SETSIZE);
    return high;
}

/// A new directory, which is the working directory while this lives.
class scratch_directory {
public:
    scratch_directory() {
        std::string name = (std::filesystem::temp_directory_path() / "netapi_XXXXXX").string();
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        here_ = name;
        std::filesystem::current_path(here_);
    }
    ~scratch_directory() {
        std::error_code ignored;
        std::filesystem::current_path(before_, ignored);
        std::filesystem::remove_all(here_, ignored);
    }
    scratch_directory(const scratch_directory &) = delete;
    scratch_directory &operator=(const scratch_directory &) = delete;

private:
    std::filesystem::path before_ = std::filesystem::current_path();
    std::filesystem::path here_;
};

/// A local socket bound to a path, or to no path when it is empty.
inline int local_socket(int type, const std::string &path) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    memcpy(addr.sun_path, path.data(), std::min(path.size(), sizeof addr.sun_path));
    const int fd = socket(AF_UNIX, type, 0);
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&addr), sizeof addr), 0);
    return fd;
}

inline double seconds_taken(const std::function<void()> &work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Expects that between the tries of a system call lies a millisecond, not less and not much more.
inline void expect_millisecond_pauses(call which, const std::function<void()> &work) {
    faults::fail(which, EINTR, 100);
    const double taken = seconds_taken(work);
    EXPECT_GE(taken, 0.1);
    EXPECT_LT(taken, 5.0); // a busy machine takes longer than it should, but not fifty times as long
    EXPECT_EQ(faults::calls(call::usleep), 100);
}

#endif
