/**
 * @file
 * Reads datagrams of the vision link as their receivers do, and says everything that is wrong with one. The
 * fields of the messages follow from the same lists as the senders' packing. Nothing here keeps state or
 * touches a socket.
 *
 *     const vexa::link_datagram read = vexa::decode_link(vexa::link_end::flight, bytes);
 *     if (read.faults.empty()) { show(read.name, read.fields); }
 */
#ifndef VEXA_LINK_DECODE_H
#define VEXA_LINK_DECODE_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vexa {

/** Which end of the link receives. */
enum class link_end { flight, camera };

/** What has been found in a datagram. */
struct link_datagram {
    std::string name = "unknown";     /**< of the message: "track_status" */
    std::optional<uint16_t> msg_type; /**< nothing without a header; then the next one is missing too */
    std::optional<uint16_t> sequence; /**< as the sender counts */
    nlohmann::ordered_json fields;    /**< in the order of the payload; null when it could not be read */
    std::vector<std::string> faults;  /**< a clause each; none: the datagram is as it must be */
};

/**
 * Checks and reads one datagram. Nothing is believed before it was measured against the bytes that are there.
 * Numbers are JSON numbers, a float the shortest one that reads back as the same float, or a string when it
 * is no number; runs of bytes are hex text.
 */
link_datagram decode_link(link_end end, std::span<const uint8_t> bytes);

} // namespace vexa

#endif
