/**
 * @file
 * The soak's balance: what the nodes, the relay, the system and the node manager have counted is laid beside
 * each other, border by border, and whatever does not add up is named.
 *
 *     calls of an application  =  refused + dropped by the library, by reason + handed to the system
 *     handed to the system     =  taken by the relay + dropped for want of room in the relay's socket
 *     taken by the relay       =  lost there - doubled there + put
 *     put                      =  read by the node + dropped for want of room in the node's socket
 *     read by the node         =  seen by the application, or its drop seen in the log, each as it must be
 *
 * Only two losses have no name of their own: what a full transmit queue or a full socket drops. Their numbers
 * are known, so the differences they explain must add up to them, and none may be negative.
 */
#ifndef SOAK_ACCOUNT_H
#define SOAK_ACCOUNT_H

#include "tally.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace soak {

/** What a node has reported. */
struct node_report {
    tally counts{4096};
    std::string wrong;           /**< what its library holds and must not; empty: nothing */
    std::string unexpected_line; /**< of its log; empty: none */
};

/** What the node manager has said at its end. */
struct manager_report {
    uint64_t received = 0;
    uint64_t sent = 0;
    uint64_t unreadable = 0; /**< refused for what they were, not for when they came */
};

/** Everything that was counted, at one moment in which nothing is on its way. */
struct observation {
    std::vector<uint16_t> ids;
    std::map<uint16_t, node_report> nodes;
    tally relay{1};
    std::map<uint16_t, uint64_t> drops; /**< for want of room, by port of the socket */
    manager_report manager;             /**< once it has ended */
};

/** What does not add up, one line each; empty when everything does. */
std::vector<std::string> unexplained(const observation &all);

/** The same of the session alone, once the nodes have left and the manager has said what it did. */
std::vector<std::string> unexplained_session(const observation &all);

/** One way's messages, over all senders and receivers. A broadcast counts once for each node that it was for.
 */
struct way_balance {
    int64_t sent = 0;        /**< by applications; of the session, by nodes and manager */
    int64_t made_up = 0;     /**< to ids that only a damaged table knows */
    int64_t refused = 0;     /**< by the call */
    int64_t inactive = 0;    /**< dropped by the sender's library */
    int64_t overstocked = 0; /**< the same, its queue being full */
    int64_t astray = 0;      /**< to an address from a damaged table */
    int64_t kernel = 0;      /**< dropped by the system, on the way to the relay or from it */
    int64_t lost = 0;        /**< by the relay */
    int64_t damaged = 0;     /**< by the relay: not what it was, or not where it was for */
    int64_t doubled = 0;     /**< by the relay */
    int64_t delivered = 0;   /**< whole */
    int64_t overwritten = 0; /**< of these: kept for polling and replaced unseen */

    /** What is left over; 0. */
    [[nodiscard]] int64_t difference() const {
        return sent + made_up + doubled - refused - inactive - overstocked - astray - kernel - lost -
               damaged - delivered;
    }
};

using balance = std::array<way_balance, static_cast<size_t>(way::number_of_ways)>;

balance balance_of(const observation &all);

/** What a balance has grown by. */
balance growth(const balance &before, const balance &after);

/** How many heartbeat changes the proxy has had to send on. */
uint64_t sent_on_by(const tally &proxy);

/** How many datagrams nodes have read as each outcome. */
std::array<uint64_t, static_cast<size_t>(outcome::number_of_outcomes)> read_as(const observation &all);

/** An outcome in words. */
const char *name_of(outcome what);

} // namespace soak

#endif
