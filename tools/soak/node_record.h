/**
 * @file
 * What a soak's node knows about itself: what its application has asked for, what the library has sent and
 * received, seen at the border to the system, what it must have made of it, and what it has made of it. The
 * library, the application and the log run on several threads; everything here locks.
 */
#ifndef SOAK_NODE_RECORD_H
#define SOAK_NODE_RECORD_H

#include "log_line.h"
#include "queue_model.h"
#include "tally.h"
#include "traffic.h"

#include <netinet/in.h>
#include <span>
#include <string>
#include <vector>

namespace soak {

/** Before the node starts: who it is, and who else is on the bus. */
void record_start(uint16_t own_id, const std::vector<uint16_t> &ids);

/** The witness, as every node has it in its table. */
vexa_node_t witness_entry();

/**
 * The application has called.
 * @param target  k_no_target for a broadcast
 * @param size    [bytes] of the payload
 */
void record_call(way by, uint16_t target, size_t size, bool accepted);

/** The log lines of this thread are about a heartbeat change of the node's own, until told otherwise. */
void record_own_heartbeat(bool begins);

/** The library has handed a datagram to the system, which has taken it or not. */
void record_sent(std::span<const uint8_t> datagram, const sockaddr_in &to, bool taken);

/** The library has read a datagram, and will act on it after this. */
void record_read(std::span<const uint8_t> datagram);

/** The callback was called. */
void record_callback(std::span<const uint8_t> payload, uint16_t src, uint16_t dst);

/** The library has written a log line. `value` is its number, where it has one that matters. */
void record_line(log_line line, int value);

/** Looks at every status that is polled, as an application does. */
void record_poll();

/** Whether node table and receive queue are, entry by entry, what the messages that were read make of them.
 * When the node is idle.
 * @return what is not; empty when all is */
std::string record_check_state();

/** Whether the node table has every node of the bus, active and at the relay. */
bool record_table_whole();

/** The copies of messages that the library must have made and, of those, what lies in the receive queue. */
struct queue_use {
    copies made;
    copies held;
    uint64_t pieces; /**< in which those made would lie, if they are kept */
};
queue_use record_queues();

/** The counts so far. */
tally record_counts();

} // namespace soak

#endif
