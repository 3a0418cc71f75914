/**
 * @file
 * What a machine says about itself that matters to the bus: its addresses, who holds which port, how much a
 * socket may hold. Read from the system at one moment; nothing is sent.
 */
#ifndef VEXA_MACHINE_FACTS_H
#define VEXA_MACHINE_FACTS_H

#include "udp_sockets.h"

#include <optional>
#include <string>
#include <vector>

namespace vexa {

struct own_address {
    std::string interface;
    uint32_t ip = 0; /**< number of the host */
    int prefix = 0;  /**< bits of the network */
};

struct machine_facts {
    std::vector<own_address> addresses;   /**< IPv4, of interfaces that are up */
    std::vector<udp_socket> sockets;      /**< in the order of the ports */
    std::optional<std::string> no_way;    /**< why no datagram could be sent to the node manager */
    std::optional<uint64_t> rmem_default; /**< [bytes] that a socket holds unless it asks for more */
    std::optional<uint64_t> rmem_max;     /**< [bytes] that it gets at most when it asks */

    /** Whether a datagram to this address stays on this machine. */
    [[nodiscard]] bool is_own(uint32_t ip) const;

    /** Who receives what is sent to an address of this machine; nullptr when nobody does. */
    [[nodiscard]] const udp_socket *receiver_at(uint32_t ip, uint16_t port) const;
};

/** @param manager  where the node manager is */
machine_facts look_at_machine(endpoint manager);

} // namespace vexa

#endif
