/**
 * @file
 * The newest packets, in memory: at most so many bytes, and none that is older than so long.
 *
 *     vexa::packet_ring ring({.bytes = 64'000'000});
 *     ring.add(packet, true);
 *     ring.drain([&](const vexa::raw_packet &p, bool) { to.add(p); }); // the oldest first
 */
#ifndef VEXA_PACKET_RING_H
#define VEXA_PACKET_RING_H

#include "amount.h"
#include "packet.h"

#include <deque>
#include <functional>
#include <vector>

namespace vexa {

class packet_ring {
public:
    static constexpr uint64_t k_most_bytes = 256'000'000; /**< when only a time is given */

    explicit packet_ring(const amount &holds) : holds_(holds) {}

    /** @param completes  a message, which a fragment does not but for the last one */
    void add(const raw_packet &packet, bool completes);

    /** Gives all and forgets them. */
    void drain(const std::function<void(const raw_packet &, bool completes)> &to);

    [[nodiscard]] size_t packets() const { return held_.size(); }

    /** [bytes] of memory, with what each packet needs besides its own. */
    [[nodiscard]] uint64_t bytes() const { return bytes_; }

    /** Whether a packet had to go for want of room that was not too old yet. */
    [[nodiscard]] bool is_shortened() const { return shortened_; }

private:
    struct held_packet {
        raw_packet packet; // its bytes are the ones below
        std::vector<uint8_t> bytes;
        bool completes;
    };

    void drop_oldest();

    amount holds_;
    std::deque<held_packet> held_;
    uint64_t bytes_ = 0;
    bool shortened_ = false;
};

} // namespace vexa

#endif
