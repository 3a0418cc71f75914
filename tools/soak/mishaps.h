/**
 * @file
 * What the relay does to datagrams, by seed. The fate of a message depends on the seed, on the stream that it
 * belongs to and on its place in that stream, not on what happens to arrive before it: one seed treats one
 * stream the same in every run.
 */
#ifndef SOAK_MISHAPS_H
#define SOAK_MISHAPS_H

#include "tally.h"

#include <chrono>
#include <cstdint>
#include <vector>

namespace soak {

/** How often each fault happens, as a share of 1. */
struct fault_rates {
    double lose = 0;
    double corrupt = 0;
    double twice = 0;
    double delay = 0;
    double hold = 0; /**< behind the next datagram to the same node: out of order */
};

constexpr fault_rates k_hostile{.lose = 0.02, .corrupt = 0.02, .twice = 0.02, .delay = 0.05, .hold = 0.03};

/** The messages of the session are few; they get more of it, so that tables and registrations suffer too. */
constexpr fault_rates k_hostile_session{
    .lose = 0.04, .corrupt = 0.12, .twice = 0.04, .delay = 0.1, .hold = 0.05};

enum class mishap : uint8_t { none, lose, corrupt, twice };

struct fate {
    mishap what = mishap::none;
    std::chrono::milliseconds delay{0};
    bool hold = false;
    uint64_t dice = 0; /**< what else is left to chance */
};

/** @param ordinal  the datagram's place in its stream */
fate fate_of(uint64_t seed, const tally_key &stream, uint64_t ordinal, const fault_rates &rates);

/** Changes a datagram: bytes anywhere, its kind, its length field, its ids, its end. It is never the same
 * afterwards. */
void corrupt(std::vector<uint8_t> &datagram, uint64_t dice);

/** A datagram that nobody has sent: pure chance, or chance behind a header that a receiver looks into. */
std::vector<uint8_t> garbage(uint64_t dice);

} // namespace soak

#endif
