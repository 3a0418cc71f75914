/**
 * @file
 * What the demo's messages carry: who they belong to, a number, the time at which they were sent and a
 * pattern that shows whether they arrived whole. All clocks are CLOCK_MONOTONIC, which the processes of one
 * machine share, so the receiver's time minus the sender's is the delivery time.
 */
#ifndef DEMO_PAYLOAD_H
#define DEMO_PAYLOAD_H

#include "utils/ut_le.h"

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <span>
#include <vector>

namespace demo {

/** The start of every payload; little-endian on the wire. */
struct stamp {
    uint16_t key = 0;     /**< the MsgType of a status; nothing otherwise */
    uint16_t tag = 0;     /**< which of the demo's transfers it belongs to */
    uint32_t number = 0;  /**< from 1 */
    uint64_t sent_ns = 0; /**< monotonic time just before the sending call */
};

constexpr size_t k_stamp_bytes = 16;

inline uint64_t now_ns() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

inline uint8_t pattern_byte(uint32_t number, size_t at) {
    return static_cast<uint8_t>(size_t{number} * 31 + at * 7);
}

/** @param size  [bytes] of the payload, at least k_stamp_bytes */
inline std::vector<uint8_t> make_payload(const stamp &what, size_t size) {
    std::vector<uint8_t> bytes(size);
    ut_put_le16(bytes.data(), what.key);
    ut_put_le16(&bytes[2], what.tag);
    ut_put_le32(&bytes[4], what.number);
    ut_put_le64(&bytes[8], what.sent_ns);
    for (size_t at = k_stamp_bytes; at < size; ++at) {
        bytes[at] = pattern_byte(what.number, at);
    }
    return bytes;
}

/** The stamp of a payload that arrived whole; nothing when it is too short or its pattern is broken. */
inline std::optional<stamp> read_payload(std::span<const uint8_t> bytes) {
    if (bytes.size() < k_stamp_bytes) {
        return std::nullopt;
    }
    const stamp what{ut_get_le16(bytes.data()), ut_get_le16(&bytes[2]), ut_get_le32(&bytes[4]),
                     ut_get_le64(&bytes[8])};
    for (size_t at = k_stamp_bytes; at < bytes.size(); ++at) {
        if (bytes[at] != pattern_byte(what.number, at)) {
            return std::nullopt;
        }
    }
    return what;
}

} // namespace demo

#endif
