// The layers below UDP. See packet.h.
#include "packet.h"

#include "big_endian.h"

#include <algorithm>
#include <array>
#include <pcap/dlt.h>

namespace vexa {
namespace {

using bytes_view = std::span<const uint8_t>;

constexpr uint16_t k_ethertype_ipv4 = 0x0800;
constexpr size_t k_vlan_tag = 4;
constexpr size_t k_ip_head = 20;
constexpr uint32_t k_bsd_inet = 2; // in either byte order: the capturing machine's

bool is_vlan(uint16_t ethertype) {
    return ethertype == 0x8100 || ethertype == 0x88A8;
}

/// Where the network layer begins when it is IPv4's.
std::optional<size_t> behind_ethertype(bytes_view bytes, size_t ethertype_at, size_t begin) {
    for (int tags = 0; bytes.size() >= begin && tags <= 2; ++tags) {
        const uint16_t ethertype = be16(bytes, ethertype_at);
        if (ethertype == k_ethertype_ipv4) {
            return begin;
        }
        if (!is_vlan(ethertype)) {
            break;
        }
        ethertype_at = begin + 2;
        begin += k_vlan_tag;
    }
    return std::nullopt;
}

std::optional<size_t> behind_ethernet(bytes_view bytes) {
    return behind_ethertype(bytes, 12, 14);
}

std::optional<size_t> behind_sll(bytes_view bytes) {
    return behind_ethertype(bytes, 14, 16);
}

/// The newer format of "any" has the ethertype first.
std::optional<size_t> behind_sll2(bytes_view bytes) {
    return behind_ethertype(bytes, 0, 20);
}

std::optional<size_t> behind_bsd(bytes_view bytes) {
    if (bytes.size() < 4) {
        return std::nullopt;
    }
    const uint32_t kind = be32(bytes, 0);
    return kind == k_bsd_inet || kind == k_bsd_inet << 24 ? std::optional<size_t>{4} : std::nullopt;
}

std::optional<size_t> bare(bytes_view /*bytes*/) {
    return 0;
}

struct link_layer {
    int link_type;
    std::optional<size_t> (*network_layer)(bytes_view bytes);
};

constexpr auto k_link_layers = std::to_array<link_layer>({
    {DLT_EN10MB, behind_ethernet},
    {DLT_LINUX_SLL, behind_sll},
    {DLT_LINUX_SLL2, behind_sll2},
    {DLT_NULL, behind_bsd},
    {DLT_LOOP, behind_bsd},
    {DLT_RAW, bare},
    {DLT_IPV4, bare},
});

const link_layer *find_layer(int link_type) {
    const auto *row = std::ranges::find(k_link_layers, link_type, &link_layer::link_type);
    return row == k_link_layers.end() ? nullptr : row;
}

std::optional<ipv4_packet> read_ipv4(bytes_view ip) {
    if (ip.size() < k_ip_head || ip[0] >> 4 != 4) {
        return std::nullopt;
    }
    const size_t head = 4 * static_cast<size_t>(ip[0] & 0xF);
    const size_t total = be16(ip, 2);
    if (head < k_ip_head || total < head || ip.size() < head) {
        return std::nullopt;
    }
    const uint16_t fragment = be16(ip, 6);
    const size_t payload = total - head;
    return ipv4_packet{.src = be32(ip, 12),
                       .dst = be32(ip, 16),
                       .id = be16(ip, 4),
                       .protocol = ip[9],
                       .more = (fragment & 0x2000) != 0,
                       .offset = 8 * static_cast<size_t>(fragment & 0x1FFF),
                       .payload_wire = payload,
                       .payload = ip.subspan(head, std::min(payload, ip.size() - head))};
}

} // namespace

bool is_known_link_type(int link_type) {
    return find_layer(link_type) != nullptr;
}

std::optional<ipv4_packet> find_ipv4(const raw_packet &packet) {
    const link_layer *layer = find_layer(packet.link_type);
    const std::optional<size_t> at = layer != nullptr ? layer->network_layer(packet.bytes) : std::nullopt;
    return at ? read_ipv4(packet.bytes.subspan(*at)) : std::nullopt;
}

} // namespace vexa
