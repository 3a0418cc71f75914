/**
 * @file
 * The node table as the traffic shows it: from the node manager's messages, what the nodes say about
 * themselves, and whatever else they send.
 *
 *     vexa::node_watch nodes;
 *     nodes.see(datagram);
 *     for (const auto &[id, each] : nodes.all()) { show(id, each.name, each.state); }
 */
#ifndef VEXA_NODE_WATCH_H
#define VEXA_NODE_WATCH_H

#include "datagrams.h"
#include "vx_msg_def.h"

#include <map>
#include <optional>
#include <string>

namespace vexa {

enum class node_state {
    heard,       /**< it sends, and nobody has said more about it */
    registering, /**< it asks to be let in, or says that it is */
    inactive,    /**< the node manager says so, or it has left */
    active       /**< the node manager says so */
};

struct seen_node {
    std::string name = {}; /**< "" when not known */
    endpoint address = {}; /**< as registered; where its datagrams come from when that is not known */
    std::string ip = {};   /**< as registered, also when it is no address */
    node_state state = node_state::heard;
    uint64_t messages = 0;          /**< from it */
    int64_t first_ns = 0;           /**< of the first thing that was heard of it */
    int64_t last_ns = 0;            /**< of the last datagram from it; 0: none */
    int64_t registered_ns = 0;      /**< 0: it is not, or that is not known */
    bool registered_before = false; /**< it was registered already then, since an earlier time */
};

class node_watch {
public:
    void see(const udp_datagram &datagram);

    /** By id; 0 is the node manager. */
    [[nodiscard]] const std::map<uint16_t, seen_node> &all() const { return nodes_; }

private:
    seen_node *find_or_add(uint16_t id, int64_t time_ns);
    void see_table(const udp_datagram &datagram);
    void see_request(const udp_datagram &datagram);
    void see_info(const udp_datagram &datagram);
    void become_active(seen_node &node, int64_t time_ns) const;

    std::map<uint16_t, seen_node> nodes_;
    std::optional<int64_t> begin_ns_;       // of the first datagram of all
    std::optional<int64_t> first_table_ns_; // of the first message of the node manager
};

/** "active"; for JSON and for people. */
const char *name_of(node_state state);

} // namespace vexa

#endif
