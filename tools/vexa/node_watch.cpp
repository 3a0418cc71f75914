// Nodes, from what travels. See node_watch.h.
#include "node_watch.h"

#include "decoder.h"
#include "formats.h"
#include "manager_protocol.h"

#include <algorithm>
#include <arpa/inet.h>

namespace vexa {
namespace {

constexpr size_t k_most_nodes = 512;                // whoever sends with all ids fills no memory
constexpr int64_t k_keep_alive_ns = 11'000'000'000; // the period of REGISTERs, and a second for being late

std::string printable(std::string text) {
    std::ranges::replace_if(
        text, [](char c) { return c < ' ' || c > '~'; }, '?');
    return text;
}

void take_record(const vexa_node_t &record, seen_node &to) {
    in_addr ip{};
    to.name = printable(record.name);
    to.ip = printable(record.ip);
    to.address = {inet_pton(AF_INET, record.ip, &ip) == 1 ? ntohl(ip.s_addr) : 0, record.port};
}

} // namespace

void node_watch::see(const udp_datagram &datagram) {
    const formats::datagram payload{datagram.bytes, datagram.wire_size, datagram.dst.port,
                                    datagram.incomplete};
    const formats::glance seen = formats::look(payload);
    if (seen.wire != &formats::k_route || seen.what == nullptr) {
        return;
    }
    begin_ns_ = begin_ns_.value_or(datagram.time_ns);
    seen_node *sender = find_or_add(seen.src, datagram.time_ns);
    if (sender == nullptr) {
        return;
    }
    ++sender->messages;
    sender->last_ns = datagram.time_ns;
    if (sender->ip.empty()) {
        sender->address = datagram.src;
    }
    if (seen.kind == MSTP_NODE_MGR) {
        see_table(datagram);
        see_request(datagram);
        see_info(datagram);
    }
}

seen_node *node_watch::find_or_add(uint16_t id, int64_t time_ns) {
    const auto known = nodes_.find(id);
    if (known != nodes_.end() || nodes_.size() >= k_most_nodes) {
        return known != nodes_.end() ? &known->second : nullptr;
    }
    return &nodes_.emplace(id, seen_node{.first_ns = time_ns}).first->second;
}

/// The node manager has the last word.
void node_watch::see_table(const udp_datagram &datagram) {
    const auto records = table_in(datagram);
    if (!records) {
        return;
    }
    for (const vexa_node_t &record : *records) {
        seen_node *node = find_or_add(record.node_id, datagram.time_ns);
        if (node == nullptr) {
            continue;
        }
        take_record(record, *node);
        if (record.stat != NODE_STAT_ACTIVED) {
            node->state = node_state::inactive;
            node->registered_ns = 0;
        } else if (node->state != node_state::active) {
            become_active(*node, datagram.time_ns);
        }
    }
    first_table_ns_ = first_table_ns_.value_or(datagram.time_ns);
}

/// It is known since when when it was known not to be before: by an earlier table, or because it would have
/// been heard within the period of keep-alives.
void node_watch::become_active(seen_node &node, int64_t time_ns) const {
    const bool was_out = node.state == node_state::inactive;
    const bool is_new = first_table_ns_.has_value() && node.first_ns > *first_table_ns_;
    const bool was_silent = node.first_ns - *begin_ns_ > k_keep_alive_ns;
    node.state = node_state::active;
    node.registered_ns = time_ns;
    node.registered_before = !was_out && !is_new && !was_silent;
}

void node_watch::see_request(const udp_datagram &datagram) {
    const auto read = read_request(datagram.bytes);
    const auto *request = std::get_if<manager_request>(&read);
    seen_node *node = request != nullptr ? find_or_add(request->node.node_id, datagram.time_ns) : nullptr;
    if (node == nullptr) {
        return;
    }
    if (request->command == MGR_CMD_UNREGISTER) {
        node->state = node_state::inactive;
        node->registered_ns = 0;
        return;
    }
    if (node->state == node_state::heard) {
        node->state = node_state::registering;
    }
    if (node->ip.empty()) {
        take_record(request->node, *node);
    }
}

/// What a node says to another one about itself.
void node_watch::see_info(const udp_datagram &datagram) {
    const bool is_info =
        datagram.bytes.size() == VX_MSG_HEAD_SIZE + VX_NODE_RECORD_SIZE && !datagram.incomplete;
    if (!is_info) {
        return;
    }
    vexa_node_t record = vexa_node_load(&datagram.bytes[VX_MSG_HEAD_SIZE]);
    vexa_node_end_texts(&record);
    const vx_msg_head_t head = vx_msg_head_load(datagram.bytes.data());
    seen_node *node = record.node_id == head.src ? find_or_add(head.src, datagram.time_ns) : nullptr;
    if (node == nullptr || node->state == node_state::active) {
        return;
    }
    node->state = node->state == node_state::heard ? node_state::registering : node->state;
    take_record(record, *node);
}

const char *name_of(node_state state) {
    switch (state) {
    case node_state::active:
        return "active";
    case node_state::inactive:
        return "inactive";
    case node_state::registering:
        return "registering";
    default:
        return "heard";
    }
}

} // namespace vexa
