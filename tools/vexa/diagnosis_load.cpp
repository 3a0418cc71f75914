// The rules about processes that hang, sockets that overflow, and datagrams that are not as they must be.
#include "diagnosis_rules.h"

#include <algorithm>
#include <fmt/core.h>

namespace vexa::rules {
namespace {

constexpr size_t k_most_lines = 5; // of one kind of oddity; the rest is counted

bool is_node_port(uint16_t port) {
    return port >= VX_NODE_PORT_BASE && port < VX_NODE_PORT_BASE + VX_NODE_COUNT;
}

uint16_t id_of(uint16_t port) {
    return static_cast<uint16_t>(port - VX_NODE_PORT_BASE);
}

std::string who(uint16_t port) {
    return id_of(port) == VX_NODE_MANAGER_ID ? "the node manager" : fmt::format("node {}", id_of(port));
}

bool is_stopped(const udp_socket &socket) {
    return socket.holder && (socket.holder->state == 'T' || socket.holder->state == 't');
}

/// What was lost while this program listened.
uint64_t lost_meanwhile(const doctor_facts &facts, const udp_socket &socket) {
    const auto &before = facts.before.sockets;
    const auto same = std::find_if(before.begin(), before.end(),
                                   [&](const udp_socket &each) { return each.inode == socket.inode; });
    return same == before.end() ? socket.drops : socket.drops - std::min(socket.drops, same->drops);
}

/// Half of the buffer lies unread: nobody who reads at all lets it come to that.
bool is_clogged(const doctor_facts &facts, const udp_socket &socket) {
    return facts.now.rmem_default && socket.waiting_bytes >= *facts.now.rmem_default / 2;
}

std::string buffer_advice(const machine_facts &machine) {
    return fmt::format(
        "give sockets more room before the nodes start (sysctl -w net.core.rmem_default={}), or send "
        "less at a time",
        4 * machine.rmem_default.value_or(0));
}

void check_stopped(const udp_socket &socket, findings &to) {
    to.push_back(
        {symptom::node_stopped, id_of(socket.local.port),
         fmt::format("the process of {}, {}, is stopped (state {})", who(socket.local.port),
                     holder_text(socket), socket.holder->state),
         fmt::format("let it go on: kill -CONT {}; or end it and its debugger", socket.holder->pid)});
}

void check_clogged(const udp_socket &socket, findings &to) {
    to.push_back(
        {symptom::node_not_reading, id_of(socket.local.port),
         fmt::format("{}, {}, does not read: {} bytes wait in its socket, and {} datagrams are lost",
                     who(socket.local.port), holder_text(socket), socket.waiting_bytes, socket.drops),
         "its callback hangs, or takes too long: while it runs nothing is received. Look with a debugger "
         "where it is"});
}

void check_drops(const doctor_facts &facts, const udp_socket &socket, findings &to) {
    const uint64_t meanwhile = lost_meanwhile(facts, socket);
    to.push_back(
        {symptom::drops, id_of(socket.local.port),
         fmt::format("{}, {}, has lost {} datagrams since it started, {} of them while this listened",
                     who(socket.local.port), holder_text(socket), socket.drops, meanwhile),
         "it was too slow for what came at a time: " + buffer_advice(facts.now)});
}

void check_burst(const doctor_facts &facts, const endpoint &receiver, const burst &worst, findings &to) {
    const auto room = facts.now.rmem_default;
    if (!is_node_port(receiver.port) || !room || worst.bytes <= *room || !facts.now.is_own(receiver.ip)) {
        return;
    }
    to.push_back(
        {symptom::small_buffer, id_of(receiver.port),
         fmt::format("{} messages came to {} within {} ms, which need {} bytes of its receive buffer; it "
                     "has {}",
                     worst.messages, who(receiver.port), k_burst_ms, worst.bytes, *room),
         "what it does not read at once is lost: " + buffer_advice(facts.now)});
}

void list(const std::vector<oddity> &all, symptom what, const std::string &advice, findings &to) {
    for (size_t i = 0; i < std::min(all.size(), k_most_lines); ++i) {
        const oddity &each = all[i];
        const std::string more = i + 1 == k_most_lines && all.size() > k_most_lines
                                     ? fmt::format("; {} more like it", all.size() - k_most_lines)
                                     : "";
        to.push_back(
            {what, id_of(each.to.port),
             fmt::format("{} datagram{} from {} to {} at {}: {}{}", each.times, each.times == 1 ? "" : "s",
                         to_text(each.from), who(each.to.port), to_text(each.to), each.what, more),
             advice});
    }
}

} // namespace

void check_processes(const doctor_facts &facts, findings &to) {
    for (const udp_socket &socket : facts.now.sockets) {
        if (!is_node_port(socket.local.port)) {
            continue;
        }
        if (is_stopped(socket)) {
            check_stopped(socket, to);
        } else if (is_clogged(facts, socket)) {
            check_clogged(socket, to);
        } else if (socket.drops > 0) {
            check_drops(facts, socket, to);
        }
    }
}

void check_traffic(const doctor_facts &facts, findings &to) {
    if (!facts.heard) {
        if (!facts.why_not_heard.empty()) {
            to.push_back({symptom::not_heard, std::nullopt, "could not listen: " + facts.why_not_heard,
                          "run it as root, or with --listen 0 to leave that out"});
        }
        return;
    }
    to.push_back({symptom::traffic, std::nullopt,
                  fmt::format("{} datagrams to ports of the bus were heard in {:.1f} s",
                              facts.heard->bus_messages(), facts.listened_s),
                  ""});
    for (const auto &[receiver, worst] : facts.heard->bursts()) {
        check_burst(facts, receiver, worst, to);
    }
    list(facts.heard->malformed(), symptom::malformed,
         "find who sends from there ('ss -unp' on that machine); nodes drop or misread it", to);
    list(facts.heard->cut(), symptom::cut, "send at most 8176 bytes of payload", to);
    list(facts.heard->refused(), symptom::refused_ids,
         "correct the ids: a node takes source and destination up to 127; the proxy takes all", to);
}

} // namespace vexa::rules
