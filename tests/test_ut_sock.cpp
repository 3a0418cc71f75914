// Addresses as text, addresses of real sockets, and the options.
#include "utils/ut_sock.h"

#include "addresses.h"
#include "faults.h"
#include "log_capture.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <ostream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// A descriptor that closes itself.
struct descriptor {
    explicit descriptor(int number) : fd(number) { EXPECT_GE(fd, 0); }
    ~descriptor() { close(fd); }
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
    int fd;
};

descriptor udp() {
    return descriptor{socket(AF_INET, SOCK_DGRAM, 0)};
}
descriptor tcp() {
    return descriptor{socket(AF_INET, SOCK_STREAM, 0)};
}

int option(int fd, int level, int name) {
    int value = -1;
    socklen_t len = sizeof value;
    EXPECT_EQ(getsockopt(fd, level, name, &value, &len), 0);
    return value;
}

std::string temporary_path(const char *name) {
    return testing::TempDir() + name + "." + std::to_string(getpid());
}

} // namespace

TEST(UtSockAddr, HasItsFieldsInTheAgreedOrder) {
    EXPECT_EQ(offsetof(ut_addr_t, family), 0U);
    EXPECT_EQ(offsetof(ut_addr_t, addrlen), 4U);
    EXPECT_EQ(offsetof(ut_addr_t, in), 8U);
    EXPECT_EQ(offsetof(ut_addr_t, in6), 8U);
    EXPECT_EQ(offsetof(ut_addr_t, un), 8U);
}

// Addresses as text.

TEST(UtSockText, AnIPv4AddressWithItsPort) {
    ut_addr_t addr = ipv4("10.0.0.1", 80);
    EXPECT_STREQ(ut_sock_human_addr(&addr), "10.0.0.1:80");
    EXPECT_STREQ(ut_sock_ip(&addr), "10.0.0.1");
}

TEST(UtSockText, AnIPv6AddressWithItsPort) {
    ut_addr_t addr = ipv6("fe80::1:2", 65535);
    EXPECT_STREQ(ut_sock_human_addr(&addr), "fe80::1:2:65535");
    EXPECT_STREQ(ut_sock_ip(&addr), "fe80::1:2");
}

TEST(UtSockText, TheLongestIPv6AddressFits) {
    ut_addr_t addr = ipv6("1111:2222:3333:4444:5555:6666:7777:8888", 12345);
    EXPECT_STREQ(ut_sock_human_addr(&addr), "1111:2222:3333:4444:5555:6666:7777:8888:12345");
    EXPECT_STREQ(ut_sock_ip(&addr), "1111:2222:3333:4444:5555:6666:7777:8888");
}

TEST(UtSockText, ALocalAddressWithItsPathButWithoutAnIp) {
    ut_addr_t addr = local("/tmp/s");
    EXPECT_STREQ(ut_sock_human_addr(&addr), "unix:/tmp/s");
    EXPECT_STREQ(ut_sock_ip(&addr), "");
}

TEST(UtSockText, AZeroedAddressIsEmpty) {
    ut_addr_t addr = cleared();
    EXPECT_STREQ(ut_sock_human_addr(&addr), "");
    EXPECT_STREQ(ut_sock_ip(&addr), "");
}

TEST(UtSockText, TheFamilyFieldCountsAndNotTheOneInTheUnion) {
    ut_addr_t addr = ipv4("10.0.0.1", 80);
    addr.family = AF_UNSPEC;
    EXPECT_STREQ(ut_sock_human_addr(&addr), "");
    addr.family = AF_INET;
    addr.in.sin_family = AF_UNIX;
    EXPECT_STREQ(ut_sock_human_addr(&addr), "10.0.0.1:80");
}

TEST(UtSockText, APathWithoutAnEndIsTakenUpToTheEndOfItsField) {
    ut_addr_t addr = cleared();
    addr.family = AF_UNIX;
    memset(addr.un.sun_path, 'p', sizeof addr.un.sun_path);
    EXPECT_EQ(ut_sock_human_addr(&addr), "unix:" + std::string(108, 'p'));
}

TEST(UtSockText, TheStaticBuffersAreUsedAgain) {
    ut_addr_t first = ipv4("10.0.0.1", 80);
    ut_addr_t second = ipv4("10.0.0.2", 81);
    const char *human = ut_sock_human_addr(&first);
    const char *ip = ut_sock_ip(&first);
    EXPECT_EQ(ut_sock_human_addr(&second), human);
    EXPECT_EQ(ut_sock_ip(&second), ip);
    EXPECT_STREQ(human, "10.0.0.2:81");
    EXPECT_STREQ(ip, "10.0.0.2");
}

TEST(UtSockText, TheCallersBuffersAreReturnedAndNotMixedUpWithTheStaticOnes) {
    ut_addr_t shown = ipv4("10.0.0.1", 80);
    ut_addr_t kept = ipv4("10.0.0.2", 81);
    const char *human = ut_sock_human_addr(&shown);
    const char *ip = ut_sock_ip(&shown);
    char human_s[UT_SOCK_HUMAN_ADDR_SIZE];
    char ip_s[UT_SOCK_IP_SIZE];
    EXPECT_EQ(ut_sock_human_addr_s(&kept, human_s), human_s);
    EXPECT_EQ(ut_sock_ip_s(&kept, ip_s), ip_s);
    EXPECT_STREQ(human_s, "10.0.0.2:81");
    EXPECT_STREQ(ip_s, "10.0.0.2");
    EXPECT_STREQ(human, "10.0.0.1:80");
    EXPECT_STREQ(ip, "10.0.0.1");
}

// The mode of a local socket.

TEST(UtSockSetMode, ChangesTheFileOfALocalAddress) {
    const std::string path = temporary_path("ut_sock_mode");
    const descriptor file{open(path.c_str(), O_CREAT | O_RDWR, 0600)};
    ut_addr_t addr = local(path);
    EXPECT_EQ(ut_sock_set_mode(&addr, 0640), 0);
    struct stat now {};
    EXPECT_EQ(fstat(file.fd, &now), 0);
    EXPECT_EQ(now.st_mode & 07777U, 0640U);
    (void)unlink(path.c_str());
}

TEST(UtSockSetMode, OfAFileThatIsNotThereGivesWhatChmodGives) {
    ut_addr_t addr = local("/nowhere/at/all");
    errno = 0;
    EXPECT_EQ(ut_sock_set_mode(&addr, 0640), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(UtSockSetMode, OfAnotherFamilyDoesNothing) {
    ut_addr_t addr = ipv4("10.0.0.1", 80);
    EXPECT_EQ(ut_sock_set_mode(&addr, 0640), 0);
    ut_addr_t zero = cleared();
    EXPECT_EQ(ut_sock_set_mode(&zero, 0640), 0);
    EXPECT_EQ(faults::calls(faults::call::chmod), 0);
}

TEST(UtSockSetMode, APathWithoutAnEndIsTakenUpToTheEndOfItsField) {
    ut_addr_t addr = cleared();
    addr.family = AF_UNIX;
    memset(addr.un.sun_path, 'p', sizeof addr.un.sun_path);
    EXPECT_EQ(ut_sock_set_mode(&addr, 0640), -1);
    EXPECT_EQ(errno, ENOENT);
}

// Addresses of sockets.

TEST(UtSockNames, OfAnIPv4Socket) {
    const descriptor fd = udp();
    ut_addr_t to = ipv4("192.168.1.5", 9000);
    ASSERT_EQ(connect(fd.fd, reinterpret_cast<sockaddr *>(&to.in), to.addrlen), 0);
    ut_addr_t peer = scribbled();
    EXPECT_EQ(ut_sock_peer_addr(fd.fd, &peer), 0);
    EXPECT_EQ(peer.family, static_cast<unsigned>(AF_INET));
    EXPECT_EQ(peer.addrlen, 16U);
    EXPECT_STREQ(ut_sock_human_addr(&peer), "192.168.1.5:9000");
    ut_addr_t host = scribbled();
    EXPECT_EQ(ut_sock_host_addr(fd.fd, &host), 0);
    EXPECT_EQ(host.family, static_cast<unsigned>(AF_INET));
    EXPECT_EQ(host.addrlen, 16U);
    EXPECT_NE(host.in.sin_port, 0);
}

TEST(UtSockNames, OfAnIPv6Socket) {
    const descriptor fd{socket(AF_INET6, SOCK_DGRAM, 0)};
    ut_addr_t to = ipv6("::1", 9000);
    ASSERT_EQ(connect(fd.fd, reinterpret_cast<sockaddr *>(&to.in6), to.addrlen), 0);
    ut_addr_t peer = scribbled();
    EXPECT_EQ(ut_sock_peer_addr(fd.fd, &peer), 0);
    EXPECT_EQ(peer.family, static_cast<unsigned>(AF_INET6));
    EXPECT_EQ(peer.addrlen, 28U);
    EXPECT_STREQ(ut_sock_human_addr(&peer), "::1:9000");
}

TEST(UtSockNames, OfALocalSocketWithTheLengthThatTheSystemTells) {
    const std::string path = temporary_path("s");
    const descriptor fd{socket(AF_UNIX, SOCK_DGRAM, 0)};
    ut_addr_t at = local(path);
    ASSERT_EQ(bind(fd.fd, reinterpret_cast<sockaddr *>(&at.un), at.addrlen), 0);
    ut_addr_t host = scribbled();
    EXPECT_EQ(ut_sock_host_addr(fd.fd, &host), 0);
    EXPECT_EQ(host.family, static_cast<unsigned>(AF_UNIX));
    EXPECT_EQ(host.addrlen, sizeof(sa_family_t) + path.size() + 1);
    EXPECT_EQ(ut_sock_human_addr(&host), "unix:" + path);
    (void)unlink(path.c_str());
}

TEST(UtSockNames, OfALocalSocketWithoutANameHaveAnEmptyPath) {
    const descriptor fd{socket(AF_UNIX, SOCK_DGRAM, 0)};
    ut_addr_t host = scribbled();
    EXPECT_EQ(ut_sock_host_addr(fd.fd, &host), 0);
    EXPECT_EQ(host.family, static_cast<unsigned>(AF_UNIX));
    EXPECT_EQ(host.addrlen, sizeof(sa_family_t));
    EXPECT_STREQ(ut_sock_human_addr(&host), "unix:");
}

TEST(UtSockNames, OfALocalSocketWhosePathFillsItsFieldAreCutNowhere) {
    const std::string path = std::string(108, 'p'); // no room for a NUL, which the system adds for itself
    ut_addr_t at = cleared();
    at.un.sun_family = AF_UNIX;
    memcpy(at.un.sun_path, path.data(), path.size());
    const descriptor fd{socket(AF_UNIX, SOCK_DGRAM, 0)};
    ASSERT_EQ(chdir(testing::TempDir().c_str()), 0);
    (void)unlink(path.c_str());
    ASSERT_EQ(bind(fd.fd, reinterpret_cast<sockaddr *>(&at.un), 110), 0);
    ut_addr_t host = scribbled();
    EXPECT_EQ(ut_sock_host_addr(fd.fd, &host), 0);
    EXPECT_EQ(host.addrlen, 111U);
    EXPECT_EQ(ut_sock_human_addr(&host), "unix:" + path);
    (void)unlink(path.c_str());
}

TEST(UtSockNames, ASocketThatIsNotConnectedHasNoPeer) {
    const descriptor fd = udp();
    ut_addr_t addr = scribbled();
    errno = 0;
    EXPECT_EQ(ut_sock_peer_addr(fd.fd, &addr), -1);
    EXPECT_EQ(errno, ENOTCONN);
    ut_addr_t expected = scribbled();
    expected.addrlen = 110;
    EXPECT_EQ(bytes_of(addr), bytes_of(expected));
}

TEST(UtSockNames, ADescriptorThatIsNotOpenHasNone) {
    ut_addr_t addr = cleared();
    errno = 0;
    EXPECT_EQ(ut_sock_host_addr(-1, &addr), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(addr.addrlen, 110U);
}

TEST(UtSockNames, WhatTheSystemRefusesIsPassedOn) {
    const descriptor fd = udp();
    ut_addr_t addr = cleared();
    faults::fail(faults::call::getpeername, ENOBUFS, 1);
    EXPECT_EQ(ut_sock_peer_addr(fd.fd, &addr), -1);
    EXPECT_EQ(errno, ENOBUFS);
    faults::fail(faults::call::getsockname, ENOBUFS, 1);
    EXPECT_EQ(ut_sock_host_addr(fd.fd, &addr), -1);
    EXPECT_EQ(errno, ENOBUFS);
}

// Pending errors.

TEST(UtSockErrno, IsZeroWhenNothingIsPending) {
    const descriptor fd = udp();
    EXPECT_EQ(ut_sock_errno(fd.fd), 0);
}

TEST(UtSockErrno, IsThePendingErrorAndAskingClearsIt) {
    const descriptor fd = udp();
    ut_addr_t nobody = ipv4("127.0.0.1", 1);
    ASSERT_EQ(connect(fd.fd, reinterpret_cast<sockaddr *>(&nobody.in), nobody.addrlen), 0);
    ASSERT_EQ(send(fd.fd, "x", 1, 0), 1); // the loopback device says at once that nobody is there
    EXPECT_EQ(ut_sock_errno(fd.fd), ECONNREFUSED);
    EXPECT_EQ(ut_sock_errno(fd.fd), 0);
}

TEST(UtSockErrno, IsTheReasonWhenAskingFails) {
    EXPECT_EQ(ut_sock_errno(-1), EBADF);
}

TEST(UtSockErrno, Is77WhenAskingFailsWithoutAReason) {
    const descriptor fd = udp();
    faults::fail(faults::call::getsockopt, 0, 1);
    EXPECT_EQ(ut_sock_errno(fd.fd), 77);
}

// Options.

TEST(UtSockOptions, TheSendBufferIsSetAndRead) {
    const descriptor fd = udp();
    EXPECT_EQ(ut_sock_set_send_buf(fd.fd, 20000), 0);
    int size = 0;
    EXPECT_EQ(ut_sock_get_send_buf(fd.fd, &size), 0);
    EXPECT_EQ(size, option(fd.fd, SOL_SOCKET, SO_SNDBUF));
    EXPECT_EQ(size, 2 * 20000); // the system doubles it
    EXPECT_NE(option(fd.fd, SOL_SOCKET, SO_RCVBUF), size);
}

TEST(UtSockOptions, TheReceiveBufferIsSetAndRead) {
    const descriptor fd = udp();
    EXPECT_EQ(ut_sock_set_recv_buf(fd.fd, 20000), 0);
    int size = 0;
    EXPECT_EQ(ut_sock_get_recv_buf(fd.fd, &size), 0);
    EXPECT_EQ(size, option(fd.fd, SOL_SOCKET, SO_RCVBUF));
    EXPECT_EQ(size, 2 * 20000);
    EXPECT_NE(option(fd.fd, SOL_SOCKET, SO_SNDBUF), size);
}

TEST(UtSockOptions, ReuseOfTheAddressIsSet) {
    const descriptor fd = tcp();
    ASSERT_EQ(option(fd.fd, SOL_SOCKET, SO_REUSEADDR), 0);
    EXPECT_EQ(ut_sock_set_reuse_addr(fd.fd), 0);
    EXPECT_EQ(option(fd.fd, SOL_SOCKET, SO_REUSEADDR), 1);
}

TEST(UtSockOptions, SendingAtOnceIsSet) {
    const descriptor fd = tcp();
    ASSERT_EQ(option(fd.fd, IPPROTO_TCP, TCP_NODELAY), 0);
    EXPECT_EQ(ut_sock_set_no_delay(fd.fd), 0);
    EXPECT_EQ(option(fd.fd, IPPROTO_TCP, TCP_NODELAY), 1);
}

TEST(UtSockOptions, SendingAtOnceIsRefusedWithoutTcp) {
    const descriptor fd = udp();
    EXPECT_EQ(ut_sock_set_no_delay(fd.fd), -1);
}

TEST(UtSockOptions, NonBlockingIsAddedToTheOtherFlags) {
    const descriptor fd = tcp();
    ASSERT_EQ(fcntl(fd.fd, F_SETFL, O_APPEND), 0);
    EXPECT_EQ(ut_sock_set_nonblock(fd.fd), 0);
    EXPECT_EQ(fcntl(fd.fd, F_GETFL) & (O_NONBLOCK | O_APPEND), O_NONBLOCK | O_APPEND);
    EXPECT_EQ(ut_sock_set_nonblock(fd.fd), 0); // twice does no harm
}

TEST(UtSockOptions, NonBlockingFailsWhenTheFlagsCannotBeWritten) {
    const descriptor fd = tcp();
    faults::fail(faults::call::fcntl, EPERM, 1, 1);
    EXPECT_EQ(ut_sock_set_nonblock(fd.fd), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(fcntl(fd.fd, F_GETFL) & O_NONBLOCK, 0);
}

struct option_call {
    const char *name;
    int (*call)(int sockfd);
    friend void PrintTo(const option_call &row, std::ostream *out) { *out << row.name; }
};

class UtSockBadDescriptor : public testing::TestWithParam<option_call> {};

TEST_P(UtSockBadDescriptor, IsRefusedWithTheSystemsReason) {
    errno = 0;
    EXPECT_EQ(GetParam().call(-1), -1);
    EXPECT_EQ(errno, EBADF);
}

constexpr int k_some_size = 4096;

INSTANTIATE_TEST_SUITE_P(
    Options, UtSockBadDescriptor,
    testing::Values(option_call{"SetSendBuf", [](int fd) { return ut_sock_set_send_buf(fd, k_some_size); }},
                    option_call{"SetRecvBuf", [](int fd) { return ut_sock_set_recv_buf(fd, k_some_size); }},
                    option_call{"GetSendBuf",
                                [](int fd) {
                                    int size = k_untouched;
                                    const int result = ut_sock_get_send_buf(fd, &size);
                                    return size == k_untouched ? result : 0;
                                }},
                    option_call{"GetRecvBuf",
                                [](int fd) {
                                    int size = k_untouched;
                                    const int result = ut_sock_get_recv_buf(fd, &size);
                                    return size == k_untouched ? result : 0;
                                }},
                    option_call{"SetNonblock", ut_sock_set_nonblock},
                    option_call{"SetNoDelay", ut_sock_set_no_delay},
                    option_call{"SetReuseAddr", ut_sock_set_reuse_addr}),
    [](const auto &row) { return row.param.name; });

TEST(UtSock, NeverLogs) {
    ut_addr_t addr = local("/nowhere/at/all");
    int value = 0;
    (void)ut_sock_cfg_parse("raw@nothing", &addr, &value);
    (void)ut_sock_cfg_parse("udp@localhost:1", &addr, &value);
    (void)ut_sock_addr_fill_unix(&addr, "/nowhere/at/all");
    (void)ut_sock_set_mode(&addr, 0);
    (void)ut_sock_peer_addr(-1, &addr);
    (void)ut_sock_errno(-1);
    (void)ut_sock_get_send_buf(-1, &value);
    (void)ut_sock_set_nonblock(-1);
    (void)ut_sock_set_no_delay(-1);
    EXPECT_TRUE(logs::all().empty());
}
