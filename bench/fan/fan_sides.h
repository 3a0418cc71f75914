/**
 * @file
 * The two ends of a broadcast: who sends to all, and who receives. Receivers are numbered from 1; number n
 * has UDP port 9000 + n, like a node of the bus.
 */
#ifndef BENCH_FAN_SIDES_H
#define BENCH_FAN_SIDES_H

#include "board.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace bench {

class fan_sender {
public:
    fan_sender() = default;
    virtual ~fan_sender() = default;
    fan_sender(const fan_sender &) = delete;
    fan_sender &operator=(const fan_sender &) = delete;
    /** The payload lies behind room for a header. */
    virtual void send(const uint8_t *payload, size_t size_bytes) = 0;
};

/** @throws std::invalid_argument for an unknown contender */
std::unique_ptr<fan_sender> make_fan_sender(const std::string &contender, const std::string &directory,
                                            uint16_t receivers);

/** Receives on its own threads until the process ends. */
void start_fan_receivers(const std::string &contender, const std::string &directory, uint16_t first,
                         uint16_t receivers, board &notes);

} // namespace bench

#endif
