/** @file The heartbeat frame through a node of the bus: setting fields, and seeing what others set. */
#ifndef VEXA_HB_NODE_H
#define VEXA_HB_NODE_H

#include "bus_node.h"
#include "hb_frame.h"
#include "heartbeat_frame.h"

#include <optional>
#include <vector>

namespace vexa {

struct hb_set_options {
    std::vector<HeartBeatPair> pairs;
    bool json = false;
    node_options node;
};

struct hb_view_options {
    std::vector<const formats::frame_member *> members; /**< of the formats' table; none: all */
    double listen_s = 2;                                /**< how long `get` waits for what others set */
    std::optional<uint64_t> count;                      /**< of changes after which `watch` ends */
    std::optional<double> duration_s;                   /**< after which `watch` ends */
    bool json = false;
    node_options node;
};

/**
 * Sends one operation to the proxy and waits until the proxy has sent it on, this node included.
 * @return an exit_status: 1 when the proxy did not send it on in time
 * @throws node_trouble
 */
int run_hb_set(const hb_set_options &options);

/**
 * Listens, then prints the frame.
 * @return an exit_status: 1 when members were asked for and one of them was not heard
 * @throws node_trouble
 */
int run_hb_get(const hb_view_options &options);

/** Prints the frame, then every change. An exit_status: 1 when `count` changes did not come. @throws
 * node_trouble */
int run_hb_watch(const hb_view_options &options);

} // namespace vexa

#endif
