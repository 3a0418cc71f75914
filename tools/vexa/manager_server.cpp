// The node manager's socket and its loop. See manager_server.h.
#include "manager_server.h"

#include "bench_socket.h"
#include "service_notify.h"
#include "subcommand.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/core.h>
#include <poll.h>
#include <sys/socket.h>

namespace vexa {
namespace {

using clock = node_registry::clock;

constexpr int k_datagrams_per_turn = 64; // then the clock and the signals are looked at again

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
            fail_errno("poll");
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

/// A service that waits for this manager goes on once it has been told. One that cannot be told is no reason
/// to end.
void tell_service_manager(const char *state) {
    if (const int error = notify_service_manager(state); error != 0) {
        fmt::print(stderr, "vexa manager: cannot tell the service manager {}: {}\n", state, strerror(error));
    }
}

} // namespace

int run_manager(const manager_options &options) {
    const endpoint where = parse_endpoint(options.bind, options.port);
    const descriptor end_signals = open_end_signals();
    const std::optional<descriptor> socket = bind_udp("vexa manager", where);
    if (!socket) {
        return k_failed;
    }
    manager_server server{options, socket->get()};
    server.output().listening(where, options.keep_alive_s, options.missed);
    tell_service_manager("READY=1"); // from here on what arrives is kept for this program
    server.run(end_signals.get());
    return k_ok;
}

} // namespace vexa
