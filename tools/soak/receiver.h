/**
 * @file
 * What a node must make of a datagram, told from the rules of the bus alone: the soak holds every node of it
 * to this. Knows nothing of the library's code.
 */
#ifndef SOAK_RECEIVER_H
#define SOAK_RECEIVER_H

#include "traffic.h"

namespace soak {

constexpr size_t k_most_read = 8192; /**< [bytes] that a node reads of a datagram */

/** What a datagram becomes. */
struct verdict {
    outcome what = outcome::none;
    way by = way::none;  /**< of what is whole; else none */
    uint16_t sender = 0; /**< of what is whole; else 0 */
};

/**
 * Judges a datagram that arrives at a node.
 * @param self  the receiving node's id
 */
verdict judge(std::span<const uint8_t> datagram, uint16_t self);

/** Judges what a callback or a poll has brought. */
verdict judge_given(std::span<const uint8_t> payload, uint8_t kind, uint16_t src, uint16_t dst,
                    uint16_t self);

/** What the receive queue keeps of a status: its payload, of which a part may lie behind the end of what was
 * read and is zero. */
struct kept_status {
    uint16_t key;
    uint16_t length; /**< [bytes] */
    uint64_t check;
};

/** @param datagram  judged as whole or damaged status */
kept_status status_in(std::span<const uint8_t> datagram);

/** The records of a table message that can be read. */
std::span<const uint8_t> records_in(std::span<const uint8_t> datagram);

/** The pairs of a heartbeat message that can be read, 8 bytes each. */
std::span<const uint8_t> pairs_in(std::span<const uint8_t> datagram);

} // namespace soak

#endif
