/**
 * @file
 * What each heartbeat field writes and logs, written down once more for the tests: the number of the field,
 * the bits of the frame that it changes, the format of its log line.
 */
#ifndef HB_ROWS_H
#define HB_ROWS_H

#include "vision_service_route_vision_heartbeat.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace hb_rows {

using frame_bytes = std::array<uint8_t, 56>;

/** Neighbouring bits of one byte of the frame. */
struct place {
    unsigned byte;
    unsigned first_bit; // of the byte
    unsigned last_bit;
};

/** Bits of the first eight bytes taken as one little-endian word. */
constexpr place device(unsigned first_bit, unsigned last_bit) {
    return {first_bit / 8, first_bit % 8, last_bit % 8};
}
constexpr place bits(unsigned byte, unsigned first_bit, unsigned last_bit) {
    return {byte, first_bit, last_bit};
}
constexpr place whole(unsigned byte) {
    return {byte, 0, 7};
}

struct row {
    int number;
    HeartBeatField field;
    place where;
    const char *format;
};

inline constexpr row all[] = {
    {0, LED, device(32, 34), "LED:value 0x%0x\n"},
    {1, ENVIRONMENT, device(0, 1), "ENVIRONMENT:value 0x%0x\n"},
    {2, STEREO_CAMERA_HEAD, device(2, 3), "STEREO_CAMERA_HEAD:value 0x%0x\n"},
    {3, STEREO_CAMERA_REAR, device(4, 5), "STEREO_CAMERA_REAR:value 0x%0x\n"},
    {4, STEREO_CAMERA_BOTTOM, device(6, 7), "STEREO_CAMERA_BOTTOM:value 0x%0x\n"},
    {5, STEREO_CAMERA_RIGHT, device(8, 9), "STEREO_CAMERA_RIGHT:value 0x%0x\n"},
    {6, STEREO_CAMERA_LEFT, device(10, 11), "STEREO_CAMERA_LEFT:value 0x%0x\n"},
    {7, STEREO_CAMERA_TOP, device(12, 13), "STEREO_CAMERA_TOP:value 0x%0x\n"},
    {8, GIMBAL_CAMERA_PRIOR, device(23, 23), "GIMBAL_CAMERA_PRIOR:value 0x%0x\n"},
    {9, GIMBAL_CAMERA_MINOR, device(24, 24), "GIMBAL_CAMERA_MINOR:value 0x%0x\n"},
    {10, GIMBAL_CAMERA_THERM, device(25, 25), "GIMBAL_CAMERA_THERM:value 0x%0x\n"},
    {11, STEREO_CALIB_HEAD, device(17, 17), "STEREO_CALIB_HEAD:value 0x%0x\n"},
    {12, STEREO_CALIB_REAR, device(18, 18), "STEREO_CALIB_REAR:value 0x%0x\n"},
    {13, STEREO_CALIB_BOTTOM, device(19, 19), "STEREO_CALIB_BOTTOM:value 0x%0x\n"},
    {14, STEREO_CALIB_RIGHT, device(20, 20), "STEREO_CALIB_RIGHT:value 0x%0x\n"},
    {15, STEREO_CALIB_LEFT, device(21, 21), "STEREO_CALIB_LEFT:value 0x%0x\n"},
    {16, STEREO_CALIB_TOP, device(22, 22), "STEREO_CALIB_TOP:value 0x%0x\n"},
    {17, GIMBAL_CALIB_PRIOR, device(23, 23), "GIMBAL_CALIB_PRIOR:value 0x%0x\n"},
    {18, GIMBAL_CALIB_MINOR, device(24, 24), "GIMBAL_CALIB_MINOR:value 0x%0x\n"},
    {19, GIMBAL_CALIB_THERM, device(25, 25), "GIMBAL_CALIB_THERM:value 0x%0x\n"},
    {20, STEREO_CALIB_IMU_HEAD, device(26, 26), "STEREO_CALIB_IMU_HEAD:value 0x%0x\n"},
    {21, STEREO_CALIB_IMU_REAR, device(27, 27), "STEREO_CALIB_IMU_REAR:value 0x%0x\n"},
    {22, STEREO_CALIB_IMU_BOTTOM, device(28, 28), "STEREO_CALIB_IMU_BOTTOM:value 0x%0x\n"},
    {23, STEREO_CALIB_IMU_RIGHT, device(29, 29), "STEREO_CALIB_IMU_RIGHT:value 0x%0x\n"},
    {24, STEREO_CALIB_IMU_LEFT, device(30, 30), "STEREO_CALIB_IMU_LEFT:value 0x%0x\n"},
    {25, STEREO_CALIB_IMU_TOP, device(31, 31), "STEREO_CALIB_IMU_TOP:value 0x%0x\n"},
    {26, VISION_MACHINE_MODE, whole(8), "VISION_MACHINE_MODE:value 0x%0x\n"},
    {27, VISION_MACHINE_RATE, whole(9), "VISION_MACHINE_RATE:value 0x%0x\n"},
    {28, CALIB_MACHINE_MODE, whole(10), "CALIB_MACHINE_MODE:value 0x%0x\n"},
    {29, CALIB_MACHINE_RATE, whole(11), "CALIB_MACHINE_RATE:value 0x%0x\n"},
    {30, VIO_MODE, whole(12), "VIO_MODE:value 0x%0x\n"},
    {31, VIO_RATE, whole(13), "VIO_RATE:value 0x%0x\n"},
    {32, DPU_MODE, whole(14), "DPU_MODE:value 0x%0x\n"},
    {33, DPU_RATE, whole(15), "DPU_RATE:value 0x%0x\n"},
    {34, SOA_MODE, whole(16), "SOA_MODE:value 0x%0x\n"},
    {35, SOA_RATE, whole(17), "SOA_RATE:value 0x%0x\n"},
    {36, SELF_CALIB_MODE, whole(18), "SELF_CALIB_MODE:value 0x%0x\n"},
    {37, SELF_CALIB_RATE, whole(19), "SELF_CALIB_MODE:value 0x%0x\n"},
    {38, SECURE_LANDING_MODE, whole(20), "SECURE_LANDING_MODE:value 0x%0x\n"},
    {39, SECURE_LANDING_RATE, whole(21), "SECURE_LANDING_RATE:value 0x%0x\n"},
    {40, PRECISE_LANDING_MODE, whole(22), "PRECISE_LANDING_MODE:value 0x%0x\n"},
    {41, PRECISE_LANDING_RATE, whole(23), "PRECISE_LANDING_RATE:value 0x%0x\n"},
    {42, DETECTION_TRACKING_MODE, whole(24), "DETECTION_TRACKING_MODE:value 0x%0x\n"},
    {43, DETECTION_TRACKING_RATE, whole(25), "DETECTION_TRACKING_RATE:value 0x%0x\n"},
    {44, MAPPING_PATHPLANNING_MODE, whole(26), "MAPPING_PATHPLANNING_MODE:value 0x%0x\n"},
    {45, MAPPING_PATHPLANNING_RATE, whole(27), "MAPPING_PATHPLANNING_RATE:value 0x%0x\n"},
    {46, SHOW_HEAD_RADAR, bits(40, 0, 0), "SHOW_HEAD_RADAR:value 0x%0x\n"},
    {47, SHOW_REAR_RADAR, bits(40, 1, 1), "SHOW_REAR_RADAR:value 0x%0x\n"},
    {48, SHOW_BOTTOM_RADAR, bits(40, 2, 2), "SHOW_BOTTOM_RADAR:value 0x%0x\n"},
    {49, SHOW_RIGHT_RADAR, bits(40, 3, 3), "SHOW_RIGHT_RADAR:value 0x%0x\n"},
    {50, SHOW_LEFT_RADAR, bits(40, 4, 4), "SHOW_LEFT_RADAR:value 0x%0x\n"},
    {51, SHOW_TOP_RADAR, bits(40, 5, 5), "SHOW_TOP_RADAR:value 0x%0x\n"},
    {52, SHOW_OMNI_RADAR, bits(40, 6, 6), "SHOW_OMNI_RADAR:value 0x%0x\n"},
    {53, SHOW_PRIOR_RADAR, bits(40, 7, 7), "SHOW_PRIOR_RADAR:value 0x%0x\n"},
    {54, ENABLE_HEAD_SOA, bits(41, 0, 0), "ENABLE_HEAD_SOA:value 0x%0x\n"},
    {55, ENABLE_REAR_SOA, bits(41, 1, 1), "ENABLE_REAR_SOA:value 0x%0x\n"},
    {56, ENABLE_BOTTOM_SOA, bits(41, 2, 2), "ENABLE_BOTTOM_SOA:value 0x%0x\n"},
    {57, ENABLE_RIGHT_SOA, bits(41, 3, 3), "ENABLE_RIGHT_SOA:value 0x%0x\n"},
    {58, ENABLE_LEFT_SOA, bits(41, 4, 4), "ENABLE_LEFT_SOA:value 0x%0x\n"},
    {59, ENABLE_TOP_SOA, bits(41, 5, 5), "ENABLE_TOP_SOA:value 0x%0x\n"},
    {60, ENABLE_OMNI_SOA, bits(41, 6, 6), "ENABLE_OMNI_RADAR:value 0x%0x\n"},
    {61, ENABLE_PRIOR_SOA, bits(41, 7, 7), "ENABLE_PRIOR_SOA:value 0x%0x\n"},
    {62, ENABLE_SECURE_LANDING, bits(42, 0, 0), "ENABLE_SECURE_LANDING:value 0x%0x\n"},
    {63, ENABLE_PRECISE_LANDING, bits(42, 1, 1), "ENABLE_PRECISE_LANDING:value 0x%0x\n"},
    {64, ENABLE_RESERVED_FUNCTION, bits(42, 3, 7), "ENABLE_RESERVED_FUNCTION:value 0x%0x\n"},
    {65, WORK_MODE, whole(48), "WORK_MODE:value 0x%0x\n"},
    {66, WORK_STATUS, whole(49), "WORK_STATUS:value 0x%0x\n"},
    {67, OVERHEART, device(35, 35), "overheat:value 0x%0x\n"},
    {68, WIFI_ENABLE, device(36, 36), "wifi_enable:value 0x%0x\n"},
    {69, WIFI_STATUS, device(37, 37), "wifi_status:value 0x%0x\n"},
    {70, STEREO_CALIB_HEAD_STATUS, device(38, 39), "stereo_calib_head_status:value 0x%0x\n"},
    {71, STEREO_CALIB_REAR_STATUS, device(40, 41), "stereo_calib_rear_status:value 0x%0x\n"},
    {72, STEREO_CALIB_BOTTOM_STATUS, device(42, 43), "stereo_calib_bottom_status:value 0x%0x\n"},
};

/** The frame of a process that has just started. */
inline constexpr frame_bytes k_initial = {0x01, 0x00, 0x7E, 0x00, 0x08, 0x00, 0x00, 0x00};

/** Whether bit `i` of a place is in it. */
constexpr bool has_bit(const place &p, unsigned bit) {
    return bit >= p.first_bit && bit <= p.last_bit;
}

/** What a frame becomes when a field is set, bit by bit. */
inline void set(frame_bytes &frame, const place &p, int value) {
    for (unsigned bit = 0; bit < 8; ++bit) {
        if (!has_bit(p, bit)) {
            continue;
        }
        const bool on = ((static_cast<uint32_t>(value) >> (bit - p.first_bit)) & 1U) != 0;
        const unsigned weight = 1U << bit;
        frame[p.byte] = static_cast<uint8_t>(on ? frame[p.byte] | weight : frame[p.byte] & ~weight);
    }
}

inline frame_bytes to_bytes(const VPHeartbeatFrame &frame) {
    static_assert(sizeof frame == sizeof(frame_bytes));
    frame_bytes bytes;
    memcpy(bytes.data(), &frame, sizeof frame);
    return bytes;
}

} // namespace hb_rows

#endif
