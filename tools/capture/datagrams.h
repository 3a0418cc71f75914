/**
 * @file
 * From captured packets to UDP datagrams. A datagram that travelled in fragments is put together again; when
 * fragments stay away, or contradict each other, what has come is given as such.
 *
 *     vexa::datagram_assembler assembler;
 *     assembler.feed(packet, [](const vexa::udp_datagram &d) { show(d); });
 *     assembler.finish(sink); // at the end of a file
 *
 * Memory is bounded: at most 64 datagrams wait for their fragments, each for five seconds of the packets' own
 * time; the oldest makes room.
 */
#ifndef VEXA_DATAGRAMS_H
#define VEXA_DATAGRAMS_H

#include "endpoint.h"
#include "packet.h"

#include <functional>
#include <map>
#include <vector>

namespace vexa {

struct udp_datagram {
    int64_t time_ns = 0; /**< since 1970, UTC; of the packet that completed it */
    endpoint src = {};
    endpoint dst = {};
    size_t wire_size = 0;                /**< [bytes] of payload that travelled; not less than bytes.size() */
    std::span<const uint8_t> bytes = {}; /**< of payload that were captured; valid during the call */
    bool incomplete = false;             /**< fragments are missing; ports are 0 when the first one is */
};

class datagram_assembler {
public:
    using sink = std::function<void(const udp_datagram &)>;

    /** Takes a packet; calls `to` for the datagram in it, if any, and for those given up. */
    void feed(const raw_packet &packet, const sink &to);

    /** Gives up everything that still waits for fragments. */
    void finish(const sink &to);

    /** Packets that carry no UDP over IPv4. */
    [[nodiscard]] uint64_t others() const { return others_; }

private:
    struct piece {
        size_t wire;
        size_t captured;
    };
    struct pending {
        int64_t since_ns = 0;
        std::map<size_t, piece> pieces = {}; // by offset; none overlaps another
        std::vector<uint8_t> bytes = {};     // each piece at its offset
        size_t come = 0;                     // [bytes] of all pieces
        size_t total = 0;                    // known once the last piece has come, else 0

        [[nodiscard]] bool has(const ipv4_packet &fragment) const;
        [[nodiscard]] bool has_room_for(const ipv4_packet &fragment) const;
        void add(const ipv4_packet &fragment);
    };
    struct packet_id {
        uint32_t src;
        uint32_t dst;
        uint16_t id;
        auto operator<=>(const packet_id &) const = default;
    };

    void add_fragment(int64_t time_ns, const ipv4_packet &fragment, const sink &to);
    void give_up(std::map<packet_id, pending>::iterator which, int64_t time_ns, const sink &to);
    void give_up_old(int64_t time_ns, const sink &to);

    std::map<packet_id, pending> waiting_;
    uint64_t others_ = 0;
};

} // namespace vexa

#endif
