// Datagrams out and in, and the retry loop that they share.
#include "netapi_fixture.h"

namespace {

/// A way to send a datagram to a port of the loopback address.
struct sender_row {
    const char *name;
    int (*send)(net_sockfd_t *sock, const void *buf, int len, unsigned short port);
};

std::ostream &operator<<(std::ostream &out, const sender_row &row) {
    return out << row.name;
}

sockaddr_in loopback(unsigned short port) {
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return addr;
}

constexpr sender_row k_senders[] = {
    {"net_sendto2_fd",
     [](net_sockfd_t *sock, const void *buf, int len, unsigned short port) {
         const sockaddr_in to = loopback(port);
         return net_sendto2_fd(sock->sockfd, buf, len, reinterpret_cast<const sockaddr *>(&to), sizeof to);
     }},
    {"net_sendto_fd",
     [](net_sockfd_t *sock, const void *buf, int len, unsigned short port) {
         return net_sendto_fd(sock->sockfd, buf, len, k_loopback, port);
     }},
    {"net_sendto2",
     [](net_sockfd_t *sock, const void *buf, int len, unsigned short port) {
         const sockaddr_in to = loopback(port);
         return net_sendto2(sock, buf, len, reinterpret_cast<const sockaddr *>(&to), sizeof to);
     }},
    {"net_sendto", [](net_sockfd_t *sock, const void *buf, int len,
                      unsigned short port) { return net_sendto(sock, buf, len, k_loopback, port); }},
    {"net_sendto_peer",
     [](net_sockfd_t *sock, const void *buf, int len, unsigned short port) {
         const sockaddr_in to = loopback(port);
         memcpy(&sock->remote_addr, &to, sizeof to);
         return net_sendto_peer(sock, buf, len);
     }},
};

struct receiver_row {
    const char *name;
    call system_call;
    int (*receive)(net_sockfd_t *sock, void *buf, int len);
};

std::ostream &operator<<(std::ostream &out, const receiver_row &row) {
    return out << row.name;
}

constexpr receiver_row k_receivers[] = {{"net_recv", call::recv, net_recv},
                                        {"net_recvfrom", call::recvfrom, net_recvfrom}};

} // namespace

/// What every way to send a datagram has in common.
class NetapiSendDatagram : public NetapiTest, public testing::WithParamInterface<sender_row> {
protected:
    void SetUp() override {
        NetapiTest::SetUp();
        ASSERT_EQ(net_udp_client(&client), 0);
    }
    void TearDown() override {
        NetapiTest::TearDown();
        (void)net_close(&client);
    }
    int send(const char *bytes, int len) { return GetParam().send(&client, bytes, len, server.port()); }

    const bound_socket server{SOCK_DGRAM};
    net_sockfd_t client{-1, {}};
};
INSTANTIATE_TEST_SUITE_P(Each, NetapiSendDatagram, testing::ValuesIn(k_senders),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(NetapiSendDatagram, TakesOneSystemCallAndNoMemory) {
    EXPECT_EQ(send("datagram", 8), 8);
    EXPECT_EQ(server.received(), "datagram");
    EXPECT_EQ(faults::calls(call::sendto), 1);
    EXPECT_EQ(faults::calls(call::malloc) + faults::calls(call::calloc), 0);
    EXPECT_EQ(faults::calls(call::usleep) + faults::calls(call::poll) + faults::calls(call::select), 0);
    EXPECT_EQ(faults::calls(call::socket), 1); // the client's own
    EXPECT_TRUE(logs::all().empty());
}

TEST_P(NetapiSendDatagram, AnEmptyDatagramIsSent) {
    EXPECT_EQ(send("", 0), 0);
    EXPECT_EQ(faults::calls(call::sendto), 1);
    EXPECT_EQ(server.received(), "");
}

TEST_P(NetapiSendDatagram, IsRetriedAfterAPause) {
    for (const int error : {EINTR, EAGAIN}) {
        faults::clear();
        faults::fail(call::sendto, error, 4);
        EXPECT_EQ(send("again", 5), 5);
        EXPECT_EQ(faults::calls(call::sendto), 5);
        EXPECT_EQ(faults::calls(call::usleep), 4);
        EXPECT_EQ(server.received(), "again");
    }
}

TEST_P(NetapiSendDatagram, ThePauseIsAMillisecond) {
    expect_millisecond_pauses(call::sendto, [&] { EXPECT_EQ(send("x", 1), 1); });
}

TEST_P(NetapiSendDatagram, AnyOtherErrorEndsIt) {
    faults::fail(call::sendto, ENETUNREACH);
    EXPECT_EQ(send("x", 1), -1);
    EXPECT_EQ(errno, ENETUNREACH);
    EXPECT_EQ(faults::calls(call::sendto), 1);
    EXPECT_EQ(faults::calls(call::usleep), 0);
    EXPECT_TRUE(logs::all().empty());
}

TEST_P(NetapiSendDatagram, ANegativeLengthIsRefused) {
    for (const int len : {-1, INT_MIN}) {
        errno = 0;
        EXPECT_EQ(send("x", len), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(faults::calls(call::sendto), 0);
}

TEST_P(NetapiSendDatagram, OneThatIsTooLargeFails) {
    const std::string bytes(70'000, 'x');
    EXPECT_EQ(send(bytes.data(), 70'000), -1);
    EXPECT_EQ(errno, EMSGSIZE);
}

class NetapiDatagram : public NetapiTest {};

TEST_F(NetapiDatagram, ABareDescriptorBelowOneIsRefused) {
    const sockaddr_in to = loopback(9000);
    const auto *addr = reinterpret_cast<const sockaddr *>(&to);
    for (const auto &[fd, text] : {std::pair{0, "invalid fd 0\n"}, std::pair{-1, "invalid fd -1\n"}}) {
        logs::clear();
        EXPECT_EQ(net_sendto2_fd(fd, "x", 1, addr, sizeof to), -1);
        EXPECT_EQ(errno, EBADF);
        expect_one_line("net_sendto2_fd", "invalid fd %d\n", text);
        logs::clear();
        EXPECT_EQ(net_sendto_fd(fd, "x", 1, k_loopback, 9000), -1);
        expect_one_line("net_sendto2_fd", "invalid fd %d\n", text);
    }
    EXPECT_EQ(faults::calls(call::sendto), 0);
}

TEST_F(NetapiDatagram, AnObjectsDescriptorIsNotLookedAt) {
    net_sockfd_t zero{0, {}};
    const sockaddr_in to = loopback(9000);
    faults::fail(call::sendto, ENOTSOCK);
    EXPECT_EQ(net_sendto(&zero, "x", 1, k_loopback, 9000), -1);
    EXPECT_EQ(net_sendto2(&zero, "x", 1, reinterpret_cast<const sockaddr *>(&to), sizeof to), -1);
    EXPECT_EQ(net_sendto_peer(&zero, "x", 1), -1);
    EXPECT_EQ(faults::calls(call::sendto), 3);
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiDatagram, ANegativeAddressLengthIsRefused) {
    const sockaddr_in to = loopback(9000);
    const auto *addr = reinterpret_cast<const sockaddr *>(&to);
    net_sockfd_t client{-1, {}};
    ASSERT_EQ(net_udp_client(&client), 0);
    EXPECT_EQ(net_sendto2_fd(client.sockfd, "x", 1, addr, -1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(net_sendto2(&client, "x", 1, addr, INT_MIN), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(faults::calls(call::sendto), 0);
    EXPECT_EQ(net_close(&client), 0);
}

TEST_F(NetapiDatagram, AnAddressThatDoesNotParseIsZeroAndReachesThisHost) {
    const bound_socket server{SOCK_DGRAM};
    net_sockfd_t client{-1, {}};
    ASSERT_EQ(net_udp_client(&client), 0);
    EXPECT_EQ(net_sendto(&client, "one", 3, "no address", server.port()), 3);
    EXPECT_EQ(server.received(), "one");
    EXPECT_EQ(net_sendto_fd(client.sockfd, "two", 3, nullptr, server.port()), 3);
    EXPECT_EQ(server.received(), "two");
    EXPECT_EQ(net_close(&client), 0);
}

TEST_F(NetapiDatagram, TheAddressLengthIsTheCallersAndThePeersIs16) {
    // Of a local address 16 bytes hold 14 characters of the path; the rest is then not looked at.
    const scratch_directory here;
    const int whole = local_socket(SOCK_DGRAM, "fourteen_chars_and_more");
    const int first14 = local_socket(SOCK_DGRAM, "fourteen_chars");
    net_sockfd_t client{socket(AF_UNIX, SOCK_DGRAM, 0), {}};
    sockaddr_un to{};
    to.sun_family = AF_UNIX;
    strcpy(to.sun_path, "fourteen_chars_and_more");
    memcpy(&client.remote_addr, &to, sizeof to);
    char text[16] = {};
    EXPECT_EQ(net_sendto2(&client, "whole", 5, reinterpret_cast<const sockaddr *>(&to), sizeof to), 5);
    EXPECT_EQ(recv(whole, text, sizeof text, MSG_DONTWAIT), 5);
    EXPECT_EQ(net_sendto_peer(&client, "peer", 4), 4);
    EXPECT_EQ(recv(first14, text, sizeof text, MSG_DONTWAIT), 4);
    EXPECT_EQ(close(whole), 0);
    EXPECT_EQ(close(first14), 0);
    EXPECT_EQ(net_close(&client), 0);
}

TEST_F(NetapiDatagram, AServerAnswersWhomItHeard) {
    net_sockfd_t server{-1, {}};
    net_sockfd_t client{-1, {}};
    ASSERT_EQ(net_udp_server(&server, k_loopback, 0), 0);
    ASSERT_EQ(net_udp_client(&client), 0);
    ASSERT_EQ(net_sendto(&client, "ask", 3, k_loopback, port_of(server.sockfd)), 3);
    char text[8] = {};
    ASSERT_EQ(net_recvfrom(&server, text, sizeof text), 3);
    EXPECT_STREQ(text, "ask");
    EXPECT_EQ(peer_of(server).sin_family, AF_INET);
    EXPECT_EQ(ip_of(peer_of(server)), k_loopback);
    EXPECT_EQ(ntohs(peer_of(server).sin_port), port_of(client.sockfd));
    ASSERT_EQ(net_sendto_peer(&server, "answer", 6), 6);
    ASSERT_EQ(net_recv(&client, text, sizeof text), 6);
    EXPECT_STREQ(text, "answer");
    EXPECT_EQ(net_close(&server), 0);
    EXPECT_EQ(net_close(&client), 0);
}

TEST_F(NetapiDatagram, TheSendersAddressHasRoomForTheLongest) {
    const scratch_directory here;
    const std::string longest(107, 's');
    net_sockfd_t server{local_socket(SOCK_DGRAM, "server"), {}};
    net_sockfd_t client{local_socket(SOCK_DGRAM, longest), {}};
    ASSERT_EQ(net_connect_domain(&client, "server"), 0);
    ASSERT_EQ(net_send(&client, "x", 1), 1);
    char byte = 0;
    faults::fail(call::recvfrom, EINTR, 2); // the room is the same after a retry
    ASSERT_EQ(net_recvfrom(&server, &byte, 1), 1);
    sockaddr_un from{};
    memcpy(&from, &server.remote_addr, sizeof from);
    EXPECT_EQ(from.sun_path, longest);
    EXPECT_EQ(net_close(&server), 0);
    EXPECT_EQ(net_close(&client), 0);
}

/// What net_recv and net_recvfrom have in common.
class NetapiReceive : public NetapiTest, public testing::WithParamInterface<receiver_row> {
protected:
    const call system_call = GetParam().system_call;
    connected_pair datagrams{SOCK_DGRAM};
    connected_pair stream{SOCK_STREAM};
    std::array<char, 64> buf{};

    void SetUp() override {
        NetapiTest::SetUp();
        buf.fill('#');
    }
    static int receive(net_sockfd_t *sock, void *bytes, int len) {
        return GetParam().receive(sock, bytes, len);
    }
};
INSTANTIATE_TEST_SUITE_P(Both, NetapiReceive, testing::ValuesIn(k_receivers),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(NetapiReceive, GivesWhatHasArrived) {
    ASSERT_EQ(send(stream.far, "some bytes", 10, 0), 10);
    EXPECT_EQ(receive(&stream.near, buf.data(), 64), 10);
    EXPECT_EQ(std::string(buf.data(), 11), "some bytes#");
    EXPECT_EQ(faults::calls(system_call), 1);
}

TEST_P(NetapiReceive, WritesNoMoreThanItsLength) {
    ASSERT_EQ(send(datagrams.far, "0123456789", 10, 0), 10);
    EXPECT_EQ(receive(&datagrams.near, buf.data(), 4), 4);
    EXPECT_EQ(std::string(buf.data(), 5), "0123#");
    ASSERT_EQ(send(datagrams.far, "next", 4, 0), 4); // the rest of the first is lost
    EXPECT_EQ(receive(&datagrams.near, buf.data(), 64), 4);
    EXPECT_EQ(std::string(buf.data(), 5), "next#");
}

TEST_P(NetapiReceive, ANegativeLengthIsRefused) {
    ASSERT_EQ(send(datagrams.far, "x", 1, 0), 1);
    for (const int len : {-1, INT_MIN}) {
        errno = 0;
        EXPECT_EQ(receive(&datagrams.near, buf.data(), len), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(faults::calls(system_call), 0);
    EXPECT_EQ(buf[0], '#');
}

TEST_P(NetapiReceive, TheEndOfAStreamIsZero) {
    stream.close_far();
    EXPECT_EQ(receive(&stream.near, buf.data(), 64), 0);
}

TEST_P(NetapiReceive, IsRetriedAfterAPause) {
    for (const int error : {EINTR, EAGAIN}) {
        faults::clear();
        faults::fail(system_call, error, 4);
        ASSERT_EQ(send(stream.far, "x", 1, 0), 1);
        EXPECT_EQ(receive(&stream.near, buf.data(), 64), 1);
        EXPECT_EQ(faults::calls(system_call), 5);
        EXPECT_EQ(faults::calls(call::usleep), 4);
    }
}

TEST_P(NetapiReceive, ANonBlockingSocketWithNothingThereIsWaitedFor) {
    stream.make_nonblocking();
    std::thread writer([&] {
        EXPECT_TRUE(wait_until([] { return faults::calls(call::usleep) >= 5; }));
        EXPECT_EQ(send(stream.far, "late", 4, 0), 4);
    });
    EXPECT_EQ(receive(&stream.near, buf.data(), 64), 4);
    writer.join();
    EXPECT_GE(faults::calls(system_call), 6);
}

TEST_P(NetapiReceive, ThePauseIsAMillisecond) {
    ASSERT_EQ(send(stream.far, "x", 1, 0), 1);
    expect_millisecond_pauses(GetParam().system_call,
                              [&] { EXPECT_EQ(receive(&stream.near, buf.data(), 64), 1); });
}

TEST_P(NetapiReceive, AnyOtherErrorEndsIt) {
    faults::fail(system_call, ECONNRESET);
    EXPECT_EQ(receive(&stream.near, buf.data(), 64), -1);
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_EQ(faults::calls(system_call), 1);
    EXPECT_EQ(faults::calls(call::usleep), 0);
    EXPECT_TRUE(logs::all().empty());
}
