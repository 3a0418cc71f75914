// UDP datagrams from IPv4 packets and fragments. See datagrams.h.
#include "datagrams.h"

#include "big_endian.h"

#include <algorithm>
#include <netinet/in.h>

namespace vexa {
namespace {

constexpr size_t k_udp_head = 8;
constexpr size_t k_most_waiting = 64;
constexpr size_t k_longest_packet = 65535;
constexpr int64_t k_patience_ns = 5'000'000'000;

/// Fills in what the UDP header says. False when there is none, or one that says nonsense.
bool read_udp(std::span<const uint8_t> captured, size_t wire, udp_datagram &to) {
    if (captured.size() < k_udp_head) {
        return false;
    }
    const size_t length = be16(captured, 4);
    if (length < k_udp_head) {
        return false;
    }
    to.src.port = be16(captured, 0);
    to.dst.port = be16(captured, 2);
    to.wire_size = std::min(length, std::max(wire, k_udp_head)) - k_udp_head;
    to.bytes = captured.subspan(k_udp_head, std::min(captured.size() - k_udp_head, to.wire_size));
    return true;
}

} // namespace

void datagram_assembler::feed(const raw_packet &packet, const sink &to) {
    if (!waiting_.empty()) {
        give_up_old(packet.time_ns, to);
    }
    const std::optional<ipv4_packet> ip = find_ipv4(packet);
    if (!ip || ip->protocol != IPPROTO_UDP) {
        ++others_;
        return;
    }
    if (ip->more || ip->offset > 0) {
        add_fragment(packet.time_ns, *ip, to);
        return;
    }
    udp_datagram whole{.time_ns = packet.time_ns, .src = {ip->src, 0}, .dst = {ip->dst, 0}};
    if (read_udp(ip->payload, ip->payload_wire, whole)) {
        to(whole);
    } else {
        ++others_;
    }
}

void datagram_assembler::add_fragment(int64_t time_ns, const ipv4_packet &fragment, const sink &to) {
    const packet_id id{fragment.src, fragment.dst, fragment.id};
    if (!waiting_.contains(id) && waiting_.size() >= k_most_waiting) {
        give_up(std::ranges::min_element(waiting_, {}, [](const auto &w) { return w.second.since_ns; }),
                time_ns, to);
    }
    const auto entry = waiting_.try_emplace(id, pending{.since_ns = time_ns}).first;
    pending &p = entry->second;
    if (p.has(fragment)) {
        return; // once more, as when a packet passes two interfaces
    }
    if (!p.has_room_for(fragment)) {
        give_up(entry, time_ns, to); // no honest sender makes such
        return;
    }
    p.add(fragment);
    if (p.total > 0 && p.come >= p.total) {
        give_up(entry, time_ns, to);
    }
}

bool datagram_assembler::pending::has(const ipv4_packet &fragment) const {
    const auto same = pieces.find(fragment.offset);
    return same != pieces.end() && same->second.wire == fragment.payload_wire;
}

/// Whether it overlaps no other one and stays inside the packet.
bool datagram_assembler::pending::has_room_for(const ipv4_packet &fragment) const {
    const size_t end = fragment.offset + fragment.payload_wire;
    if (fragment.payload_wire == 0 || end > k_longest_packet || (total > 0 && end > total)) {
        return false;
    }
    const auto next = pieces.lower_bound(fragment.offset);
    const bool meets_next = next != pieces.end() && next->first < end;
    const bool meets_last =
        next != pieces.begin() && std::prev(next)->first + std::prev(next)->second.wire > fragment.offset;
    return !meets_next && !meets_last;
}

void datagram_assembler::pending::add(const ipv4_packet &fragment) {
    const size_t end = fragment.offset + fragment.payload_wire;
    pieces[fragment.offset] = {fragment.payload_wire, fragment.payload.size()};
    come += fragment.payload_wire;
    bytes.resize(std::max(bytes.size(), end));
    std::ranges::copy(fragment.payload, bytes.begin() + static_cast<ptrdiff_t>(fragment.offset));
    total = fragment.more ? total : end;
}

/// Hands on what there is: the bytes from the start to the first gap.
void datagram_assembler::give_up(std::map<packet_id, pending>::iterator which, int64_t time_ns,
                                 const sink &to) {
    const auto node = waiting_.extract(which); // the sink may feed again
    const pending &p = node.mapped();
    size_t captured = 0;
    size_t travelled = 0;
    for (const auto &[offset, each] : p.pieces) {
        if (offset != travelled) {
            break;
        }
        captured = captured == offset ? offset + each.captured : captured;
        travelled = offset + each.wire;
    }
    udp_datagram result{.time_ns = time_ns, .src = {node.key().src, 0}, .dst = {node.key().dst, 0}};
    result.incomplete = p.total == 0 || travelled != p.total;
    const std::span<const uint8_t> bytes = std::span{p.bytes}.first(captured);
    if (!read_udp(bytes, result.incomplete ? k_longest_packet : travelled, result)) {
        result.incomplete = true;
    }
    to(result);
}

void datagram_assembler::give_up_old(int64_t time_ns, const sink &to) {
    for (auto next = waiting_.begin(); next != waiting_.end();) {
        const auto each = next++;
        if (time_ns - each->second.since_ns > k_patience_ns) {
            give_up(each, time_ns, to);
        }
    }
}

void datagram_assembler::finish(const sink &to) {
    while (!waiting_.empty()) {
        give_up(waiting_.begin(), waiting_.begin()->second.since_ns, to);
    }
}

} // namespace vexa
