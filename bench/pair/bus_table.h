/**
 * @file
 * Makes a node known to itself and others known to it without a node manager: the process sends itself the
 * message that a manager would send.
 */
#ifndef BENCH_BUS_TABLE_H
#define BENCH_BUS_TABLE_H

#include <cstdint>

namespace bench {

constexpr char k_bus_ip[] = "127.0.0.1"; // of every node

/** Starts nothing; waits until the node's table has these nodes, and the registration counts as accepted. */
void learn_nodes(uint16_t own, uint16_t first, uint16_t last);

} // namespace bench

#endif
