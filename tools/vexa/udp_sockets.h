/**
 * @file
 * Who receives on which UDP port of this machine, as /proc tells it: the sockets of the program's own network
 * namespace, and the processes that hold them. Processes of other users are named only for root.
 *
 *     for (const vexa::udp_socket &each : vexa::udp_sockets()) { ... }
 *     fmt::print("{}\n", vexa::holder_text(9005)); // "PID 4711 (soa)"
 */
#ifndef VEXA_UDP_SOCKETS_H
#define VEXA_UDP_SOCKETS_H

#include "manager_protocol.h"

#include <optional>
#include <string>
#include <vector>

namespace vexa {

/** A process that holds a socket. */
struct process_info {
    int pid = 0;
    std::string name; /**< as the kernel has it, at most 15 characters */
    char state = '?'; /**< 'R', 'S', 'T' ... as in /proc/PID/stat */
};

/** One UDP socket that is bound to a port. */
struct udp_socket {
    endpoint local;             /**< ip 0: every address */
    uint64_t inode = 0;         /**< its name among the descriptors of processes */
    uint64_t waiting_bytes = 0; /**< received, charged with the kernel's own overhead, and not read */
    uint64_t drops = 0;         /**< datagrams lost since it was opened, most of them for lack of room */
    std::optional<process_info> holder; /**< nothing when no process that can be looked at has it */
};

/** The sockets that are bound, of IPv4 and of IPv6, in the order of the ports. */
std::vector<udp_socket> udp_sockets();

/** The same without looking for the processes, which takes a look at all of them: for whoever asks often. */
std::vector<udp_socket> udp_sockets_without_holders();

/** Reads a table as it stands in /proc/net/udp; lines that are none are left out. */
std::vector<udp_socket> parse_udp_table(const std::string &text);

/** Who holds a port: "PID 4711 (soa)", "a process that cannot be looked at", "nobody". */
std::string holder_text(uint16_t port);

/** The same for sockets that have been listed already. */
std::string holder_text(const udp_socket &socket);

} // namespace vexa

#endif
