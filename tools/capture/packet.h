/**
 * @file
 * From a captured packet to the IPv4 packet in it. Nothing in a packet is believed before it was measured
 * against the bytes that were captured.
 */
#ifndef VEXA_PACKET_H
#define VEXA_PACKET_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace vexa {

/** What a capture gives. */
struct raw_packet {
    int64_t time_ns = 0;                 /**< since 1970, UTC */
    int link_type = 0;                   /**< a DLT_ number of libpcap */
    size_t wire_size = 0;                /**< [bytes] that travelled; not less than bytes.size() */
    std::span<const uint8_t> bytes = {}; /**< that were captured; valid until the next packet is taken */
};

/** An IPv4 packet or a fragment of one. */
struct ipv4_packet {
    uint32_t src;                     /**< host order */
    uint32_t dst;                     /**< host order */
    uint16_t id;                      /**< the same in all fragments of a packet */
    uint8_t protocol;                 /**< 17 is UDP */
    bool more;                        /**< fragments follow */
    size_t offset;                    /**< [bytes] of this payload in the whole one */
    size_t payload_wire;              /**< [bytes] of payload that travelled */
    std::span<const uint8_t> payload; /**< that was captured; not longer */
};

/**
 * The IPv4 packet in a captured packet. Known are Ethernet (with up to two VLAN tags), Linux's two formats of
 * the interface "any", BSD loopback and bare IP.
 * @return nothing when there is none, or it is shorter than its own header
 */
std::optional<ipv4_packet> find_ipv4(const raw_packet &packet);

/** Whether find_ipv4 knows a link type. */
bool is_known_link_type(int link_type);

} // namespace vexa

#endif
