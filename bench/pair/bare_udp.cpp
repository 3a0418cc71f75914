// The limit of every datagram: two blocking sockets, one system call to send and one to receive.
#include "bare_socket.h"
#include "contenders.h"

#include <array>
#include <cerrno>
#include <sys/socket.h>
#include <system_error>
#include <thread>

namespace bench {
namespace {

constexpr uint16_t k_first_port = 7000;

} // namespace

void fail_errno(const char *what) {
    throw std::system_error(errno, std::generic_category(), what);
}

int checked(int result, const char *what) {
    if (result < 0) {
        fail_errno(what);
    }
    return result;
}

bare_socket open_bare_socket(const place &where, int type_flags) {
    const auto asking_port = static_cast<uint16_t>(k_first_port + 2 * where.number);
    const auto answering_port = static_cast<uint16_t>(asking_port + 1);
    bare_socket made{checked(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | type_flags, 0), "socket"), {}};
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    made.other = own;
    own.sin_port = htons(where.asks ? asking_port : answering_port);
    made.other.sin_port = htons(where.asks ? answering_port : asking_port);
    (void)checked(bind(made.fd, reinterpret_cast<const sockaddr *>(&own), sizeof own), "bind");
    return made;
}

void send_bare(const bare_socket &socket, const uint8_t *payload, size_t size_bytes) {
    // Every payload lies behind room for a header.
    (void)sendto(socket.fd, payload - k_head_bytes, k_head_bytes + size_bytes, 0,
                 reinterpret_cast<const sockaddr *>(&socket.other), sizeof socket.other);
}

namespace {

class bare_udp : public side {
public:
    bare_udp(const place &where, listener &to) : socket_(open_bare_socket(where, 0)) {
        std::thread([this, &to] { receive(to); }).detach();
    }

    void send(const uint8_t *payload, size_t size_bytes) override { send_bare(socket_, payload, size_bytes); }

private:
    void receive(listener &to) const {
        alignas(8) std::array<uint8_t, k_most_datagram> datagram;
        for (;;) {
            const ssize_t size = recv(socket_.fd, datagram.data(), datagram.size(), 0);
            if (size >= static_cast<ssize_t>(k_head_bytes)) {
                to.on_message(datagram.data() + k_head_bytes, static_cast<size_t>(size) - k_head_bytes);
            }
        }
    }

    const bare_socket socket_;
};

} // namespace

std::unique_ptr<side> make_bare_udp(const place &where, listener &to) {
    return std::make_unique<bare_udp>(where, to);
}

} // namespace bench
