/**
 * @file
 * A node's whole life, from the start to the stop, with everything an application does in between. Every step
 * is tried, whatever became of the ones before it, so that it may be played while the system refuses this and
 * that.
 */
#ifndef TEST_SCENARIO_H
#define TEST_SCENARIO_H

#include "peer.h"

#include <iosfwd>

namespace bus {

/** What became of it. */
struct played {
    int init = 0;
    bool accepted = false; ///< the manager heard the node, and the node heard its table

    // what the sending functions answered
    int direct = 0;
    int status = 0;
    int queued = 0;
    int broadcast = 0;
    int heartbeat = 0;

    // what arrived at the other nodes
    bool direct_arrived = false;
    bool status_arrived = false;
    bool queued_arrived = false;
    bool broadcast_arrived = false;
    bool heartbeat_arrived = false;

    // what arrived at the node
    bool heard = false;   ///< by the callback
    bool polled = false;  ///< by vision_recv_status
    bool applied = false; ///< to the heartbeat frame

    bool farewell = false; ///< the manager heard it
    double stop_s = 0;     ///< how long the stop took

    /** Whether nothing is missing. */
    [[nodiscard]] bool all_well() const;
    /** Whether every sending function has accepted its message. */
    [[nodiscard]] bool all_accepted() const;
    /** How many of the messages that were to arrive somewhere did not. */
    [[nodiscard]] int lost() const;
};

std::ostream &operator<<(std::ostream &out, const played &p);

/** Plays it once. Each message is waited for this long at most. */
played play_scenario(node_under_test &node, uint16_t id, milliseconds patience);

} // namespace bus

#endif
