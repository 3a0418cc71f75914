/**
 * @file
 * The node manager of a bench as a running program: one UDP socket, one thread. Datagrams go to the registry;
 * what it decides is answered, told to the other nodes and shown.
 *
 * Answers go to the address that a REGISTER came from, never to the one it claims: a datagram cannot turn the
 * manager against a third party, and a node with a wrong ip of its own still hears that it is registered.
 * What the table says about a node is what the node said.
 */
#ifndef VEXA_MANAGER_SERVER_H
#define VEXA_MANAGER_SERVER_H

#include "manager_output.h"
#include "node_registry.h"

#include <string>

namespace vexa {

struct manager_options {
    std::string bind = "192.168.1.1";
    uint16_t port = VX_NODE_PORT_BASE;
    double keep_alive_s = 10; /**< the nodes' period once they are accepted */
    int missed = 3;
    manager_style style = manager_style::text;
};

/**
 * Runs the manager until SIGINT or SIGTERM, then prints a summary.
 * @return an exit_status: 1 when the address cannot be bound, which standard error explains
 */
int run_manager(const manager_options &options);

} // namespace vexa

#endif
