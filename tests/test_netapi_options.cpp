// Blocking modes, socket options, multicast, interface queries.
#include "netapi_fixture.h"

#include <cstdlib>
#include <netinet/tcp.h>

class NetapiOptions : public NetapiTest {
protected:
    void SetUp() override {
        NetapiTest::SetUp();
        sock.sockfd = socket(AF_INET, SOCK_DGRAM, 0);
        ASSERT_GE(sock.sockfd, 0);
    }
    void TearDown() override {
        NetapiTest::TearDown();
        (void)net_close(&sock);
    }
    int option(int level, int name) const { return int_option(sock.sockfd, level, name); }

    net_sockfd_t sock{-1, {}};
};

TEST_F(NetapiOptions, TheBlockingModeIsSwitched) {
    EXPECT_EQ(net_set_socket_noblock(&sock), 1);
    EXPECT_TRUE(is_nonblocking(sock.sockfd));
    EXPECT_EQ(net_set_socket_noblock(&sock), 1);
    EXPECT_TRUE(is_nonblocking(sock.sockfd));
    EXPECT_EQ(net_set_socket_block(&sock), 1);
    EXPECT_FALSE(is_nonblocking(sock.sockfd));
    EXPECT_EQ(net_set_fd_noblock(sock.sockfd), 1);
    EXPECT_TRUE(is_nonblocking(sock.sockfd));
}

TEST_F(NetapiOptions, TheOtherFlagsStayWhenTheModeIsSwitched) {
    int fds[2] = {-1, -1};
    ASSERT_EQ(pipe(fds), 0);
    ASSERT_EQ(fcntl(fds[1], F_SETFL, O_APPEND), 0);
    net_sockfd_t end{fds[1], {}};
    EXPECT_EQ(net_set_fd_noblock(fds[1]), 1);
    EXPECT_EQ(fcntl(fds[1], F_GETFL) & (O_APPEND | O_NONBLOCK), O_APPEND | O_NONBLOCK);
    EXPECT_EQ(net_set_socket_block(&end), 1);
    EXPECT_EQ(fcntl(fds[1], F_GETFL) & (O_APPEND | O_NONBLOCK), O_APPEND);
    EXPECT_EQ(close(fds[0]), 0);
    EXPECT_EQ(net_close(&end), 0);
}

TEST_F(NetapiOptions, AModeThatCannotBeSetIsZero) {
    const std::function<int()> setters[] = {[&] { return net_set_socket_noblock(&sock); },
                                            [&] { return net_set_fd_noblock(sock.sockfd); },
                                            [&] { return net_set_socket_block(&sock); }};
    for (const auto &set : setters) {
        faults::clear();
        faults::fail(call::fcntl, EPERM, k_all, 1); // the writing of the flags
        EXPECT_EQ(set(), 0);
        EXPECT_EQ(faults::calls(call::fcntl), 2);
        faults::clear();
        faults::fail(call::fcntl, EBADF, k_all); // already the reading: nothing may be written then
        EXPECT_EQ(set(), 0);
        EXPECT_EQ(faults::calls(call::fcntl), 1);
    }
    EXPECT_FALSE(is_nonblocking(sock.sockfd));
    EXPECT_EQ(net_set_fd_noblock(-1), 0);
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiOptions, AddressReuseIsSwitched) {
    EXPECT_EQ(net_set_reuse_addr(&sock, 1), 0);
    EXPECT_EQ(option(SOL_SOCKET, SO_REUSEADDR), 1);
    EXPECT_EQ(net_set_reuse_addr(&sock, 0), 0);
    EXPECT_EQ(option(SOL_SOCKET, SO_REUSEADDR), 0);
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiOptions, BufferSizesAreSetAndRead) {
    EXPECT_EQ(net_set_sendbuf_size(&sock, 20'000), 0);
    EXPECT_EQ(net_set_recvbuf_size(&sock, 30'000), 0);
    EXPECT_EQ(net_get_sendbuf_size(&sock), 40'000); // the system doubles what it is asked for
    EXPECT_EQ(net_get_recvbuf_size(&sock), 60'000);
    EXPECT_EQ(option(SOL_SOCKET, SO_SNDBUF), 40'000);
    EXPECT_EQ(option(SOL_SOCKET, SO_RCVBUF), 60'000);
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiOptions, AnOptionThatFailsIsLoggedUnderItsOperation) {
    faults::fail(call::setsockopt, ENOBUFS);
    faults::fail(call::getsockopt, ENOBUFS);
    struct row {
        const char *function;
        const char *text;
        std::function<int()> operation;
    };
    const row rows[] = {
        {"net_set_reuse_addr", "setsockopt(SO_REUSEADDR) error \n",
         [&] { return net_set_reuse_addr(&sock, 1); }},
        {"net_set_sendbuf_size", "SetSocketSendBufSize error \n",
         [&] { return net_set_sendbuf_size(&sock, 1); }},
        {"net_get_sendbuf_size", "GetSendBufferSize() error ", [&] { return net_get_sendbuf_size(&sock); }},
        {"net_set_recvbuf_size", "SetSocketRcvBufSize error \n",
         [&] { return net_set_recvbuf_size(&sock, 1); }},
        {"net_get_recvbuf_size", "GetRecvBufferSize() error ", [&] { return net_get_recvbuf_size(&sock); }},
    };
    for (const row &r : rows) {
        logs::clear();
        EXPECT_EQ(r.operation(), -1) << r.function;
        EXPECT_EQ(errno, ENOBUFS);
        expect_one_line(r.function, r.text);
    }
    EXPECT_EQ(faults::calls(call::setsockopt), 3);
    EXPECT_EQ(faults::calls(call::getsockopt), 2);
}

class NetapiKeepAlive : public NetapiTest {
protected:
    net_sockfd_t sock{socket(AF_INET, SOCK_STREAM, 0), {}};

    void TearDown() override {
        NetapiTest::TearDown();
        (void)net_close(&sock);
    }
    /// The four values, in the order in which they are set.
    std::array<int, 4> values() const {
        return {int_option(sock.sockfd, SOL_SOCKET, SO_KEEPALIVE),
                int_option(sock.sockfd, IPPROTO_TCP, TCP_KEEPIDLE),
                int_option(sock.sockfd, IPPROTO_TCP, TCP_KEEPINTVL),
                int_option(sock.sockfd, IPPROTO_TCP, TCP_KEEPCNT)};
    }
};

TEST_F(NetapiKeepAlive, AllFourOptionsAreSet) {
    EXPECT_EQ(net_set_keep_alive_time(&sock, 77), 0U);
    EXPECT_EQ(values(), (std::array{1, 77, 10, 3}));
    EXPECT_EQ(faults::calls(call::setsockopt), 4);
}

TEST_F(NetapiKeepAlive, TheOptionsAreSetInOrderAndEachIsTried) {
    const std::array before = values();
    const std::array wanted{1, 77, 10, 3};
    for (size_t failing = 0; failing < wanted.size(); ++failing) {
        (void)net_close(&sock);
        sock.sockfd = socket(AF_INET, SOCK_STREAM, 0);
        faults::clear();
        faults::fail(call::setsockopt, EPERM, 1, static_cast<int>(failing));
        EXPECT_EQ(net_set_keep_alive_time(&sock, 77), UINT_MAX); // -1
        std::array expected = wanted;
        expected[failing] = before[failing];
        EXPECT_EQ(values(), expected);
        EXPECT_EQ(faults::calls(call::setsockopt), 4);
    }
}

TEST_F(NetapiKeepAlive, TheResultIsTheSumOfTheFailures) {
    faults::fail(call::setsockopt, EPERM, 2, 1);
    EXPECT_EQ(static_cast<int>(net_set_keep_alive_time(&sock, 77)), -2);
    faults::fail(call::setsockopt, EPERM);
    EXPECT_EQ(static_cast<int>(net_set_keep_alive_time(&sock, 77)), -4);
    EXPECT_EQ(faults::calls(call::setsockopt), 8);
    EXPECT_TRUE(logs::all().empty());
}

class NetapiMulticast : public NetapiOptions {};

TEST_F(NetapiMulticast, EveryGroupAddressIsPassedToTheSystem) {
    for (const char *group : {"239.1.2.3", "224.0.0.0", "224.0.0.1", "239.255.255.255"}) {
        faults::clear();
        EXPECT_EQ(mcast_join(&sock, group), 0) << group;
        EXPECT_EQ(net_mcast_leave(&sock, group), 0) << group;
        EXPECT_EQ(faults::calls(call::setsockopt), 2);
    }
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiMulticast, AnythingElseIsRefused) {
    constexpr char text[] = "address is not multicast address \n";
    for (const char *group : {"192.168.1.1", "223.255.255.255", "240.0.0.0", "0.0.0.0", "255.255.255.255",
                              "no address", "", "239.1.2", static_cast<const char *>(nullptr)}) {
        logs::clear();
        EXPECT_EQ(mcast_join(&sock, group), -1);
        EXPECT_EQ(errno, EINVAL);
        expect_one_line("mcast_join", text);
        logs::clear();
        EXPECT_EQ(net_mcast_leave(&sock, group), -1);
        expect_one_line("net_mcast_leave", text);
    }
    EXPECT_EQ(faults::calls(call::setsockopt), 0);
}

TEST_F(NetapiMulticast, TheSystemsRefusalIsTheResultWithoutALogLine) {
    EXPECT_EQ(net_mcast_leave(&sock, "239.1.2.3"), -1); // never joined
    EXPECT_EQ(errno, EADDRNOTAVAIL);
    EXPECT_EQ(mcast_join(&sock, "239.1.2.3"), 0);
    EXPECT_EQ(mcast_join(&sock, "239.1.2.3"), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    faults::fail(call::setsockopt, ENODEV);
    EXPECT_EQ(net_set_multicast_loop(&sock), -1);
    EXPECT_EQ(net_bcast_join(&sock), -1);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiMulticast, AMemberHearsTheGroupUntilItLeaves) {
    ASSERT_EQ(net_bind(&sock, nullptr, 0), 0);
    ASSERT_EQ(mcast_join(&sock, "239.1.2.3"), 0);
    net_sockfd_t sender{-1, {}};
    ASSERT_EQ(net_udp_client(&sender), 0);
    ASSERT_EQ(net_set_multicast_loop(&sender), 0);
    const unsigned short port = port_of(sock.sockfd);
    char text[8] = {};
    ASSERT_EQ(net_sendto(&sender, "group", 5, "239.1.2.3", port), 5);
    ASSERT_EQ(net_recv_timedwait(&sock, text, sizeof text, 10'000), 5);
    EXPECT_STREQ(text, "group");

    ASSERT_EQ(net_mcast_leave(&sock, "239.1.2.3"), 0);
    ASSERT_EQ(net_sendto(&sender, "group", 5, "239.1.2.3", port), 5);
    ASSERT_EQ(net_sendto(&sender, "alone", 5, k_loopback, port), 5);
    ASSERT_EQ(net_recv_timedwait(&sock, text, sizeof text, 10'000), 5);
    EXPECT_STREQ(text, "alone");
    EXPECT_EQ(net_close(&sender), 0);
}

TEST_F(NetapiMulticast, TheLoopIsSwitchedOn) {
    const int off = 0;
    ASSERT_EQ(setsockopt(sock.sockfd, IPPROTO_IP, IP_MULTICAST_LOOP, &off, sizeof off), 0);
    EXPECT_EQ(net_set_multicast_loop(&sock), 0);
    EXPECT_EQ(option(IPPROTO_IP, IP_MULTICAST_LOOP), 1);
}

TEST_F(NetapiMulticast, BroadcastIsAllowed) {
    EXPECT_EQ(option(SOL_SOCKET, SO_BROADCAST), 0);
    EXPECT_EQ(net_bcast_join(&sock), 0);
    EXPECT_EQ(option(SOL_SOCKET, SO_BROADCAST), 1);
}

class NetapiInterface : public NetapiTest {
protected:
    std::array<unsigned char, 8> mac{};

    void SetUp() override {
        NetapiTest::SetUp();
        mac.fill(0xEE);
    }
    bool mac_is_untouched() const {
        return mac == std::array<unsigned char, 8>{0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    }
};

TEST_F(NetapiInterface, TheHardwareAddressHasSixBytes) {
    ASSERT_EQ(system("ip link set dev lo address 02:13:24:35:46:57"), 0);
    EXPECT_EQ(net_get_hwaddr("lo", mac.data()), 0);
    EXPECT_EQ(mac, (std::array<unsigned char, 8>{0x02, 0x13, 0x24, 0x35, 0x46, 0x57, 0xEE, 0xEE}));
    EXPECT_EQ(faults::calls(call::socket), 1);
    EXPECT_EQ(faults::calls(call::ioctl), 1);
    EXPECT_EQ(faults::calls(call::close), 1);
}

TEST_F(NetapiInterface, TheAddressIsText) {
    EXPECT_STREQ(net_get_ifaddr("lo"), k_loopback);
    EXPECT_EQ(faults::calls(call::socket), 1);
    EXPECT_EQ(faults::calls(call::ioctl), 1);
    EXPECT_EQ(faults::calls(call::close), 1);
}

TEST_F(NetapiInterface, AnInterfaceThatIsNotThereHasNeither) {
    for (const char *name : {"nosuch0", "", "a_name_that_is_longer_than_any_interface"}) {
        EXPECT_EQ(net_get_hwaddr(name, mac.data()), -1);
        EXPECT_EQ(errno, ENODEV);
        EXPECT_EQ(net_get_ifaddr(name), nullptr);
        EXPECT_EQ(errno, ENODEV);
    }
    EXPECT_TRUE(mac_is_untouched());
    EXPECT_EQ(faults::calls(call::close), 6);
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiInterface, AFailedQuestionClosesItsSocketAndKeepsItsErrno) {
    faults::fail(call::ioctl, EADDRNOTAVAIL);
    faults::before(call::close, [] { errno = EXDEV; });
    EXPECT_EQ(net_get_hwaddr("lo", mac.data()), -1);
    EXPECT_EQ(errno, EADDRNOTAVAIL);
    EXPECT_EQ(net_get_ifaddr("lo"), nullptr);
    EXPECT_EQ(errno, EADDRNOTAVAIL);
    EXPECT_TRUE(mac_is_untouched());
    EXPECT_EQ(faults::calls(call::ioctl), 2);
    EXPECT_EQ(faults::calls(call::close), 2);
}

TEST_F(NetapiInterface, WithoutASocketNothingIsAsked) {
    faults::fail(call::socket, EMFILE);
    EXPECT_EQ(net_get_hwaddr("lo", mac.data()), -1);
    EXPECT_EQ(net_get_ifaddr("lo"), nullptr);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_TRUE(mac_is_untouched());
    EXPECT_EQ(faults::calls(call::ioctl) + faults::calls(call::close), 0);
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiInterface, NothingIsAskedWithoutANameOrAPlaceForTheAnswer) {
    EXPECT_EQ(net_get_hwaddr(nullptr, mac.data()), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(net_get_hwaddr("lo", nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(net_get_ifaddr(nullptr), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(faults::calls(call::socket), 0);
}
