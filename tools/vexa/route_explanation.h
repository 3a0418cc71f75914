/**
 * @file
 * Whether and how a message would travel, with reasons: the table is given to the library, and the library's
 * own functions are asked what a sender asks them.
 *
 *     const vexa::route_answer answer = vexa::explain_route(table, {.from = 5, .to = 9});
 *     for (const std::string &reason : answer.reasons) { fmt::print("  {}\n", reason); }
 *
 * @par Threads  One at a time: the library's node table is the process's. No node may run meanwhile.
 */
#ifndef VEXA_ROUTE_EXPLANATION_H
#define VEXA_ROUTE_EXPLANATION_H

#include "known_table.h"

#include <optional>
#include <string>
#include <vector>

namespace vexa {

struct route_question {
    uint16_t from = 0;            /**< 1 to 127 */
    uint16_t to = 0;              /**< VX_MSG_BROADCAST: vision_brocast_msg, vision_broadcast_status */
    std::optional<uint64_t> size; /**< [bytes] of payload */
};

/** A node that a broadcast does not reach. */
struct missed_node {
    uint16_t id;
    std::string why; /**< a clause */
};

struct route_answer {
    bool travels = false;             /**< it, or a copy of it, reaches a node */
    std::optional<uint16_t> next_hop; /**< nothing for a broadcast */
    std::vector<std::string> reasons; /**< a sentence each, in the order in which the library decides */
    std::vector<uint16_t> reached;    /**< nodes that receive it */
    std::vector<missed_node> missed;  /**< of a broadcast; the known nodes that do not */
};

route_answer explain_route(const known_table &table, const route_question &question);

} // namespace vexa

#endif
