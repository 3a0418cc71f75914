// The node manager's memory. See node_registry.h.
#include "node_registry.h"

#include <algorithm>
#include <string_view>

namespace vexa {
namespace {

bool is_active(const vexa_node_t &node) {
    return node.stat == NODE_STAT_ACTIVED;
}

/// Whether two records, whose texts end, tell the others the same.
bool same(const vexa_node_t &a, const vexa_node_t &b) {
    return std::string_view{a.name} == b.name && std::string_view{a.ip} == b.ip && a.port == b.port;
}

} // namespace

node_registry::node_registry(clock::duration keep_alive, int missed)
    : silence_limit_(keep_alive * missed + keep_alive / 2) {
}

node_registry::outcome node_registry::handle(const manager_request &request, endpoint from,
                                             clock::time_point now) {
    const std::optional<entry> &holder = entries_.at(request.node.node_id);
    if (holder && is_active(holder->record) && holder->address.ip != from.ip) {
        return {refusal::id_taken, std::nullopt};
    }
    return request.command == MGR_CMD_REGISTER ? join(request.node, from, now) : leave(request.node.node_id);
}

node_registry::outcome node_registry::join(const vexa_node_t &node, endpoint from, clock::time_point now) {
    std::optional<entry> &slot = entries_.at(node.node_id);
    const std::optional<entry> before = slot;
    slot = entry{node, from, now};
    slot->record.stat = NODE_STAT_ACTIVED;
    if (!before || !is_active(before->record)) {
        return {std::nullopt, change{node.node_id, event::joined}};
    }
    if (!same(before->record, node)) {
        return {std::nullopt, change{node.node_id, event::changed}};
    }
    return {};
}

node_registry::outcome node_registry::leave(uint16_t node_id) {
    // cppcheck-suppress constVariable; its entry is written to
    std::optional<entry> &slot = entries_.at(node_id);
    if (!slot || !is_active(slot->record)) {
        return {refusal::not_registered, std::nullopt};
    }
    slot->record.stat = NODE_STAT_INACTIVED;
    return {std::nullopt, change{node_id, event::left}};
}

std::vector<node_registry::change> node_registry::expire(clock::time_point now) {
    std::vector<change> lost;
    for (std::optional<entry> &slot : entries_) {
        if (slot && is_active(slot->record) && now - slot->heard >= silence_limit_) {
            slot->record.stat = NODE_STAT_INACTIVED;
            lost.push_back({slot->record.node_id, event::lost});
        }
    }
    return lost;
}

std::optional<node_registry::clock::time_point> node_registry::next_expiry() const {
    std::optional<clock::time_point> next;
    for (const std::optional<entry> &slot : entries_) {
        if (slot && is_active(slot->record)) {
            const clock::time_point then = slot->heard + silence_limit_;
            next = next ? std::min(*next, then) : then;
        }
    }
    return next;
}

std::vector<vexa_node_t> node_registry::records() const {
    std::vector<vexa_node_t> all;
    for (const std::optional<entry> &slot : entries_) {
        if (slot) {
            all.push_back(slot->record);
        }
    }
    return all;
}

std::vector<node_registry::peer> node_registry::active() const {
    std::vector<peer> all;
    for (const std::optional<entry> &slot : entries_) {
        if (slot && is_active(slot->record)) {
            all.push_back({slot->record.node_id, slot->address});
        }
    }
    return all;
}

std::optional<vexa_node_t> node_registry::find(uint16_t node_id) const {
    if (node_id >= entries_.size() || !entries_[node_id]) {
        return std::nullopt;
    }
    return entries_[node_id]->record;
}

const char *name_of(node_registry::event what) {
    switch (what) {
    case node_registry::event::joined:
        return "joined";
    case node_registry::event::changed:
        return "changed";
    case node_registry::event::left:
        return "left";
    case node_registry::event::lost:
        return "lost";
    }
    return "?";
}

} // namespace vexa
