// The node manager's socket and its loop. See manager_server.h.
#include "manager_server.h"

#include "subcommand.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fmt/core.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace vexa {
namespace {

using clock = node_registry::clock;

constexpr size_t k_datagram_bytes = 65536; // the longest there is: nothing is cut before it is measured
constexpr int k_datagrams_per_turn = 64;   // then the clock and the signals are looked at again

/// Closes a descriptor with its scope.
class descriptor {
public:
    explicit descriptor(int fd) : fd_(fd) {}
    ~descriptor() {
        if (fd_ >= 0) {
            (void)close(fd_);
        }
    }
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
    [[nodiscard]] int get() const { return fd_; }

private:
    int fd_;
};

[[noreturn]] void fail(const char *what) {
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

endpoint parse(const std::string &ip, uint16_t port) {
    in_addr address{};
    if (inet_pton(AF_INET, ip.c_str(), &address) != 1) {
        throw std::invalid_argument("'" + ip + "' is not an IPv4 address");
    }
    return {ntohl(address.s_addr), port};
}

/// What to do about an address that cannot be bound.
std::string advice(int error, endpoint where) {
    const std::string ip = to_text(where).substr(0, to_text(where).find(':'));
    switch (error) {
    case EADDRNOTAVAIL:
        return fmt::format(
            "This machine has no such address. Give it one (ip address add {0}/24 dev INTERFACE), "
            "choose another with --bind (0.0.0.0 is all of them), or use a network of its own:\n"
            "  unshare -rn sh -c 'ip link set lo up && ip address add {0}/24 dev lo && vexa "
            "manager --bind {0}'",
            ip);
    case EADDRINUSE:
        return fmt::format("Another program, perhaps another manager, receives there. 'ss -lunp sport = :{}' "
                           "shows which; end it or choose another port with --port.",
                           where.port);
    case EACCES:
        return "Ports below 1024 are root's; choose another with --port.";
    default:
        return "Choose another address with --bind or another port with --port.";
    }
}

/// A descriptor that becomes readable when the program is asked to end.
int open_end_signals() {
    sigset_t asked_to_end;
    (void)sigemptyset(&asked_to_end);
    (void)sigaddset(&asked_to_end, SIGINT);
    (void)sigaddset(&asked_to_end, SIGTERM);
    if (sigprocmask(SIG_BLOCK, &asked_to_end, nullptr) != 0) {
        fail("sigprocmask");
    }
    const int fd = signalfd(-1, &asked_to_end, SFD_CLOEXEC);
    if (fd < 0) {
        fail("signalfd");
    }
    return fd;
}

class manager_server {
public:
    manager_server(const manager_options &options, int socket)
        : socket_(socket),
          output_(options.style),
          registry_(std::chrono::duration_cast<clock::duration>(
                        std::chrono::duration<double>(options.keep_alive_s)),
                    options.missed) {}

    void run(int end_signals) {
        while (!asked_to_end(end_signals)) {
            for (int i = 0; i < k_datagrams_per_turn && receive(); ++i) {
            }
            for (const node_registry::change &lost : registry_.expire(clock::now())) {
                tell(lost);
            }
        }
        output_.summary(counts_, registry_);
    }

    [[nodiscard]] const manager_output &output() const { return output_; }

private:
    /// Waits for a datagram, for a node to fall due, or for the end. True at the end.
    bool asked_to_end(int end_signals) {
        std::array<pollfd, 2> both = {pollfd{end_signals, POLLIN, 0}, pollfd{socket_, POLLIN, 0}};
        if (poll(both.data(), both.size(), patience_ms()) < 0 && errno != EINTR) {
            fail("poll");
        }
        return both[0].revents != 0;
    }

    [[nodiscard]] int patience_ms() const {
        const auto next = registry_.next_expiry();
        if (!next) {
            return -1;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - clock::now()).count();
        return static_cast<int>(std::clamp<decltype(left)>(left, 0, 3'600'000));
    }

    /// Takes one datagram. False when there is none.
    bool receive() {
        sockaddr_in from{};
        socklen_t from_size = sizeof from;
        const ssize_t size = recvfrom(socket_, buffer_.data(), buffer_.size(), MSG_DONTWAIT,
                                      reinterpret_cast<sockaddr *>(&from), &from_size);
        if (size < 0) {
            return errno == EINTR; // anything else is no datagram; poll says when there is one
        }
        ++counts_.received;
        const auto request = read_request(std::span{buffer_}.first(static_cast<size_t>(size)));
        if (const refusal *why = std::get_if<refusal>(&request)) {
            refuse(*why, to_endpoint(from), 0);
        } else {
            act_on(std::get<manager_request>(request), to_endpoint(from));
        }
        return true;
    }

    void act_on(const manager_request &request, endpoint from) {
        const node_registry::outcome outcome = registry_.handle(request, from, clock::now());
        if (outcome.refused) {
            refuse(*outcome.refused, from, request.node.node_id);
            return;
        }
        if (request.command == MGR_CMD_REGISTER) {
            counts_.answered += send({request.node.node_id, from}, true) ? 1 : 0;
        }
        if (outcome.changed) {
            tell(*outcome.changed);
        }
    }

    void refuse(refusal why, endpoint from, uint16_t node_id) {
        ++counts_.refused[static_cast<size_t>(why)];
        output_.refused(why, from, node_id);
    }

    /// Tells everybody but the node itself: it has its answer, or is gone.
    void tell(const node_registry::change &change) {
        for (const node_registry::peer &peer : registry_.active()) {
            if (peer.node_id != change.node_id) {
                counts_.notified += send(peer, false) ? 1 : 0;
            }
        }
        output_.table_changed(change, registry_);
    }

    /// A message that is lost is made good by the answer to the node's next keep-alive.
    bool send(const node_registry::peer &peer, bool accepted) {
        const std::vector<uint8_t> message = table_message(peer.node_id, accepted, registry_.records());
        const sockaddr_in to = to_sockaddr(peer.address);
        if (sendto(socket_, message.data(), message.size(), MSG_DONTWAIT,
                   reinterpret_cast<const sockaddr *>(&to), sizeof to) >= 0) {
            return true;
        }
        const int error = errno;
        ++counts_.send_failed;
        output_.send_failed(peer.address, error, counts_.send_failed);
        return false;
    }

    int socket_;
    manager_output output_;
    node_registry registry_;
    manager_counts counts_;
    std::array<uint8_t, k_datagram_bytes> buffer_{};
};

} // namespace

int run_manager(const manager_options &options) {
    const endpoint where = parse(options.bind, options.port);
    const descriptor end_signals{open_end_signals()};
    const descriptor socket{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    if (socket.get() < 0) {
        fail("socket");
    }
    const sockaddr_in address = to_sockaddr(where);
    if (bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        const int error = errno;
        fmt::print(stderr, "vexa manager: cannot bind {}: {}\n{}\n", to_text(where), strerror(error),
                   advice(error, where));
        return k_failed;
    }
    manager_server server{options, socket.get()};
    server.output().listening(where, options.keep_alive_s, options.missed);
    server.run(end_signals.get());
    return k_ok;
}

} // namespace vexa
