/**
 * @file
 * A bound UDP socket of the test's own: the far end of what the library sends.
 *
 *     udp_receiver flight("192.168.1.5", 5673);
 *     EXPECT_EQ(flight.receive(), vectors::bytes("link_datagram_orbit_area"));
 */
#ifndef TEST_UDP_RECEIVER_H
#define TEST_UDP_RECEIVER_H

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <vector>

class udp_receiver {
public:
    udp_receiver(const std::string &ip, uint16_t port) : fd_(socket(AF_INET, SOCK_DGRAM, 0)) {
        sockaddr_in own{};
        own.sin_family = AF_INET;
        own.sin_port = htons(port);
        if (inet_pton(AF_INET, ip.c_str(), &own.sin_addr) != 1) {
            throw std::invalid_argument("no IPv4 address: " + ip);
        }
        if (fd_ < 0 || bind(fd_, reinterpret_cast<const sockaddr *>(&own), sizeof own) != 0) {
            throw std::system_error(errno, std::generic_category(), "cannot bind " + ip);
        }
    }
    ~udp_receiver() { close(fd_); }
    udp_receiver(const udp_receiver &) = delete;
    udp_receiver &operator=(const udp_receiver &) = delete;

    /** The next datagram. Throws, which fails the test, when none comes in time. */
    std::vector<uint8_t> receive(std::chrono::milliseconds deadline = std::chrono::seconds(10)) const {
        pollfd wait{fd_, POLLIN, 0};
        if (poll(&wait, 1, static_cast<int>(deadline.count())) != 1) {
            throw std::runtime_error("no datagram came");
        }
        std::vector<uint8_t> bytes(65536);
        const ssize_t n = recv(fd_, bytes.data(), bytes.size(), 0);
        if (n < 0) {
            throw std::system_error(errno, std::generic_category(), "recv");
        }
        bytes.resize(static_cast<size_t>(n));
        return bytes;
    }

    /** Whether a datagram is waiting now. On one host a datagram is there when its sending has returned. */
    bool has_one() const {
        pollfd wait{fd_, POLLIN, 0};
        return poll(&wait, 1, 0) == 1;
    }

private:
    int fd_;
};

#endif
