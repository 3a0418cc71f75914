/**
 * @file
 * The heartbeat frame by the names of its fields.
 *
 *     const vexa::frame_bytes frame = vexa::own_frame();
 *     fmt::print("{}\n", vexa::value_in(frame, WORK_MODE));
 */
#ifndef VEXA_HB_FRAME_H
#define VEXA_HB_FRAME_H

#include "vision_service_route_vision_heartbeat.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vexa {

using frame_bytes = std::array<uint8_t, sizeof(VPHeartbeatFrame)>;

/** The frame of this process's node. */
frame_bytes own_frame();

/** What a field has in a frame. */
unsigned value_in(const frame_bytes &frame, HeartBeatField field);

/** How many bits a field keeps of a value. */
unsigned width_of(HeartBeatField field);

/** Pairs as they lie in a message. */
std::vector<uint8_t> encode_pairs(std::span<const HeartBeatPair> pairs);

/** "WORK_MODE=3": the field by name or number, the value decimal or 0x...; a negative one is taken, too.
 * @throws std::invalid_argument */
HeartBeatPair parse_pair(const std::string &text);

} // namespace vexa

#endif
