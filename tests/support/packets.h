/**
 * @file
 * Packets as a capture gives them, byte by byte: UDP in IPv4, whole or in fragments, behind any link layer.
 *
 *     const bytes_t frame = packets::ethernet(packets::ipv4({}, packets::udp(40000, 9005, payload)));
 */
#ifndef TEST_PACKETS_H
#define TEST_PACKETS_H

#include <algorithm>
#include <cstdint>
#include <vector>

namespace packets {

using bytes_t = std::vector<uint8_t>;

constexpr uint32_t k_src_ip = 0xC0A80109; // 192.168.1.9
constexpr uint32_t k_dst_ip = 0xC0A80105; // 192.168.1.5

inline void add16(bytes_t &to, size_t value) {
    to.push_back(static_cast<uint8_t>(value >> 8));
    to.push_back(static_cast<uint8_t>(value));
}

inline void add32(bytes_t &to, uint32_t value) {
    add16(to, value >> 16);
    add16(to, value & 0xFFFF);
}

inline bytes_t operator+(bytes_t head, const bytes_t &rest) {
    head.insert(head.end(), rest.begin(), rest.end());
    return head;
}

/** A UDP datagram; its checksum is left out, as IPv4 allows. */
inline bytes_t udp(uint16_t src_port, uint16_t dst_port, const bytes_t &payload) {
    bytes_t head;
    add16(head, src_port);
    add16(head, dst_port);
    add16(head, payload.size() + 8);
    add16(head, 0);
    return head + payload;
}

struct ip_options {
    uint16_t id = 7;
    bool more = false;
    size_t offset = 0; // [bytes]
    uint8_t protocol = 17;
    uint32_t src = k_src_ip;
    uint32_t dst = k_dst_ip;
};

inline bytes_t ipv4(const ip_options &how, const bytes_t &payload) {
    bytes_t head = {0x45, 0};
    add16(head, payload.size() + 20);
    add16(head, how.id);
    add16(head, (how.more ? 0x2000U : 0U) | (how.offset / 8));
    head.insert(head.end(), {64, how.protocol, 0, 0});
    add32(head, how.src);
    add32(head, how.dst);
    uint32_t sum = 0;
    for (size_t i = 0; i < head.size(); i += 2) {
        sum += static_cast<uint32_t>((head[i] << 8) | head[i + 1]);
    }
    sum = (sum & 0xFFFF) + (sum >> 16);
    sum = ~((sum & 0xFFFF) + (sum >> 16));
    head[10] = static_cast<uint8_t>(sum >> 8);
    head[11] = static_cast<uint8_t>(sum);
    return head + payload;
}

/** A piece of an IP payload, as a router would cut it out. */
inline bytes_t fragment(const bytes_t &whole, size_t begin, size_t size, uint16_t id = 7) {
    const size_t end = std::min(begin + size, whole.size());
    const bytes_t piece(whole.begin() + static_cast<ptrdiff_t>(begin),
                        whole.begin() + static_cast<ptrdiff_t>(end));
    return ipv4({.id = id, .more = end < whole.size(), .offset = begin}, piece);
}

/** An Ethernet frame, padded to its least length. */
inline bytes_t ethernet(const bytes_t &ip, const bytes_t &tags = {}) {
    bytes_t frame = bytes_t(12, 0x02) + tags + bytes_t{0x08, 0x00} + ip;
    frame.resize(std::max<size_t>(frame.size(), 60));
    return frame;
}

} // namespace packets

#endif
