/**
 * @file
 * What the programs that stand in for other machines have in common: an address to receive on, the socket
 * there, with advice when it cannot be had, and the end on SIGINT and SIGTERM.
 *
 *     const vexa::endpoint where = vexa::parse_endpoint("192.168.1.5", 5673);
 *     const auto socket = vexa::bind_udp("vexa flight", where);
 *     if (!socket) { return vexa::k_failed; } // it has said why
 */
#ifndef VEXA_BENCH_SOCKET_H
#define VEXA_BENCH_SOCKET_H

#include "manager_protocol.h"

#include <cstddef>
#include <netinet/in.h>
#include <optional>
#include <string>
#include <utility>

namespace vexa {

/** Room for the longest datagram there is: nothing is cut before it is measured. */
inline constexpr size_t k_datagram_bytes = 65536;

/** Closes a descriptor with its scope. */
class descriptor {
public:
    explicit descriptor(int fd) : fd_(fd) {}
    ~descriptor();
    descriptor(descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
    descriptor &operator=(descriptor &&) = delete;
    [[nodiscard]] int get() const { return fd_; }

private:
    int fd_;
};

/** Throws what errno says about a system call. */
[[noreturn]] void fail_errno(const char *what);

sockaddr_in to_sockaddr(endpoint where);
endpoint to_endpoint(const sockaddr_in &address);

/** @throws std::invalid_argument when `ip` is no IPv4 address in dotted text */
endpoint parse_endpoint(const std::string &ip, uint16_t port);

/**
 * A UDP socket that receives at an address.
 * @param program  "vexa flight", for the message and the advice in it
 * @return nothing when the address cannot be bound; standard error then says why and what to do
 * @throws std::system_error when there is no socket to be had at all
 */
std::optional<descriptor> bind_udp(const std::string &program, endpoint where);

/**
 * A descriptor that becomes readable when the program is asked to end by SIGINT or SIGTERM, which no longer
 * end it by themselves.
 * @throws std::system_error
 */
descriptor open_end_signals();

} // namespace vexa

#endif
