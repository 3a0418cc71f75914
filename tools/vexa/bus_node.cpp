// A node for the length of a command. See bus_node.h.
#include "bus_node.h"

#include "library_log.h"
#include "node_mapping.h"
#include "udp_sockets.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fmt/core.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>

namespace vexa {
namespace {

using namespace std::chrono_literals;

constexpr auto k_look_every = 2ms; // the table tells nobody that it has changed
constexpr char k_doctor[] = "'vexa doctor' looks for the cause.";

/// Which of this machine's addresses a datagram to `there` would leave from. Sends nothing.
std::optional<std::string> address_toward(endpoint there) {
    const descriptor socket{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    const sockaddr_in to = to_sockaddr(there);
    sockaddr_in own{};
    socklen_t size = sizeof own;
    if (connect(socket.get(), reinterpret_cast<const sockaddr *>(&to), sizeof to) != 0 ||
        getsockname(socket.get(), reinterpret_cast<sockaddr *>(&own), &size) != 0) {
        return std::nullopt;
    }
    const std::string text = to_text(to_endpoint(own));
    return text.substr(0, text.find(':'));
}

bool port_is_free(uint16_t id) {
    const descriptor socket{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    const sockaddr_in address = to_sockaddr({INADDR_ANY, static_cast<uint16_t>(VX_NODE_PORT_BASE + id)});
    return bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

uint16_t choose_id(uint16_t wanted) {
    if (wanted != 0) {
        if (!port_is_free(wanted)) {
            const auto port = static_cast<uint16_t>(VX_NODE_PORT_BASE + wanted);
            throw node_trouble(
                fmt::format("UDP port {}, where node {} receives, is taken by {}. End it, or choose another "
                            "id with --id.",
                            port, wanted, holder_text(port)));
        }
        return wanted;
    }
    for (uint16_t id = k_last_tool_id; id >= k_first_tool_id; --id) {
        if (port_is_free(id)) {
            return id;
        }
    }
    throw node_trouble(fmt::format("the ids {} to {}, which tools take by themselves, are all in use on this "
                                   "machine. Choose one with --id.",
                                   k_first_tool_id, k_last_tool_id));
}

std::string choose_ip(const std::string &wanted, const vexa_node_t &manager) {
    const auto own = address_toward(parse_endpoint(manager.ip, manager.port));
    if (!own) {
        throw node_trouble(fmt::format("this machine has no way to the node manager at {}:{}: {}. Give it an "
                                       "address in that network (ip address add 192.168.1.2/24 dev "
                                       "INTERFACE), or enter a bench: scripts/demo --enter",
                                       manager.ip, manager.port, strerror(errno)));
    }
    return wanted.empty() ? *own : wanted;
}

std::string who(const vexa_node_t &node) {
    return node.name[0] == '\0' ? fmt::format("node {}", node.node_id)
                                : fmt::format("node {} ({})", node.node_id, node.name);
}

vexa_node_t record_of(uint16_t id) {
    vexa_node_t node{};
    (void)nmapping_get(id, &node); // zeros when there is none
    vexa_node_end_texts(&node);
    return node;
}

std::string why_inactive(uint16_t destination, const vexa_node_t &hop, double waited_s) {
    const std::string on_behalf =
        hop.node_id == destination ? "" : fmt::format(", the next hop for {},", destination);
    const char *state = hop.port == 0 ? "has not registered with the node manager"
                                      : "has left, or its keep-alives have stopped";
    return fmt::format("{}{} is not active after {} s: it {}. Start it, or wait longer with --timeout. {}",
                       who(hop), on_behalf, waited_s, state, k_doctor);
}

} // namespace

vexa_node_t preset_manager() {
    if (nmapping_create() != 0) {
        throw node_trouble("the node table cannot be made");
    }
    return record_of(VX_NODE_MANAGER_ID);
}

bus_node::bus_node(const node_options &options, msg_call_back heard)
    : end_signals_(open_end_signals()),
      timeout_s_(options.timeout_s),
      manager_(preset_manager()),
      id_(choose_id(options.id)),
      ip_(choose_ip(options.ip, manager_)) {
    library_log::show(options.verbose);
    if (vision_msg_component_init(static_cast<NodeID>(id_), options.name.c_str(), ip_.c_str(), heard) != 0) {
        vision_msg_component_deinit(); // what has been started all the same
        throw node_trouble("the node cannot be started; --verbose shows the library's reason");
    }
}

bus_node::~bus_node() {
    vision_msg_component_deinit();
}

void bus_node::wait_registered() {
    const auto accepted = [] { return nmapping_get_stat(VX_NODE_MANAGER_ID) == NODE_STAT_ACTIVED; };
    if (!wait_until(deadline(), accepted)) {
        throw node_trouble(
            fmt::format("the node manager at {}:{} has not accepted node {} ({}) within {} s. It may not be "
                        "running ('vexa manager' is one), or the id may be held by a node on another machine "
                        "(choose one with --id). {}",
                        manager_.ip, manager_.port, id_, ip_, timeout_s_, k_doctor));
    }
}

void bus_node::wait_active(uint16_t destination) {
    const uint16_t hop = nmapping_get_next_hop(destination);
    if (!wait_until(deadline(), [hop] { return nmapping_get_stat(hop) == NODE_STAT_ACTIVED; })) {
        throw node_trouble(why_inactive(destination, record_of(hop), timeout_s_));
    }
    const vexa_node_t node = record_of(hop);
    if (!address_toward(parse_endpoint(node.ip, node.port))) {
        throw node_trouble(fmt::format("this machine has no way to {} at {}:{}: {}. The node may have given "
                                       "the node manager a wrong address.",
                                       who(node), node.ip, node.port, strerror(errno)));
    }
}

void bus_node::wait_audience() {
    if (!wait_until(deadline(), [this] { return !audience().empty(); })) {
        throw node_trouble(fmt::format(
            "no node with an id below {} is active after {} s, and a broadcast goes to those only: this one "
            "would reach nobody. Start a node, or choose a higher id with --id. {}",
            id_, timeout_s_, k_doctor));
    }
}

std::vector<uint16_t> bus_node::audience() const {
    std::vector<uint16_t> ids;
    for (uint16_t id = 1; id < id_; ++id) {
        if (nmapping_get_stat(id) == NODE_STAT_ACTIVED) {
            ids.push_back(id);
        }
    }
    return ids;
}

bool bus_node::wait_until(clock::time_point end, const std::function<bool()> &condition) {
    while (!condition()) {
        const auto now = clock::now();
        if (now >= end) {
            return false;
        }
        if (sleep_until(std::min(end, now + k_look_every))) {
            throw interrupted();
        }
    }
    return true;
}

bool bus_node::sleep_until(clock::time_point end) {
    for (;;) {
        const auto left = std::max(clock::duration{0}, end - clock::now());
        const auto left_ns = std::chrono::nanoseconds{left}.count();
        const timespec patience{static_cast<time_t>(left_ns / 1'000'000'000),
                                static_cast<long>(left_ns % 1'000'000'000)};
        pollfd one{end_signals_.get(), POLLIN, 0};
        const int ready = ppoll(&one, 1, &patience, nullptr);
        if (ready > 0) {
            return true;
        }
        if (ready == 0 || clock::now() >= end) {
            return false;
        }
    }
}

bus_node::clock::time_point bus_node::deadline() const {
    return clock::now() +
           std::chrono::duration_cast<clock::duration>(std::chrono::duration<double>(timeout_s_));
}

} // namespace vexa
