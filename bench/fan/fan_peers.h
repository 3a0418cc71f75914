/**
 * @file
 * Broadcasts by other message buses, as far as this was built with them.
 */
#ifndef BENCH_FAN_PEERS_H
#define BENCH_FAN_PEERS_H

#include "fan_sides.h"

namespace bench {

/** @throws std::invalid_argument when that bus is not there */
std::unique_ptr<fan_sender> make_peer_sender(const std::string &contender, const std::string &directory,
                                             uint16_t receivers);
void start_peer_receivers(const std::string &contender, const std::string &directory, uint16_t receivers,
                          board &notes);

/** Whether it was built. */
bool is_fan_peer(const std::string &contender);

} // namespace bench

#endif
