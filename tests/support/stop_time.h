/**
 * @file
 * How long stops take.
 */
#ifndef TEST_STOP_TIME_H
#define TEST_STOP_TIME_H

#include "vision_service_route_funcs.h"

#include <chrono>

constexpr double k_stop_limit_s = 1;                  // what a stop may take, whatever hinders it
constexpr double k_busy_limit_s = k_stop_limit_s + 4; // on a machine that is busy with other things

/** Stops the node of this process. Returns the time that took [s]. */
inline double timed_stop() {
    const auto start = std::chrono::steady_clock::now();
    vision_msg_component_deinit();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

#endif
