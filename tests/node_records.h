/**
 * @file
 * Node records for the tests: made of their fields or of one byte throughout, and compared with every byte.
 */
#ifndef NODE_RECORDS_H
#define NODE_RECORDS_H

#include "vx_msg_def.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>

namespace node_records {

using record_bytes = std::array<uint8_t, 38>;

/** A record; the texts are cut to their field and keep no NUL when they fill it. */
inline vexa_node_t record(const std::string &name, const std::string &ip, unsigned port, unsigned node_id,
                          unsigned stat) {
    vexa_node_t node;
    memset(&node, 0, sizeof node);
    memcpy(node.name, name.data(), std::min(name.size(), sizeof node.name));
    memcpy(node.ip, ip.data(), std::min(ip.size(), sizeof node.ip));
    node.port = static_cast<uint16_t>(port);
    node.node_id = static_cast<uint16_t>(node_id);
    node.stat = static_cast<uint8_t>(stat);
    return node;
}

/** A record of equal bytes, the unused one included. */
inline vexa_node_t filled(uint8_t byte) {
    vexa_node_t node;
    memset(&node, byte, sizeof node);
    return node;
}

/** All bytes of a record, the unused one included. */
inline record_bytes bytes_of(const vexa_node_t &node) {
    record_bytes bytes;
    static_assert(sizeof node == sizeof bytes);
    memcpy(bytes.data(), &node, sizeof node);
    return bytes;
}

} // namespace node_records

#endif
