/**
 * @file
 * The application of a soak's node: sends on every way at its pace, polls, and now and then stops its
 * callback from returning for a moment and queues more than the transmit queue takes.
 */
#ifndef SOAK_GENERATOR_H
#define SOAK_GENERATOR_H

#include "traffic.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <random>
#include <vector>

namespace soak {

/** The library's callback. */
void on_message(void *payload, MsgExtra *extra);

/** @par Threads  One: the application's. */
class generator {
public:
    using clock = std::chrono::steady_clock;

    generator(uint64_t seed, uint16_t self, const std::vector<uint16_t> &ids);

    /** Time begins to run. */
    void resume(clock::time_point now);

    /** Does what is due. */
    void tick(clock::time_point now);

    /** Sends to every node on every way once; the proxy also sets every field of the heartbeat frame. */
    void send_round();

private:
    void send(way by, uint16_t target);
    void send_sized(way by, uint16_t target, size_t size);
    void burst();
    [[nodiscard]] bool can(way by) const;
    uint16_t some_target(way by);
    size_t some_size();

    uint16_t self_;
    std::vector<uint16_t> others_; // all but this node
    std::mt19937_64 dice_;
    std::array<double, static_cast<size_t>(way::number_of_ways)> credit_{}; // messages that are due
    std::array<uint8_t, VX_MSG_MAX_PAYLOAD> payload_{};
    uint32_t number_ = 0;
    clock::time_point last_tick_{};
    clock::duration until_burst_;
};

} // namespace soak

#endif
