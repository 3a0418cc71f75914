// Opening, binding, listening, accepting, local connections, closing.
#include "netapi_fixture.h"

class NetapiSockets : public NetapiTest {};

TEST_F(NetapiSockets, TheOpenedSocketIsOfTheKindAskedFor) {
    for (const int domain : {AF_INET, AF_UNIX}) {
        for (const int type : {SOCK_STREAM, SOCK_DGRAM}) {
            net_sockfd_t sock{-1, {}};
            const int fd = net_socket(&sock, domain, type);
            ASSERT_GE(fd, 0);
            EXPECT_EQ(sock.sockfd, fd);
            EXPECT_EQ(int_option(fd, SOL_SOCKET, SO_DOMAIN), domain);
            EXPECT_EQ(int_option(fd, SOL_SOCKET, SO_TYPE), type);
            EXPECT_EQ(net_close(&sock), 0);
        }
    }
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiSockets, ASocketThatCannotBeOpenedIsLoggedAndStoredAsClosed) {
    net_sockfd_t sock{77, {}};
    faults::fail(call::socket, EMFILE);
    EXPECT_EQ(net_socket(&sock, AF_INET, SOCK_STREAM), -1);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(sock.sockfd, -1);
    EXPECT_EQ(faults::calls(call::socket), 1);
    expect_one_line("net_socket", "socket : %s\n", "socket : Too many open files\n");
}

TEST_F(NetapiSockets, AFailureKeepsItsErrnoAlthoughTheLogChangesIt) {
    logs::on_line([](const logs::line &) { errno = EXDEV; });
    net_sockfd_t sock{-1, {}};
    EXPECT_EQ(net_socket(&sock, -5, SOCK_STREAM), -1);
    EXPECT_EQ(errno, EAFNOSUPPORT);
    EXPECT_EQ(net_bind(&sock, nullptr, 0), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(net_listen(&sock, 1), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(net_set_reuse_addr(&sock, 1), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(net_get_recvbuf_size(&sock), -1);
    EXPECT_EQ(errno, EBADF);
    faults::fail(call::poll, ENOMEM);
    EXPECT_EQ(net_read_timedwait(0, nullptr, 0, 0), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(net_writen_timedwait(1, "x", 1), -1);
    EXPECT_EQ(errno, ENOMEM);
}

TEST_F(NetapiSockets, BindTakesTheAddressAndPort) {
    const unsigned short port = bound_socket{SOCK_DGRAM}.port(); // free again now
    net_sockfd_t sock{socket(AF_INET, SOCK_DGRAM, 0), {}};
    EXPECT_EQ(net_bind(&sock, "192.168.1.1", port), 0);
    EXPECT_EQ(ip_of(own_address(sock.sockfd)), "192.168.1.1");
    EXPECT_EQ(port_of(sock.sockfd), port);
    EXPECT_TRUE(logs::all().empty());
    EXPECT_EQ(net_close(&sock), 0);
}

TEST_F(NetapiSockets, BindWithoutAnAddressTakesEveryInterface) {
    for (const char *ip :
         {static_cast<const char *>(nullptr), "", "no address", "1.2.3", "1.2.3.4.5", "::1"}) {
        net_sockfd_t sock{socket(AF_INET, SOCK_DGRAM, 0), {}};
        EXPECT_EQ(net_bind(&sock, ip, 0), 0);
        EXPECT_EQ(ip_of(own_address(sock.sockfd)), "0.0.0.0") << (ip == nullptr ? "NULL" : ip);
        EXPECT_NE(port_of(sock.sockfd), 0);
        EXPECT_EQ(net_close(&sock), 0);
    }
}

TEST_F(NetapiSockets, ABindThatFailsIsLoggedOnceAndNotRetried) {
    const bound_socket holder{SOCK_DGRAM};
    net_sockfd_t sock{socket(AF_INET, SOCK_DGRAM, 0), {}};
    EXPECT_EQ(net_bind(&sock, k_loopback, holder.port()), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    expect_one_line("net_bind", "bind : %s\n", "bind : Address already in use\n");
    logs::clear();

    faults::fail(call::bind, EINTR);
    EXPECT_EQ(net_bind(&sock, k_loopback, 0), -1);
    EXPECT_EQ(faults::calls(call::bind), 2);
    expect_one_line("net_bind", "bind : %s\n", "bind : Interrupted system call\n");
    EXPECT_TRUE(is_open(sock.sockfd));
    EXPECT_EQ(net_close(&sock), 0);
}

TEST_F(NetapiSockets, ListenPassesTheBacklogOn) {
    const bound_socket server{SOCK_STREAM};
    net_sockfd_t sock{server.fd(), {}};
    EXPECT_EQ(net_listen(&sock, 3), 0);
    EXPECT_EQ(int_option(server.fd(), SOL_SOCKET, SO_ACCEPTCONN), 1);
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiSockets, AListenThatFailsIsLogged) {
    const bound_socket datagrams{SOCK_DGRAM};
    net_sockfd_t sock{datagrams.fd(), {}};
    EXPECT_EQ(net_listen(&sock, 3), -1);
    EXPECT_EQ(errno, EOPNOTSUPP);
    expect_one_line("net_listen", "listen : %s\n", "listen : Operation not supported\n");
}

TEST_F(NetapiSockets, AcceptGivesTheConnectionAndItsPeer) {
    const tcp_listener listener;
    net_sockfd_t server{listener.fd(), {}};
    net_sockfd_t client{-1, {}};
    ASSERT_EQ(net_tcp_connect_block(&client, k_loopback, listener.port()), 0);
    net_sockfd_t conn{-1, {}};
    const int fd = net_accept(&server, &conn);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(conn.sockfd, fd);
    EXPECT_EQ(server.sockfd, listener.fd());
    const sockaddr_in peer = peer_of(conn);
    EXPECT_EQ(peer.sin_family, AF_INET);
    EXPECT_EQ(ip_of(peer), k_loopback);
    EXPECT_EQ(ntohs(peer.sin_port), port_of(client.sockfd));
    EXPECT_TRUE(logs::all().empty());
    EXPECT_EQ(net_close(&conn), 0);
    EXPECT_EQ(net_close(&client), 0);
}

TEST_F(NetapiSockets, AcceptHasRoomForTheLongestAddress) {
    const scratch_directory here;
    net_sockfd_t server{local_socket(SOCK_STREAM, "server"), {}};
    ASSERT_EQ(listen(server.sockfd, 1), 0);
    const std::string longest(107, 'c');
    net_sockfd_t client{local_socket(SOCK_STREAM, longest), {}};
    ASSERT_EQ(net_connect_domain(&client, "server"), 0);
    net_sockfd_t conn{-1, {}};
    ASSERT_GE(net_accept(&server, &conn), 0);
    sockaddr_un peer{};
    memcpy(&peer, &conn.remote_addr, sizeof peer);
    EXPECT_EQ(peer.sun_path, longest);
    for (net_sockfd_t *sock : {&conn, &client, &server}) {
        EXPECT_EQ(net_close(sock), 0);
    }
}

TEST_F(NetapiSockets, AnAcceptThatFailsSaysSoWithoutALogLine) {
    const tcp_listener listener;
    ASSERT_EQ(fcntl(listener.fd(), F_SETFL, O_NONBLOCK), 0);
    net_sockfd_t server{listener.fd(), {}};
    net_sockfd_t conn{55, {}};
    EXPECT_EQ(net_accept(&server, &conn), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(conn.sockfd, -1);
    EXPECT_EQ(faults::calls(call::accept), 1);
    EXPECT_EQ(net_accept(&server, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiSockets, ALocalConnectionCarriesBytes) {
    const scratch_directory here;
    const int server = local_socket(SOCK_STREAM, "server");
    ASSERT_EQ(listen(server, 1), 0);
    net_sockfd_t client{-1, {}};
    ASSERT_GE(net_socket(&client, AF_UNIX, SOCK_STREAM), 0);
    ASSERT_EQ(net_connect_domain(&client, "server"), 0);
    const int conn = accept(server, nullptr, nullptr);
    EXPECT_EQ(net_send(&client, "local", 5), 5);
    char text[8] = {};
    EXPECT_EQ(recv(conn, text, sizeof text, 0), 5);
    EXPECT_STREQ(text, "local");
    EXPECT_EQ(close(conn), 0);
    EXPECT_EQ(close(server), 0);
    EXPECT_EQ(net_close(&client), 0);
}

TEST_F(NetapiSockets, ALocalPathOf107CharactersIsTheLongest) {
    const scratch_directory here;
    const std::string longest(107, 'p');
    const int server = local_socket(SOCK_STREAM, longest);
    ASSERT_EQ(listen(server, 1), 0);
    net_sockfd_t client{-1, {}};
    ASSERT_GE(net_socket(&client, AF_UNIX, SOCK_STREAM), 0);
    for (const size_t len : {size_t{108}, size_t{109}, size_t{5000}}) {
        errno = 0;
        EXPECT_EQ(net_connect_domain(&client, std::string(len, 'p').c_str()), -1);
        EXPECT_EQ(errno, ENAMETOOLONG);
    }
    EXPECT_EQ(faults::calls(call::connect), 0);
    EXPECT_EQ(net_connect_domain(&client, longest.c_str()), 0);
    EXPECT_EQ(close(server), 0);
    EXPECT_EQ(net_close(&client), 0);
}

TEST_F(NetapiSockets, ALocalAddressIsPassedInItsFullSize) {
    // Without a path the address is a name of as many zero bytes as are passed: only the full size finds
    // the socket that is bound to all of them.
    const int server = local_socket(SOCK_STREAM, "");
    ASSERT_EQ(listen(server, 1), 0);
    net_sockfd_t client{-1, {}};
    ASSERT_GE(net_socket(&client, AF_UNIX, SOCK_STREAM), 0);
    EXPECT_EQ(net_connect_domain(&client, ""), 0);
    EXPECT_EQ(close(server), 0);
    EXPECT_EQ(net_close(&client), 0);
}

TEST_F(NetapiSockets, ALocalConnectionThatFailsIsNotLogged) {
    const scratch_directory here;
    net_sockfd_t client{-1, {}};
    ASSERT_GE(net_socket(&client, AF_UNIX, SOCK_STREAM), 0);
    EXPECT_EQ(net_connect_domain(&client, "nobody"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(net_connect_domain(&client, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_TRUE(logs::all().empty());
    EXPECT_EQ(net_close(&client), 0);
}

TEST_F(NetapiSockets, CloseClosesOnce) {
    net_sockfd_t sock{-1, {}};
    const int fd = net_socket(&sock, AF_INET, SOCK_DGRAM);
    EXPECT_EQ(net_close(&sock), 0);
    EXPECT_EQ(sock.sockfd, -1);
    EXPECT_FALSE(is_open(fd));
    EXPECT_EQ(faults::calls(call::close), 1);
    EXPECT_EQ(net_close(&sock), 0);
    EXPECT_EQ(net_close(nullptr), 0);
    EXPECT_EQ(faults::calls(call::close), 1);
}

TEST_F(NetapiSockets, CloseSaysZeroWhateverTheSystemSays) {
    net_sockfd_t sock{-1, {}};
    const int fd = net_socket(&sock, AF_INET, SOCK_DGRAM);
    faults::fail(call::close, EIO);
    EXPECT_EQ(net_close(&sock), 0);
    EXPECT_EQ(sock.sockfd, -1);
    EXPECT_TRUE(logs::all().empty());
    EXPECT_FALSE(is_open(fd)) << "it is gone whatever close says";
}

TEST_F(NetapiSockets, NoObjectCountsAsAClosedOne) {
    char byte = 0;
    net_sockfd_t conn{-1, {}};
    timeval soon{0, 1000};
    const auto refused = [](int result) {
        const int error = errno;
        errno = 0;
        return result == -1 && error == EBADF;
    };
    EXPECT_TRUE(refused(net_socket(nullptr, AF_INET, SOCK_DGRAM)));
    EXPECT_TRUE(refused(net_bind(nullptr, nullptr, 0)));
    EXPECT_TRUE(refused(net_listen(nullptr, 1)));
    EXPECT_TRUE(refused(net_accept(nullptr, &conn)));
    EXPECT_TRUE(refused(net_connect_domain(nullptr, "x")));
    EXPECT_TRUE(refused(net_connect(nullptr, k_loopback, 1)));
    EXPECT_TRUE(refused(net_connect_nonb(nullptr, k_loopback, 1, 1)));
    EXPECT_TRUE(refused(net_tcp_connect_block(nullptr, k_loopback, 1)));
    EXPECT_TRUE(refused(net_tcp_connect(nullptr, k_loopback, 1, 1)));
    EXPECT_TRUE(refused(net_tcp_server(nullptr, k_loopback, 1, 0)));
    EXPECT_TRUE(refused(net_udp_server(nullptr, k_loopback, 1)));
    EXPECT_TRUE(refused(net_udp_client(nullptr)));
    EXPECT_TRUE(refused(net_send(nullptr, &byte, 1)));
    EXPECT_TRUE(refused(net_sendn(nullptr, &byte, 1)));
    testing::internal::CaptureStderr();
    EXPECT_TRUE(refused(net_send_timeout(nullptr, &byte, 1, &soon)));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "select error: Bad file descriptor\n");
    EXPECT_TRUE(refused(net_sendto(nullptr, &byte, 1, k_loopback, 1)));
    EXPECT_TRUE(refused(net_sendto_peer(nullptr, &byte, 1)));
    EXPECT_TRUE(refused(net_recv(nullptr, &byte, 1)));
    EXPECT_TRUE(refused(net_recvfrom(nullptr, &byte, 1)));
    EXPECT_TRUE(refused(net_get_sendbuf_size(nullptr)));
    EXPECT_TRUE(refused(mcast_join(nullptr, "239.1.2.3")));
    EXPECT_TRUE(refused(net_read_timeout(nullptr, 1)));
    EXPECT_EQ(net_set_socket_noblock(nullptr), 0);
    EXPECT_EQ(net_recv_timedwait(nullptr, &byte, 1, 1), 0); // nothing ever arrives there
    EXPECT_EQ(faults::calls(call::socket), 0);
}
