// The nodes' sockets, from look to look. See socket_watch.h.
#include "socket_watch.h"

#include <algorithm>
#include <numeric>
#include <tuple>

namespace vexa {
namespace {

bool is_nodes(const udp_socket &socket) {
    return socket.local.port >= VX_NODE_PORT_BASE && socket.local.port < VX_NODE_PORT_BASE + VX_NODE_COUNT;
}

} // namespace

bool socket_watch::needs_holders(const std::vector<udp_socket> &table) const {
    return std::ranges::any_of(
        table, [&](const udp_socket &each) { return is_nodes(each) && !sockets_.contains(each.inode); });
}

void socket_watch::update(const std::vector<udp_socket> &table, int64_t now_ns) {
    std::map<uint64_t, node_socket> now;
    const double passed_s = static_cast<double>(now_ns - last_ns_) / 1e9;
    for (const udp_socket &each : table) {
        if (!is_nodes(each)) {
            continue;
        }
        const auto known = sockets_.find(each.inode);
        node_socket next = known != sockets_.end() ? known->second : node_socket{.inode = each.inode};
        next.node_id = static_cast<uint16_t>(each.local.port - VX_NODE_PORT_BASE);
        next.local = each.local;
        next.waiting_bytes = each.waiting_bytes;
        next.holder = each.holder ? holder_text(each) : next.holder;
        const bool comparable = known != sockets_.end() && each.drops >= next.drops;
        // A socket that was not there at the last look has lost all of its drops since.
        const uint64_t more = comparable ? each.drops - next.drops : looked_before_ ? each.drops : 0;
        next.drops_per_s = looked_before_ && passed_s > 0 ? static_cast<double>(more) / passed_s : 0;
        next.new_drops += more;
        next.drops = each.drops;
        now.emplace(each.inode, next);
    }
    sockets_ = std::move(now);
    last_ns_ = now_ns;
    looked_before_ = true;
}

std::vector<node_socket> socket_watch::all() const {
    std::vector<node_socket> list;
    for (const auto &[inode, each] : sockets_) {
        list.push_back(each);
    }
    std::ranges::sort(list, {}, [](const node_socket &each) { return std::tuple{each.node_id, each.local}; });
    return list;
}

uint64_t socket_watch::new_drops() const {
    return std::accumulate(sockets_.begin(), sockets_.end(), uint64_t{0},
                           [](uint64_t sum, const auto &each) { return sum + each.second.new_drops; });
}

} // namespace vexa
