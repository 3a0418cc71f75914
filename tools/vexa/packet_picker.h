/**
 * @file
 * Chooses, of captured packets, those that carry the messages that a user wants. A message that travelled in
 * fragments is chosen with all of them: they are held back until it is known which message they are.
 *
 *     vexa::packet_picker picker({.wanted = filter});
 *     picker.feed(packet, [&](const vexa::raw_packet &p, const vexa::seen_message *m) { write(p); });
 *
 * Fragments whose others stay away are held for half a second at most, and then given: whether they were
 * wanted cannot be known, and a recording rather has too much than too little.
 */
#ifndef VEXA_PACKET_PICKER_H
#define VEXA_PACKET_PICKER_H

#include "message_filter.h"

#include <deque>
#include <functional>
#include <vector>

namespace vexa {

class packet_picker {
public:
    struct options {
        message_filter wanted = {};
        bool all = false; /**< UDP datagrams too that are none of this system's */
    };

    explicit packet_picker(options how) : how_(std::move(how)) {}

    /** Takes a packet; of the last one of a message also the message, else nullptr. */
    using sink = std::function<void(const raw_packet &, const seen_message *)>;

    void feed(const raw_packet &packet, const sink &to);

    /** Gives what has waited for half a second. @param now_ns  since 1970 */
    void release_old(int64_t now_ns, const sink &to);

    /** Gives everything that still waits. */
    void finish(const sink &to);

private:
    struct datagram_id {
        uint32_t src;
        uint32_t dst;
        uint16_t id;
        auto operator<=>(const datagram_id &) const = default;
    };
    struct held_packet {
        datagram_id of;
        raw_packet packet; // its bytes are the ones below
        std::vector<uint8_t> bytes;
    };

    void hold(const datagram_id &of, const raw_packet &packet);
    void give_held(const datagram_id &of, bool wanted, const sink &to);
    void give_oldest(const sink &to);
    void judge(const udp_datagram &datagram, const raw_packet &packet, const datagram_id *fragments_of,
               const sink &to);

    options how_;
    datagram_assembler assembler_;
    std::deque<held_packet> held_;
};

} // namespace vexa

#endif
