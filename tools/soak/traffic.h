/**
 * @file
 * What the soak's nodes say to each other. Every message carries who sent it, how, to whom, its number and a
 * check over all of it, so that whoever holds one, whole or not, knows which it is. A heartbeat change is two
 * pairs: one that a frame takes, and one whose field does not exist and therefore appears in the receiver's
 * log; that field carries the sender and a number.
 */
#ifndef SOAK_TRAFFIC_H
#define SOAK_TRAFFIC_H

#include "tally.h"
#include "vision_service_route_funcs.h"
#include "vx_msg_def.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace soak {

constexpr char k_relay_ip[] = "192.168.1.2";   /**< where every node says it is */
constexpr char k_manager_ip[] = "192.168.1.1"; /**< where the relay stands in for the node manager ... */
constexpr uint16_t k_manager_real_port = 9300; /**< ... which really receives at this port */
constexpr uint16_t k_relay_port_base = 19000;  /**< + id: the relay's socket for a node */
constexpr uint16_t k_no_target = 0;
constexpr uint8_t k_place_beyond_relay = 128; /**< + id: a node's own socket, or with 0 the manager's */

/** An id below all nodes' that every node has in its table from the start and nobody answers to: a broadcast
 * always goes to it first, so that one which finds no other node active is seen to leave its queue all the
 * same. */
constexpr uint16_t k_witness = 1;

/** What is known of each way. */
struct way_info {
    way by;           /**< also the row's index */
    const char *name; /**< in the report */
    const char *call; /**< what makes it travel so */
    double rate_hz;   /**< of each node */
};

const way_info &info_of(way by);

constexpr bool is_queued(way by) {
    return by == way::queued || by == way::app_queued;
}
constexpr bool is_broadcast(way by) {
    return by == way::broadcast || by == way::status_broadcast;
}
constexpr bool is_status(way by) {
    return by == way::status || by == way::status_broadcast;
}
/** Whether it carries a message_note. */
constexpr bool is_user_data(way by) {
    return by >= way::direct && by <= way::status_broadcast;
}

/** What a message says about itself. */
struct message_note {
    way by = way::none;
    uint16_t sender = 0;
    uint16_t target = 0; /**< k_no_target in a broadcast */
    uint32_t number = 0;
};

constexpr size_t k_least_payload = 24;

/** The key under which a node's statuses are kept: one for those to a node, one for those to all. */
constexpr uint16_t status_key(way by, uint16_t sender) {
    return static_cast<uint16_t>((by == way::status ? 1000 : 2000) + sender);
}

/** Fills a payload of at least k_least_payload bytes. */
void write_payload(std::span<uint8_t> payload, const message_note &note);

/** The note of a payload that is as it was written, to the last byte. */
std::optional<message_note> read_payload(std::span<const uint8_t> payload);

/** A number that differs when one byte differs, and almost surely when several do. */
uint64_t check_of(std::span<const uint8_t> bytes);

/** Spreads a number over all 64 bits. */
uint64_t mixed(uint64_t value);

/** The pairs of a heartbeat change. */
std::array<HeartBeatPair, 2> heartbeat_pairs(uint16_t sender, uint32_t number);

/** Whose heartbeat change logs this field as unknown; nothing when it is nobody's. */
std::optional<uint16_t> heartbeat_sender(int32_t field);

/** Whose heartbeat change a payload is, when it is whole. */
std::optional<uint16_t> read_heartbeat(std::span<const uint8_t> payload);

/** Which stream of messages a datagram of the bus belongs to, as its sender has sent it: way, sender and
 * target; the rest is empty. `way::none` when it is of no kind that a node of the soak sends. */
tally_key stream_of(std::span<const uint8_t> datagram);

} // namespace soak

#endif
