/** @file The time of day as captured packets have it. */
#ifndef VEXA_WALL_CLOCK_H
#define VEXA_WALL_CLOCK_H

#include <chrono>
#include <cstdint>

namespace vexa {

/** Nanoseconds since 1970, UTC, as the packets' time stamps are. */
inline int64_t wall_clock_ns() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

} // namespace vexa

#endif // VEXA_WALL_CLOCK_H
