/**
 * @file
 * The socket of the bare contenders: UDP between two fixed ports on the loopback device.
 */
#ifndef BENCH_BARE_SOCKET_H
#define BENCH_BARE_SOCKET_H

#include "side.h"

#include <netinet/in.h>

namespace bench {

constexpr size_t k_head_bytes = 16;     // what the bus puts before a payload: the bare contenders send it too
constexpr size_t k_most_payload = 8176; // [bytes] that arrive whole on the bus
constexpr size_t k_most_datagram = 8192; // [bytes]

/** A bound socket and the other side's address. */
struct bare_socket {
    int fd;
    sockaddr_in other;
};

/** Bound to the port of this side of this pair. */
bare_socket open_bare_socket(const place &where, int type_flags);

/** Sends one datagram of a payload and as many bytes more as the bus would. */
void send_bare(const bare_socket &socket, const uint8_t *payload, size_t size_bytes);

} // namespace bench

#endif
