// Connections, and the sockets that are made in several steps: servers and clients.
#include "emulator.h"
#include "netapi_fixture.h"

#include <netinet/tcp.h>

class NetapiConnect : public NetapiTest {
protected:
    net_sockfd_t sock{-1, {}};

    void open_stream() { ASSERT_GE(net_socket(&sock, AF_INET, SOCK_STREAM), 0); }
    void TearDown() override {
        NetapiTest::TearDown();
        (void)net_close(&sock);
    }

    /// A free port that nobody listens on.
    static unsigned short closed_port() { return bound_socket{SOCK_STREAM}.port(); }

    /// Expects that nothing is left of a socket that the layer opened.
    void expect_nothing_left() {
        EXPECT_EQ(sock.sockfd, -1);
        EXPECT_EQ(faults::calls(call::close), 1);
    }
};

TEST_F(NetapiConnect, AConnectionIsMadeAndCarriesBytes) {
    const tcp_listener listener;
    open_stream();
    ASSERT_EQ(net_connect(&sock, k_loopback, listener.port()), 0);
    const int conn = accept(listener.fd(), nullptr, nullptr);
    EXPECT_EQ(net_send(&sock, "hello", 5), 5);
    char text[8] = {};
    EXPECT_EQ(recv(conn, text, sizeof text, 0), 5);
    EXPECT_STREQ(text, "hello");
    EXPECT_EQ(close(conn), 0);
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiConnect, AnAddressThatDoesNotParseIsZeroAndReachesThisHost) {
    const tcp_listener listener;
    open_stream();
    EXPECT_EQ(net_connect(&sock, "no address", listener.port()), 0);
}

TEST_F(NetapiConnect, AConnectIsNotRetried) {
    open_stream();
    EXPECT_EQ(net_connect(&sock, k_loopback, closed_port()), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    faults::fail(call::connect, EINTR);
    EXPECT_EQ(net_connect(&sock, k_loopback, 1), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(faults::calls(call::connect), 2);
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiConnect, ATimedConnectWaitsForTheOutcome) {
    const tcp_listener listener;
    open_stream();
    ASSERT_EQ(net_set_socket_noblock(&sock), 1);
    EXPECT_EQ(net_connect_nonb(&sock, k_loopback, listener.port(), 5), 0);
    EXPECT_EQ(faults::calls(call::select), 1);
    EXPECT_TRUE(is_nonblocking(sock.sockfd));
}

TEST_F(NetapiConnect, AConnectThatSucceedsAtOnceIsNotWaitedFor) {
    const tcp_listener listener;
    open_stream(); // blocking: connect itself waits
    EXPECT_EQ(net_connect_nonb(&sock, k_loopback, listener.port(), 5), 0);
    EXPECT_EQ(faults::calls(call::select), 0);
    EXPECT_EQ(faults::calls(call::getsockopt), 0);
}

TEST_F(NetapiConnect, AnyFailureButInProgressEndsATimedConnect) {
    open_stream();
    for (const int error : {ECONNREFUSED, EINTR, EAGAIN}) {
        faults::fail(call::connect, error);
        EXPECT_EQ(net_connect_nonb(&sock, k_loopback, 1, 5), -1);
        EXPECT_EQ(errno, error);
    }
    EXPECT_EQ(faults::calls(call::connect), 3);
    EXPECT_EQ(faults::calls(call::select), 0);
}

TEST_F(NetapiConnect, ATimedConnectGivesUpAfterItsSeconds) {
    const tcp_listener full{0};
    net_sockfd_t first{-1, {}};
    ASSERT_EQ(net_tcp_connect_block(&first, k_loopback, full.port()), 0); // takes the one place
    open_stream();
    ASSERT_EQ(net_set_socket_noblock(&sock), 1);
    const double taken = seconds_taken([&] {
        EXPECT_EQ(net_connect_nonb(&sock, k_loopback, full.port(), 1), -1);
        EXPECT_EQ(errno, ETIMEDOUT);
    });
    EXPECT_GE(taken, 0.99);
    EXPECT_TRUE(is_open(sock.sockfd)); // the caller's to close
    EXPECT_EQ(net_connect_nonb(&sock, k_loopback, full.port(), 0), -1);
    EXPECT_EQ(net_close(&first), 0);
}

TEST_F(NetapiConnect, ThePendingErrorDecidesATimedConnect) {
    // A datagram to a closed port leaves an error on a connected socket, as a refused connection does.
    ASSERT_EQ(net_udp_client(&sock), 0);
    ASSERT_EQ(net_connect(&sock, k_loopback, bound_socket{SOCK_DGRAM}.port()), 0);
    ASSERT_EQ(send(sock.sockfd, "x", 1, 0), 1);
    faults::fail(call::connect, EINPROGRESS);
    EXPECT_EQ(net_connect_nonb(&sock, k_loopback, 1, 5), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_EQ(faults::calls(call::getsockopt), 1);
    EXPECT_EQ(net_connect_nonb(&sock, k_loopback, 1, 5), 0); // reading the error has cleared it
}

TEST_F(NetapiConnect, AnErrorStateThatCannotBeReadFailsATimedConnect) {
    const tcp_listener listener;
    open_stream();
    ASSERT_EQ(net_set_socket_noblock(&sock), 1);
    faults::fail(call::getsockopt, ENOBUFS);
    EXPECT_EQ(net_connect_nonb(&sock, k_loopback, listener.port(), 5), -1);
    EXPECT_EQ(errno, ENOBUFS);
}

TEST_F(NetapiConnect, AFailedWaitLeavesTheDecisionToTheErrorState) {
    open_stream();
    for (const int error : {EINTR, EAGAIN, ENOMEM}) {
        faults::clear();
        faults::fail(call::connect, EINPROGRESS);
        faults::fail(call::select, error);
        EXPECT_EQ(net_connect_nonb(&sock, k_loopback, 1, 5), 0);
        EXPECT_EQ(faults::calls(call::select), 1);
        EXPECT_EQ(faults::calls(call::getsockopt), 1);
    }
}

TEST_F(NetapiConnect, ATimedConnectRefusesADescriptorBeyondTheSet) {
    open_stream();
    net_sockfd_t high{high_duplicate(sock.sockfd), {}};
    faults::fail(call::connect, EINPROGRESS);
    EXPECT_EQ(net_connect_nonb(&high, k_loopback, 1, 5), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(faults::calls(call::select), 0);
    EXPECT_EQ(net_close(&high), 0);
}

TEST_F(NetapiConnect, ABlockingTcpClientConnects) {
    const tcp_listener listener;
    ASSERT_EQ(net_tcp_connect_block(&sock, k_loopback, listener.port()), 0);
    EXPECT_FALSE(is_nonblocking(sock.sockfd));
    EXPECT_EQ(int_option(sock.sockfd, SOL_SOCKET, SO_TYPE), SOCK_STREAM);
}

TEST_F(NetapiConnect, ATcpClientTakesThePortsLow16Bits) {
    const tcp_listener listener;
    const auto as_signed_short = static_cast<short>(listener.port());
    ASSERT_EQ(net_tcp_connect_block(&sock, k_loopback, as_signed_short), 0);
    EXPECT_EQ(net_close(&sock), 0);
    ASSERT_EQ(net_tcp_connect(&sock, k_loopback, as_signed_short, 5), 0);
}

TEST_F(NetapiConnect, ABlockingTcpClientThatFailsLeavesNothing) {
    EXPECT_EQ(net_tcp_connect_block(&sock, k_loopback, closed_port()), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    expect_nothing_left();
    faults::fail(call::socket, EMFILE);
    EXPECT_EQ(net_tcp_connect_block(&sock, k_loopback, 1), -1);
    EXPECT_EQ(faults::calls(call::connect), 1);
    expect_nothing_left();
    expect_one_line("net_socket", "socket : %s\n", "socket : Too many open files\n");
}

TEST_F(NetapiConnect, ATcpClientStaysNonBlocking) {
    const tcp_listener listener;
    ASSERT_EQ(net_tcp_connect(&sock, k_loopback, listener.port(), 5), 0);
    EXPECT_TRUE(is_nonblocking(sock.sockfd));
    EXPECT_EQ(int_option(sock.sockfd, SOL_SOCKET, SO_TYPE), SOCK_STREAM);
    EXPECT_EQ(faults::calls(call::connect), 1);
}

TEST_F(NetapiConnect, ATcpClientConnectsAlthoughItsModeCannotBeSet) {
    const tcp_listener listener;
    faults::fail(call::fcntl, EPERM);
    EXPECT_EQ(net_tcp_connect(&sock, k_loopback, listener.port(), 5), 0);
    EXPECT_FALSE(is_nonblocking(sock.sockfd));
}

TEST_F(NetapiConnect, ATcpClientThatFailsLeavesNothing) {
    EXPECT_EQ(net_tcp_connect(&sock, k_loopback, closed_port(), 5), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    expect_nothing_left();
    faults::fail(call::socket, ENFILE);
    EXPECT_EQ(net_tcp_connect(&sock, k_loopback, 1, 5), -1);
    EXPECT_EQ(errno, ENFILE);
    EXPECT_EQ(faults::calls(call::connect), 1);
    expect_nothing_left();
}

TEST_F(NetapiConnect, ATcpServerListensAtItsAddress) {
    ASSERT_EQ(net_tcp_server(&sock, k_loopback, 0, 0), 0);
    EXPECT_EQ(ip_of(own_address(sock.sockfd)), k_loopback);
    EXPECT_EQ(int_option(sock.sockfd, SOL_SOCKET, SO_REUSEADDR), 1);
}

TEST_F(NetapiConnect, ATcpServersBacklogIsFive) {
    SKIP_IN_EMULATOR("qemu-user passes four bytes of the kernel's TCP_INFO");
    ASSERT_EQ(net_tcp_server(&sock, k_loopback, 0, 0), 0);
    tcp_info info{};
    socklen_t len = sizeof info;
    ASSERT_EQ(getsockopt(sock.sockfd, IPPROTO_TCP, TCP_INFO, &info, &len), 0);
    EXPECT_EQ(info.tcpi_state, TCP_LISTEN);
    EXPECT_EQ(info.tcpi_sacked, 5U); // of a listener: the backlog
}

TEST_F(NetapiConnect, AServerAndAClientTalkOverTcp) {
    net_sockfd_t server{-1, {}};
    net_sockfd_t conn{-1, {}};
    ASSERT_EQ(net_tcp_server(&server, k_loopback, 0, 1), 0);
    ASSERT_EQ(net_tcp_connect(&sock, k_loopback, port_of(server.sockfd), 5), 0);
    ASSERT_EQ(net_read_timeout(&server, 5000), 1);
    ASSERT_GE(net_accept(&server, &conn), 0);
    timeval limit{5, 0};
    char text[16] = {};
    EXPECT_EQ(net_sendn(&sock, "question", 8), 8);
    EXPECT_EQ(net_recv(&conn, text, sizeof text), 8);
    EXPECT_STREQ(text, "question");
    EXPECT_EQ(net_send_timeout(&conn, "an answer", 9, &limit), 9);
    EXPECT_EQ(net_readn_timeout(&sock, text, sizeof text, 5000), 9);
    EXPECT_STREQ(text, "an answer");
    EXPECT_EQ(net_close(&conn), 0);
    EXPECT_EQ(net_recv_timedwait(&sock, text, sizeof text, 5000), 0);
    EXPECT_EQ(net_close(&server), 0);
}

TEST_F(NetapiConnect, TheBlockFlagOfATcpServerMakesItNonBlocking) {
    for (const int flag : {0, 1, -1, 256}) {
        ASSERT_EQ(net_tcp_server(&sock, nullptr, 0, flag), 0);
        EXPECT_EQ(is_nonblocking(sock.sockfd), flag != 0);
        EXPECT_EQ(net_close(&sock), 0);
    }
}

TEST_F(NetapiConnect, AServerSetsItsOptionsBeforeItBinds) {
    bool set = false;
    faults::before(call::bind, [&] {
        set = faults::calls(call::setsockopt) == 1 && faults::calls(call::fcntl) == 2 &&
              faults::calls(call::listen) == 0;
    });
    ASSERT_EQ(net_tcp_server(&sock, nullptr, 0, 1), 0);
    EXPECT_TRUE(set);
    EXPECT_EQ(net_close(&sock), 0);

    faults::clear();
    set = false;
    faults::before(call::bind,
                   [&] { set = faults::calls(call::setsockopt) == 1 && faults::calls(call::fcntl) == 2; });
    ASSERT_EQ(net_udp_server(&sock, nullptr, 0), 0);
    EXPECT_TRUE(set);
}

TEST_F(NetapiConnect, ATcpServerThatFailsLeavesNothing) {
    faults::fail(call::socket, EMFILE, 1);
    EXPECT_EQ(net_tcp_server(&sock, nullptr, 0, 1), -1);
    EXPECT_EQ(faults::calls(call::setsockopt) + faults::calls(call::close), 0);
    logs::clear();

    faults::fail(call::bind, EACCES, 1);
    EXPECT_EQ(net_tcp_server(&sock, nullptr, 0, 1), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(faults::calls(call::listen), 0);
    expect_nothing_left();
    expect_one_line("net_bind", "bind : %s\n", "bind : Permission denied\n");
    logs::clear();

    faults::fail(call::listen, EADDRINUSE, 1);
    EXPECT_EQ(net_tcp_server(&sock, nullptr, 0, 1), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    EXPECT_EQ(sock.sockfd, -1);
    EXPECT_EQ(faults::calls(call::close), 2);
    expect_one_line("net_listen", "listen : %s\n", "listen : Address already in use\n");
}

TEST_F(NetapiConnect, AServerServesWithoutTheOptionsThatCannotBeSet) {
    faults::fail(call::setsockopt, ENOBUFS);
    faults::fail(call::fcntl, EPERM);
    EXPECT_EQ(net_tcp_server(&sock, nullptr, 0, 1), 0);
    expect_one_line("net_set_reuse_addr", "setsockopt(SO_REUSEADDR) error \n");
    EXPECT_EQ(net_close(&sock), 0);
    EXPECT_EQ(net_udp_server(&sock, nullptr, 0), 0);
    EXPECT_EQ(logs::count("setsockopt(SO_REUSEADDR) error \n"), 2U);
}

TEST_F(NetapiConnect, AUdpServerIsBoundNonBlockingAndKnowsNoPeer) {
    memset(&sock, 0xA5, sizeof sock);
    ASSERT_EQ(net_udp_server(&sock, "192.168.1.1", 0), 0);
    EXPECT_EQ(ip_of(own_address(sock.sockfd)), "192.168.1.1");
    EXPECT_EQ(int_option(sock.sockfd, SOL_SOCKET, SO_TYPE), SOCK_DGRAM);
    EXPECT_EQ(int_option(sock.sockfd, SOL_SOCKET, SO_REUSEADDR), 1);
    EXPECT_TRUE(is_nonblocking(sock.sockfd));
    const sockaddr_storage zero{};
    EXPECT_EQ(memcmp(&sock.remote_addr, &zero, sizeof zero), 0);
}

TEST_F(NetapiConnect, AUdpServerThatFailsLeavesNothing) {
    faults::fail(call::bind, EADDRINUSE, 1);
    EXPECT_EQ(net_udp_server(&sock, nullptr, 0), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    expect_nothing_left();
    expect_one_line("net_bind", "bind : %s\n", "bind : Address already in use\n");

    faults::fail(call::socket, EMFILE, 1);
    EXPECT_EQ(net_udp_server(&sock, nullptr, 0), -1);
    EXPECT_EQ(faults::calls(call::bind), 1);
    expect_nothing_left();
}

TEST_F(NetapiConnect, AUdpClientIsASocketAndNothingElse) {
    memset(&sock.remote_addr, 0xA5, sizeof sock.remote_addr);
    const sockaddr_storage before = sock.remote_addr;
    ASSERT_EQ(net_udp_client(&sock), 0);
    EXPECT_EQ(int_option(sock.sockfd, SOL_SOCKET, SO_TYPE), SOCK_DGRAM);
    EXPECT_FALSE(is_nonblocking(sock.sockfd));
    EXPECT_EQ(port_of(sock.sockfd), 0); // not bound
    EXPECT_EQ(memcmp(&sock.remote_addr, &before, sizeof before), 0);
    EXPECT_EQ(faults::calls(call::setsockopt) + faults::calls(call::fcntl) + faults::calls(call::bind), 0);
}

TEST_F(NetapiConnect, AUdpClientThatFailsIsLogged) {
    faults::fail(call::socket, ENOBUFS);
    EXPECT_EQ(net_udp_client(&sock), -1);
    EXPECT_EQ(sock.sockfd, -1);
    expect_one_line("net_socket", "socket : %s\n", "socket : No buffer space available\n");
}
