// A while of listening, summed up. See traffic_watch.h.
#include "traffic_watch.h"

#include "decoder.h"
#include "known_table.h"

#include <algorithm>

namespace vexa {
namespace {

constexpr size_t k_most_oddities = 200; // of one kind; whoever sends nonsense from many ports fills no memory
constexpr size_t k_most_receivers = 1024;
constexpr int64_t k_burst_ns = int64_t{k_burst_ms} * 1'000'000;
constexpr uint64_t k_overhead_bytes =
    768; // that the system charges for a datagram besides its bytes, at least

bool is_bus_port(uint16_t port) {
    return port >= VX_NODE_PORT_BASE && port < VX_NODE_PORT_BASE + VX_NODE_COUNT;
}

} // namespace

void traffic_watch::see(const udp_datagram &datagram) {
    if (!is_bus_port(datagram.dst.port)) {
        return;
    }
    ++bus_messages_;
    note_session(datagram);
    note_oddities(datagram);
    note_burst(datagram);
}

void traffic_watch::note_session(const udp_datagram &datagram) {
    if (const auto nodes = table_in(datagram)) {
        ++manager_messages_;
        table_ = nodes;
        const vx_msg_head_t head = vx_msg_head_load(datagram.bytes.data());
        const bool accepts = (datagram.bytes[offsetof(vx_msg_head_t, flag)] & 0x80) != 0;
        registrations_[head.dst].accepted += accepts ? 1 : 0;
        return;
    }
    const auto request = read_request(datagram.bytes);
    const auto *asked = std::get_if<manager_request>(&request);
    if (asked != nullptr && asked->command == MGR_CMD_REGISTER) {
        ++registrations_[asked->node.node_id].from[datagram.src];
    }
}

void traffic_watch::note_oddities(const udp_datagram &datagram) {
    const formats::decoded read = formats::decode({datagram.bytes, datagram.wire_size, datagram.dst.port});
    for (const formats::finding &each : read.findings) {
        if (each.code == formats::finding_code::over_read) {
            count(cut_, datagram, each.text);
        } else if (each.code == formats::finding_code::ids_refused) {
            count(refused_, datagram, each.text);
        } else if (each.code != formats::finding_code::capture_cut && each.how != formats::severity::note) {
            count(malformed_, datagram, each.text);
        }
    }
}

void traffic_watch::note_burst(const udp_datagram &datagram) {
    if (windows_.size() >= k_most_receivers && !windows_.contains(datagram.dst)) {
        return;
    }
    window &now = windows_[datagram.dst];
    if (now.sum.messages == 0 || datagram.time_ns - now.start_ns >= k_burst_ns) {
        now = {datagram.time_ns, {}};
    }
    now.sum.bytes += datagram.wire_size + k_overhead_bytes;
    ++now.sum.messages;
    burst &worst = worst_[datagram.dst];
    worst = worst.bytes < now.sum.bytes ? now.sum : worst;
}

void traffic_watch::count(oddity_count &where, const udp_datagram &datagram, const std::string &what) {
    const oddity_key key{datagram.src, datagram.dst, what};
    if (where.size() < k_most_oddities || where.contains(key)) {
        ++where[key];
    }
}

std::vector<oddity> traffic_watch::list_of(const oddity_count &counted) {
    std::vector<oddity> all;
    for (const auto &[key, times] : counted) {
        all.push_back({std::get<0>(key), std::get<1>(key), std::get<2>(key), times});
    }
    return all;
}

} // namespace vexa
