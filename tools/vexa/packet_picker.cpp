// Packets by the messages they carry. See packet_picker.h.
#include "packet_picker.h"

#include <netinet/in.h>
#include <utility>

namespace vexa {
namespace {

constexpr int64_t k_patience_ns = 500'000'000;
constexpr size_t k_most_held = 1024; // fragments

} // namespace

void packet_picker::feed(const raw_packet &packet, const sink &to) {
    release_old(packet.time_ns, to);
    const std::optional<ipv4_packet> ip = find_ipv4(packet);
    const bool is_fragment = ip && ip->protocol == IPPROTO_UDP && (ip->more || ip->offset > 0);
    const datagram_id id = ip ? datagram_id{ip->src, ip->dst, ip->id} : datagram_id{};
    const uint64_t others_before = assembler_.others();
    if (is_fragment) {
        hold(id, packet);
    }
    assembler_.feed(packet, [&](const udp_datagram &datagram) {
        if (!datagram.incomplete) { // else it was given up, and its fragments go when their time is over
            judge(datagram, packet, is_fragment ? &id : nullptr, to);
        }
    });
    if (assembler_.others() > others_before && how_.all) {
        to(packet, nullptr);
    }
}

void packet_picker::judge(const udp_datagram &datagram, const raw_packet &packet,
                          const datagram_id *fragments_of, const sink &to) {
    const formats::decoded read = formats::decode(
        {.bytes = datagram.bytes, .wire_size = datagram.wire_size, .dst_port = datagram.dst.port});
    const seen_message message{datagram, read};
    const bool wanted = (read.wire != nullptr || how_.all) && how_.wanted.matches(message);
    if (fragments_of != nullptr) {
        // The fragment that completes the message is the last one held.
        held_packet last = std::move(held_.back());
        held_.pop_back();
        give_held(*fragments_of, wanted, to);
        if (wanted) {
            to(last.packet, &message);
        }
    } else if (wanted) {
        to(packet, &message);
    }
}

void packet_picker::hold(const datagram_id &of, const raw_packet &packet) {
    held_.push_back({of, packet, {packet.bytes.begin(), packet.bytes.end()}});
    held_.back().packet.bytes = held_.back().bytes;
}

void packet_picker::give_held(const datagram_id &of, bool wanted, const sink &to) {
    std::deque<held_packet> others;
    for (held_packet &each : std::exchange(held_, {})) {
        if (each.of != of) {
            others.push_back(std::move(each)); // the bytes stay where they are
        } else if (wanted) {
            to(each.packet, nullptr);
        }
    }
    held_ = std::move(others);
}

void packet_picker::give_oldest(const sink &to) {
    const held_packet oldest = std::move(held_.front());
    held_.pop_front();
    to(oldest.packet, nullptr);
}

void packet_picker::release_old(int64_t now_ns, const sink &to) {
    while (!held_.empty() &&
           (now_ns - held_.front().packet.time_ns > k_patience_ns || held_.size() > k_most_held)) {
        give_oldest(to);
    }
}

void packet_picker::finish(const sink &to) {
    while (!held_.empty()) {
        give_oldest(to);
    }
}

} // namespace vexa
