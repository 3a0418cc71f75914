// The rules about the node manager, registrations and the node table.
#include "diagnosis_rules.h"

#include "bench_socket.h"
#include "bus_node.h"

#include <algorithm>
#include <fmt/core.h>
#include <fmt/ranges.h>
#include <stdexcept>

namespace vexa::rules {
namespace {

constexpr double k_keep_alive_s = 10;

std::string ip_text(uint32_t ip) {
    const std::string text = to_text({ip, 0});
    return text.substr(0, text.find(':'));
}

uint16_t port_of(uint16_t id) {
    return static_cast<uint16_t>(VX_NODE_PORT_BASE + id);
}

std::string who(const vexa_node_t &node) {
    return node.name[0] == '\0' ? fmt::format("node {}", node.node_id)
                                : fmt::format("node {} ({})", node.node_id, node.name);
}

/// The address that a node has told; nothing when it is none.
std::optional<endpoint> address_of(const vexa_node_t &node) {
    try {
        return parse_endpoint(node.ip, node.port);
    } catch (const std::invalid_argument &) {
        return std::nullopt;
    }
}

/// Who has a node's port on this machine, at whatever address.
const udp_socket *holder_here(const machine_facts &machine, uint16_t port) {
    const auto found = std::find_if(machine.sockets.begin(), machine.sockets.end(),
                                    [port](const udp_socket &each) { return each.local.port == port; });
    return found == machine.sockets.end() ? nullptr : &*found;
}

bool is_tool(uint16_t id) {
    return id >= k_first_tool_id && id <= k_last_tool_id;
}

void check_addresses(const doctor_facts &facts, findings &to) {
    for (const own_address &each : facts.now.addresses) {
        to.push_back(
            {symptom::own_address, std::nullopt,
             fmt::format("this machine has {}/{} ({})", ip_text(each.ip), each.prefix, each.interface), ""});
    }
    if (facts.now.no_way) {
        const std::string ip = ip_text(facts.manager.ip);
        to.push_back(
            {symptom::no_way_to_manager, std::nullopt,
             fmt::format("this machine has no way to the node manager at {}: {}", to_text(facts.manager),
                         *facts.now.no_way),
             fmt::format("give it an address in that network (ip address add {}2/24 dev INTERFACE), and "
                         "look whether the interface is up (ip link)",
                         ip.substr(0, ip.rfind('.') + 1))});
    }
}

/// Whether somebody sits where the node manager should, when that is this machine.
void check_manager_port(const doctor_facts &facts, findings &to) {
    if (facts.now.no_way || !facts.now.is_own(facts.manager.ip)) {
        return;
    }
    if (const udp_socket *holder = facts.now.receiver_at(facts.manager.ip, facts.manager.port)) {
        to.push_back(
            {symptom::manager_here, std::nullopt,
             fmt::format("{} receives at {} on this machine", holder_text(*holder), to_text(facts.manager)),
             ""});
        return;
    }
    const udp_socket *elsewhere = holder_here(facts.now, facts.manager.port);
    to.push_back(
        {symptom::manager_missing, VX_NODE_MANAGER_ID,
         fmt::format("this machine has the node manager's address, and nobody receives at {}{}",
                     to_text(facts.manager),
                     elsewhere == nullptr ? ""
                                          : fmt::format("; {} receives at {}", holder_text(*elsewhere),
                                                        to_text(elsewhere->local))),
         "start the node manager: 'vexa manager', or the vehicle's own"});
}

uint64_t registers_heard(const traffic_watch &heard) {
    uint64_t sum = 0;
    for (const auto &[id, each] : heard.registrations()) {
        for (const auto &[from, times] : each.from) {
            sum += times;
        }
    }
    return sum;
}

void check_answers(const doctor_facts &facts, findings &to) {
    if (facts.not_answered) {
        to.push_back({symptom::manager_silent, VX_NODE_MANAGER_ID, *facts.not_answered,
                      "look whether the node manager runs on its machine, and whether datagrams get there"});
        return;
    }
    if (facts.answered) {
        to.push_back({symptom::manager_answers, std::nullopt,
                      fmt::format("the node manager at {} has accepted this program as a node",
                                  to_text(facts.manager)),
                      ""});
    }
    const uint64_t asked = facts.heard ? registers_heard(*facts.heard) : 0;
    if (facts.heard && facts.heard->manager_messages() > 0) {
        to.push_back({symptom::manager_answers, std::nullopt,
                      fmt::format("the node manager answers: {} messages of it were heard",
                                  facts.heard->manager_messages()),
                      ""});
    } else if (asked > 0) {
        to.push_back({symptom::manager_silent, VX_NODE_MANAGER_ID,
                      fmt::format("{} REGISTERs were heard in {:.1f} s, and no answer of the node manager",
                                  asked, facts.listened_s),
                      fmt::format("look what receives at {}, and whether it is a node manager",
                                  to_text(facts.manager))});
    }
}

/// A node that is told the table but never accepted registers every second, and nobody sends to it.
void check_accepted(const doctor_facts &facts, uint16_t id, const registration &seen, findings &to) {
    const bool refused_twice = std::any_of(seen.from.begin(), seen.from.end(), [&](const auto &each) {
        return each.second >= 2; // the first answer may have been on its way when listening began or ended
    });
    if (facts.heard->manager_messages() > 0 && seen.accepted == 0 && refused_twice) {
        to.push_back(
            {symptom::not_accepted, id,
             fmt::format("node {} registers again and again from {}, and the node manager does not "
                         "accept it",
                         id, to_text(seen.from.begin()->first)),
             "a node manager refuses an id that is active at another address: end that node, or give "
             "this one another id; a 'vexa manager' prints its reasons"});
    }
}

void check_duplicate(uint16_t id, const registration &seen, findings &to) {
    if (seen.from.size() < 2) {
        return;
    }
    std::vector<std::string> places;
    bool one_machine = true;
    for (const auto &[from, times] : seen.from) {
        places.push_back(to_text(from));
        one_machine = one_machine && from.ip == seen.from.begin()->first.ip;
    }
    const std::string on_one = fmt::format("two processes of one machine have it, and the one that is not at "
                                           "port {} receives nothing; end one of "
                                           "them ('ss -lunp sport = :{}' shows the other)",
                                           port_of(id), port_of(id));
    to.push_back({symptom::duplicate_id, id,
                  fmt::format("node id {} registers from {} places: {}", id, seen.from.size(),
                              fmt::join(places, " and ")),
                  one_machine
                      ? on_one
                      : "nodes on several machines have it, and only one of them is accepted; give the "
                        "others ids of their own"});
}

void check_proxy(const known_table &table, findings &to) {
    const auto proxy = table.find(PROXY_NODE_ID);
    if (!proxy || proxy->stat != NODE_STAT_ACTIVED) {
        to.push_back(
            {symptom::proxy_missing, PROXY_NODE_ID,
             "the proxy (node 127) is not active: destinations from 127 up are refused, and heartbeat "
             "operations get nowhere",
             "start the node with id 127"});
    }
}

/// An active node, as the node manager has it, against this machine.
void check_active(const doctor_facts &facts, const vexa_node_t &node, findings &to) {
    const auto address = address_of(node);
    const bool points_here = address && facts.now.is_own(address->ip);
    const udp_socket *holder = holder_here(facts.now, node.port);
    if (!address || address->ip == 0 || (!points_here && holder != nullptr)) {
        to.push_back(
            {symptom::wrong_address, node.node_id,
             fmt::format("{} has told the node manager that it is at '{}', {}", who(node), node.ip,
                         holder != nullptr ? fmt::format("which is no address of this machine, where {} "
                                                         "has its port",
                                                         holder_text(*holder))
                                           : "which is no address"),
             "start it with the address at which the others reach it (third argument of "
             "vision_msg_component_init)"});
    } else if (points_here && facts.now.receiver_at(address->ip, node.port) == nullptr) {
        to.push_back({symptom::node_gone, node.node_id,
                      fmt::format("{} counts as active at {} on this machine, and nobody receives there",
                                  who(node), to_text(*address)),
                      "its process has ended without leaving the bus: look why, and start it again. The node "
                      "manager notices when its keep-alives stay away"});
    }
}

void check_inactive(const doctor_facts &facts, const vexa_node_t &node, findings &to) {
    if (is_tool(node.node_id)) {
        return; // they come and go
    }
    const udp_socket *holder = holder_here(facts.now, node.port);
    to.push_back(
        {symptom::node_inactive, node.node_id,
         fmt::format("{} is not active: it has left, or was lost{}", who(node),
                     holder == nullptr
                         ? ""
                         : fmt::format(", although {} has its port on this machine", holder_text(*holder))),
         holder == nullptr ? "start it if it is wanted"
                           : "look whether that process is the node, and why its keep-alives stay away"});
}

/// Only where a node's REGISTERs must have been seen, had there been any.
void check_keep_alive(const doctor_facts &facts, const vexa_node_t &node, findings &to) {
    const auto address = address_of(node);
    const bool would_be_seen =
        facts.now.is_own(facts.manager.ip) || (address && facts.now.is_own(address->ip));
    if (!facts.heard || facts.listened_s <= k_keep_alive_s || !would_be_seen ||
        (facts.heard->registrations().contains(node.node_id) &&
         !facts.heard->registrations().at(node.node_id).from.empty())) {
        return;
    }
    to.push_back(
        {symptom::keep_alive_missing, node.node_id,
         fmt::format("{} counts as active and has sent no keep-alive in {:.1f} s; they are due every "
                     "{:.0f} s",
                     who(node), facts.listened_s, k_keep_alive_s),
         "it has ended, is stopped, or its machine is cut off: look at its process"});
}

} // namespace

void check_manager(const doctor_facts &facts, findings &to) {
    check_addresses(facts, to);
    check_manager_port(facts, to);
    check_answers(facts, to);
}

void check_planned_node(const doctor_facts &facts, findings &to) {
    if (!facts.id) {
        return;
    }
    const uint16_t port = port_of(*facts.id);
    if (const udp_socket *holder = holder_here(facts.now, port)) {
        to.push_back({symptom::port_taken, facts.id,
                      fmt::format("UDP port {}, where node {} would receive, is taken by {}", port, *facts.id,
                                  holder_text(*holder)),
                      "end that process, or give the node another id"});
        return;
    }
    to.push_back({symptom::port_free, facts.id,
                  fmt::format("UDP port {}, where node {} would receive, is free", port, *facts.id), ""});
    const auto other = facts.table ? facts.table->find(*facts.id) : std::nullopt;
    if (other && other->stat == NODE_STAT_ACTIVED) {
        to.push_back({symptom::id_taken, facts.id,
                      fmt::format("{} is active at {}:{}; the node manager would refuse another node {}",
                                  who(*other), other->ip, other->port, *facts.id),
                      "end that node, or give the new one another id"});
    }
}

void check_registrations(const doctor_facts &facts, findings &to) {
    if (!facts.heard) {
        return;
    }
    for (const auto &[id, seen] : facts.heard->registrations()) {
        check_duplicate(id, seen, to);
        if (!seen.from.empty()) {
            check_accepted(facts, id, seen, to);
        }
    }
}

void check_table(const doctor_facts &facts, findings &to) {
    if (!facts.table) {
        to.push_back({symptom::no_table, std::nullopt,
                      "the node table is not known, so nodes could not be compared with it",
                      "listen for at least 11 s (--listen), ask for it (--ask), or give a file (--table)"});
        return;
    }
    const auto &nodes = facts.table->nodes;
    const auto active = std::count_if(nodes.begin(), nodes.end(),
                                      [](const vexa_node_t &each) { return each.stat == NODE_STAT_ACTIVED; });
    to.push_back(
        {symptom::table, std::nullopt,
         fmt::format("the node table, {}, has {} nodes, {} active", facts.table->from, nodes.size(), active),
         ""});
    check_proxy(*facts.table, to);
    for (const vexa_node_t &node : nodes) {
        if (node.node_id == VX_NODE_MANAGER_ID) {
            continue;
        }
        if (node.stat == NODE_STAT_ACTIVED) {
            check_active(facts, node, to);
            check_keep_alive(facts, node, to);
        } else {
            check_inactive(facts, node, to);
        }
    }
}

} // namespace vexa::rules
