/**
 * @file
 * What the system has dropped of what came to the nodes of this machine, read from outside of them: from the
 * system's table of UDP sockets. A node's socket is the one at port 9000 + its id.
 *
 *     vexa::socket_watch sockets;
 *     sockets.update(vexa::udp_sockets(), now_ns); // every second or so
 *     for (const vexa::node_socket &each : sockets.all()) { show(each.node_id, each.new_drops); }
 */
#ifndef VEXA_SOCKET_WATCH_H
#define VEXA_SOCKET_WATCH_H

#include "udp_sockets.h"

#include <map>
#include <string>
#include <vector>

namespace vexa {

struct node_socket {
    uint16_t node_id = 0;
    endpoint local = {};
    uint64_t inode = 0;
    uint64_t waiting_bytes = 0; /**< not read yet, with the system's own overhead */
    uint64_t drops = 0;         /**< since the socket was opened */
    uint64_t new_drops = 0;     /**< since it was first seen here */
    double drops_per_s = 0;     /**< between the last two looks */
    std::string holder = {};    /**< "PID 4711 (soa)" */
};

class socket_watch {
public:
    /** Takes the table as it is now. Sockets that are gone are forgotten. */
    void update(const std::vector<udp_socket> &table, int64_t now_ns);

    /** Whether there is a node's socket in a table whose holder has not been told yet: finding the holders
     * takes longer than reading the table. */
    [[nodiscard]] bool needs_holders(const std::vector<udp_socket> &table) const;

    /** In the order of the ids. */
    [[nodiscard]] std::vector<node_socket> all() const;

    /** Of all of them. */
    [[nodiscard]] uint64_t new_drops() const;

private:
    std::map<uint64_t, node_socket> sockets_; // by inode
    int64_t last_ns_ = 0;
    bool looked_before_ = false;
};

} // namespace vexa

#endif
