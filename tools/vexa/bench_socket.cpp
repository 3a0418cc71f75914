// Addresses, sockets and the end of the stand-in programs. See bench_socket.h.
#include "bench_socket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fmt/core.h>
#include <stdexcept>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace vexa {
namespace {

/// What to do about an address that cannot be bound.
std::string advice(int error, const std::string &program, endpoint where) {
    const std::string ip = to_text(where).substr(0, to_text(where).find(':'));
    switch (error) {
    case EADDRNOTAVAIL:
        return fmt::format(
            "This machine has no such address. Give it one (ip address add {0}/24 dev INTERFACE), "
            "choose another with --bind (0.0.0.0 is all of them), or use a network of its own:\n"
            "  unshare -rn sh -c 'ip link set lo up && ip address add {0}/24 dev lo && {1} --bind {0}'",
            ip, program);
    case EADDRINUSE:
        return fmt::format("Another program, perhaps another {}, receives there. 'ss -lunp sport = :{}' "
                           "shows which; end it or choose another port with --port.",
                           program, where.port);
    case EACCES:
        return "Ports below 1024 are root's; choose another with --port.";
    default:
        return "Choose another address with --bind or another port with --port.";
    }
}

} // namespace

descriptor::~descriptor() {
    if (fd_ >= 0) {
        (void)close(fd_); // nothing was written through it that could be lost
    }
}

void fail_errno(const char *what) {
    throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_in to_sockaddr(endpoint where) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(where.ip);
    address.sin_port = htons(where.port);
    return address;
}

endpoint to_endpoint(const sockaddr_in &address) {
    return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

endpoint parse_endpoint(const std::string &ip, uint16_t port) {
    in_addr address{};
    if (inet_pton(AF_INET, ip.c_str(), &address) != 1) {
        throw std::invalid_argument("'" + ip + "' is not an IPv4 address");
    }
    return {ntohl(address.s_addr), port};
}

std::optional<descriptor> bind_udp(const std::string &program, endpoint where) {
    descriptor socket{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    if (socket.get() < 0) {
        fail_errno("socket");
    }
    const sockaddr_in address = to_sockaddr(where);
    if (bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        const int error = errno;
        fmt::print(stderr, "{}: cannot bind {}: {}\n{}\n", program, to_text(where), strerror(error),
                   advice(error, program, where));
        return std::nullopt;
    }
    return socket;
}

descriptor open_end_signals() {
    sigset_t asked_to_end;
    (void)sigemptyset(&asked_to_end);
    (void)sigaddset(&asked_to_end, SIGINT);
    (void)sigaddset(&asked_to_end, SIGTERM);
    if (sigprocmask(SIG_BLOCK, &asked_to_end, nullptr) != 0) {
        fail_errno("sigprocmask");
    }
    descriptor signals{signalfd(-1, &asked_to_end, SFD_CLOEXEC)};
    if (signals.get() < 0) {
        fail_errno("signalfd");
    }
    return signals;
}

} // namespace vexa
