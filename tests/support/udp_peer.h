/**
 * @file
 * The other end of a conversation over UDP: a socket at an address of the test's network that waits for
 * datagrams with a bound.
 *
 *     udp_peer node{"192.168.1.5", 9005};
 *     node.send(datagram, "192.168.1.1", 9000);
 *     std::optional<std::vector<uint8_t>> answer = node.receive();
 */
#ifndef TEST_UDP_PEER_H
#define TEST_UDP_PEER_H

#include <arpa/inet.h>
#include <chrono>
#include <cstdint>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

class udp_peer {
public:
    udp_peer(const std::string &ip, uint16_t port) : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_in address = to_sockaddr(ip, port);
        if (bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            (void)close(fd_);
            throw std::runtime_error("cannot bind " + ip + ':' + std::to_string(port));
        }
    }
    ~udp_peer() { (void)close(fd_); }
    udp_peer(const udp_peer &) = delete;
    udp_peer &operator=(const udp_peer &) = delete;

    bool send(const std::vector<uint8_t> &datagram, const std::string &ip, uint16_t port) {
        const sockaddr_in to = to_sockaddr(ip, port);
        return sendto(fd_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr *>(&to),
                      sizeof to) == static_cast<ssize_t>(datagram.size());
    }

    /** The next datagram; nothing when the time passes before it. */
    std::optional<std::vector<uint8_t>>
    receive(std::chrono::milliseconds patience = std::chrono::seconds(10)) {
        pollfd one{fd_, POLLIN, 0};
        if (poll(&one, 1, static_cast<int>(patience.count())) <= 0) {
            return std::nullopt;
        }
        std::vector<uint8_t> datagram(65536);
        const ssize_t size = recv(fd_, datagram.data(), datagram.size(), 0);
        datagram.resize(size > 0 ? static_cast<size_t>(size) : 0);
        return datagram;
    }

private:
    static sockaddr_in to_sockaddr(const std::string &ip, uint16_t port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        if (inet_pton(AF_INET, ip.c_str(), &address.sin_addr) != 1) {
            throw std::invalid_argument(ip);
        }
        return address;
    }

    int fd_;
};

#endif
