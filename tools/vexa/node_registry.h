/**
 * @file
 * The node manager's memory: which nodes are known, where they are and whether they are alive. It decides and
 * remembers; receiving, sending and printing are done around it. Time comes in with every call, so that a
 * test can let minutes pass.
 *
 * One machine per id: while a node is active, a REGISTER or UNREGISTER with its id from another IP address is
 * refused (id_taken). Were the newest to win, two processes started with one id would take the id from each
 * other with every keep-alive, and everybody's traffic would swing between them unnoticed. The second one is
 * let in as soon as the first has left or has fallen silent. Another port of the same machine is the node
 * itself: one that was restarted, or could not bind its port.
 */
#ifndef VEXA_NODE_REGISTRY_H
#define VEXA_NODE_REGISTRY_H

#include "manager_protocol.h"

#include <array>
#include <chrono>
#include <optional>
#include <vector>

namespace vexa {

class node_registry {
public:
    using clock = std::chrono::steady_clock;

    /** What has become of a node. */
    enum class event {
        joined,  /**< registered, for the first time or again */
        changed, /**< registered as active, and says something new about itself */
        left,    /**< unregistered */
        lost     /**< not heard for too long */
    };

    struct change {
        uint16_t node_id;
        event what;
    };

    struct outcome {
        std::optional<refusal> refused;
        std::optional<change> changed;
    };

    struct peer {
        uint16_t node_id;
        endpoint address; /**< where its REGISTERs come from, and where answers go */
    };

    /**
     * @param keep_alive  the period of the nodes' REGISTERs
     * @param missed      how many of them may fail to come before a node counts as lost; half a period is
     * allowed for the last one to be late
     */
    node_registry(clock::duration keep_alive, int missed);

    /** Does what a node has asked for. */
    outcome handle(const manager_request &request, endpoint from, clock::time_point now);

    /** Marks the nodes inactive that have been silent for too long. */
    std::vector<change> expire(clock::time_point now);

    /** When expire() may next find something; nothing while no node is active. */
    [[nodiscard]] std::optional<clock::time_point> next_expiry() const;

    /** Every node that has registered, active or not, in the order of the ids. */
    [[nodiscard]] std::vector<vexa_node_t> records() const;

    /** The active ones, in the order of the ids. */
    [[nodiscard]] std::vector<peer> active() const;

    /** One node's record; nothing for an id that never registered. */
    [[nodiscard]] std::optional<vexa_node_t> find(uint16_t node_id) const;

private:
    struct entry {
        vexa_node_t record;
        endpoint address;
        clock::time_point heard;
    };

    outcome join(const vexa_node_t &node, endpoint from, clock::time_point now);
    outcome leave(uint16_t node_id);

    clock::duration silence_limit_;
    std::array<std::optional<entry>, VX_NODE_COUNT> entries_;
};

/** "joined", "changed", "left" or "lost". */
const char *name_of(node_registry::event what);

} // namespace vexa

#endif
