/**
 * @file
 * Where each heartbeat field lies in the frame, and how its update is logged: one row per field, which is
 * also what the tools show a frame by.
 */
#ifndef HB_FIELDS_H
#define HB_FIELDS_H

#include "vision_service_route_vision_heartbeat.h"

#include <algorithm>
#include <array>
#include <cstdint>

struct hb_field_t {
    HeartBeatField field;   // also the row's index
    uint16_t first_bit;     // bit 0 is the lowest bit of frame byte 0
    uint8_t width;          // [bits]; a value keeps its low `width` bits
    const char *log_format; // takes the value as passed, before it is cut
};

// Some rows look wrong and are meant: the gimbal cameras write the gimbal calibrations' bits, and two
// messages name another field than the one that is written.
inline constexpr auto k_hb_fields = std::to_array<hb_field_t>({
    {LED, 32, 3, "LED:value 0x%0x\n"},
    {ENVIRONMENT, 0, 2, "ENVIRONMENT:value 0x%0x\n"},
    {STEREO_CAMERA_HEAD, 2, 2, "STEREO_CAMERA_HEAD:value 0x%0x\n"},
    {STEREO_CAMERA_REAR, 4, 2, "STEREO_CAMERA_REAR:value 0x%0x\n"},
    {STEREO_CAMERA_BOTTOM, 6, 2, "STEREO_CAMERA_BOTTOM:value 0x%0x\n"},
    {STEREO_CAMERA_RIGHT, 8, 2, "STEREO_CAMERA_RIGHT:value 0x%0x\n"},
    {STEREO_CAMERA_LEFT, 10, 2, "STEREO_CAMERA_LEFT:value 0x%0x\n"},
    {STEREO_CAMERA_TOP, 12, 2, "STEREO_CAMERA_TOP:value 0x%0x\n"},
    {GIMBAL_CAMERA_PRIOR, 23, 1, "GIMBAL_CAMERA_PRIOR:value 0x%0x\n"},
    {GIMBAL_CAMERA_MINOR, 24, 1, "GIMBAL_CAMERA_MINOR:value 0x%0x\n"},
    {GIMBAL_CAMERA_THERM, 25, 1, "GIMBAL_CAMERA_THERM:value 0x%0x\n"},
    {STEREO_CALIB_HEAD, 17, 1, "STEREO_CALIB_HEAD:value 0x%0x\n"},
    {STEREO_CALIB_REAR, 18, 1, "STEREO_CALIB_REAR:value 0x%0x\n"},
    {STEREO_CALIB_BOTTOM, 19, 1, "STEREO_CALIB_BOTTOM:value 0x%0x\n"},
    {STEREO_CALIB_RIGHT, 20, 1, "STEREO_CALIB_RIGHT:value 0x%0x\n"},
    {STEREO_CALIB_LEFT, 21, 1, "STEREO_CALIB_LEFT:value 0x%0x\n"},
    {STEREO_CALIB_TOP, 22, 1, "STEREO_CALIB_TOP:value 0x%0x\n"},
    {GIMBAL_CALIB_PRIOR, 23, 1, "GIMBAL_CALIB_PRIOR:value 0x%0x\n"},
    {GIMBAL_CALIB_MINOR, 24, 1, "GIMBAL_CALIB_MINOR:value 0x%0x\n"},
    {GIMBAL_CALIB_THERM, 25, 1, "GIMBAL_CALIB_THERM:value 0x%0x\n"},
    {STEREO_CALIB_IMU_HEAD, 26, 1, "STEREO_CALIB_IMU_HEAD:value 0x%0x\n"},
    {STEREO_CALIB_IMU_REAR, 27, 1, "STEREO_CALIB_IMU_REAR:value 0x%0x\n"},
    {STEREO_CALIB_IMU_BOTTOM, 28, 1, "STEREO_CALIB_IMU_BOTTOM:value 0x%0x\n"},
    {STEREO_CALIB_IMU_RIGHT, 29, 1, "STEREO_CALIB_IMU_RIGHT:value 0x%0x\n"},
    {STEREO_CALIB_IMU_LEFT, 30, 1, "STEREO_CALIB_IMU_LEFT:value 0x%0x\n"},
    {STEREO_CALIB_IMU_TOP, 31, 1, "STEREO_CALIB_IMU_TOP:value 0x%0x\n"},
    {VISION_MACHINE_MODE, 64, 8, "VISION_MACHINE_MODE:value 0x%0x\n"},
    {VISION_MACHINE_RATE, 72, 8, "VISION_MACHINE_RATE:value 0x%0x\n"},
    {CALIB_MACHINE_MODE, 80, 8, "CALIB_MACHINE_MODE:value 0x%0x\n"},
    {CALIB_MACHINE_RATE, 88, 8, "CALIB_MACHINE_RATE:value 0x%0x\n"},
    {VIO_MODE, 96, 8, "VIO_MODE:value 0x%0x\n"},
    {VIO_RATE, 104, 8, "VIO_RATE:value 0x%0x\n"},
    {DPU_MODE, 112, 8, "DPU_MODE:value 0x%0x\n"},
    {DPU_RATE, 120, 8, "DPU_RATE:value 0x%0x\n"},
    {SOA_MODE, 128, 8, "SOA_MODE:value 0x%0x\n"},
    {SOA_RATE, 136, 8, "SOA_RATE:value 0x%0x\n"},
    {SELF_CALIB_MODE, 144, 8, "SELF_CALIB_MODE:value 0x%0x\n"},
    {SELF_CALIB_RATE, 152, 8, "SELF_CALIB_MODE:value 0x%0x\n"},
    {SECURE_LANDING_MODE, 160, 8, "SECURE_LANDING_MODE:value 0x%0x\n"},
    {SECURE_LANDING_RATE, 168, 8, "SECURE_LANDING_RATE:value 0x%0x\n"},
    {PRECISE_LANDING_MODE, 176, 8, "PRECISE_LANDING_MODE:value 0x%0x\n"},
    {PRECISE_LANDING_RATE, 184, 8, "PRECISE_LANDING_RATE:value 0x%0x\n"},
    {DETECTION_TRACKING_MODE, 192, 8, "DETECTION_TRACKING_MODE:value 0x%0x\n"},
    {DETECTION_TRACKING_RATE, 200, 8, "DETECTION_TRACKING_RATE:value 0x%0x\n"},
    {MAPPING_PATHPLANNING_MODE, 208, 8, "MAPPING_PATHPLANNING_MODE:value 0x%0x\n"},
    {MAPPING_PATHPLANNING_RATE, 216, 8, "MAPPING_PATHPLANNING_RATE:value 0x%0x\n"},
    {SHOW_HEAD_RADAR, 320, 1, "SHOW_HEAD_RADAR:value 0x%0x\n"},
    {SHOW_REAR_RADAR, 321, 1, "SHOW_REAR_RADAR:value 0x%0x\n"},
    {SHOW_BOTTOM_RADAR, 322, 1, "SHOW_BOTTOM_RADAR:value 0x%0x\n"},
    {SHOW_RIGHT_RADAR, 323, 1, "SHOW_RIGHT_RADAR:value 0x%0x\n"},
    {SHOW_LEFT_RADAR, 324, 1, "SHOW_LEFT_RADAR:value 0x%0x\n"},
    {SHOW_TOP_RADAR, 325, 1, "SHOW_TOP_RADAR:value 0x%0x\n"},
    {SHOW_OMNI_RADAR, 326, 1, "SHOW_OMNI_RADAR:value 0x%0x\n"},
    {SHOW_PRIOR_RADAR, 327, 1, "SHOW_PRIOR_RADAR:value 0x%0x\n"},
    {ENABLE_HEAD_SOA, 328, 1, "ENABLE_HEAD_SOA:value 0x%0x\n"},
    {ENABLE_REAR_SOA, 329, 1, "ENABLE_REAR_SOA:value 0x%0x\n"},
    {ENABLE_BOTTOM_SOA, 330, 1, "ENABLE_BOTTOM_SOA:value 0x%0x\n"},
    {ENABLE_RIGHT_SOA, 331, 1, "ENABLE_RIGHT_SOA:value 0x%0x\n"},
    {ENABLE_LEFT_SOA, 332, 1, "ENABLE_LEFT_SOA:value 0x%0x\n"},
    {ENABLE_TOP_SOA, 333, 1, "ENABLE_TOP_SOA:value 0x%0x\n"},
    {ENABLE_OMNI_SOA, 334, 1, "ENABLE_OMNI_RADAR:value 0x%0x\n"},
    {ENABLE_PRIOR_SOA, 335, 1, "ENABLE_PRIOR_SOA:value 0x%0x\n"},
    {ENABLE_SECURE_LANDING, 336, 1, "ENABLE_SECURE_LANDING:value 0x%0x\n"},
    {ENABLE_PRECISE_LANDING, 337, 1, "ENABLE_PRECISE_LANDING:value 0x%0x\n"},
    {ENABLE_RESERVED_FUNCTION, 339, 5, "ENABLE_RESERVED_FUNCTION:value 0x%0x\n"},
    {WORK_MODE, 384, 8, "WORK_MODE:value 0x%0x\n"},
    {WORK_STATUS, 392, 8, "WORK_STATUS:value 0x%0x\n"},
    {OVERHEART, 35, 1, "overheat:value 0x%0x\n"},
    {WIFI_ENABLE, 36, 1, "wifi_enable:value 0x%0x\n"},
    {WIFI_STATUS, 37, 1, "wifi_status:value 0x%0x\n"},
    {STEREO_CALIB_HEAD_STATUS, 38, 2, "stereo_calib_head_status:value 0x%0x\n"},
    {STEREO_CALIB_REAR_STATUS, 40, 2, "stereo_calib_rear_status:value 0x%0x\n"},
    {STEREO_CALIB_BOTTOM_STATUS, 42, 2, "stereo_calib_bottom_status:value 0x%0x\n"},
});
static_assert(k_hb_fields.size() == 73);
static_assert(std::ranges::all_of(k_hb_fields, [](const hb_field_t &f) {
    return &f - k_hb_fields.data() == f.field &&                           // row n describes field n
           f.first_bit / 8 < static_cast<int>(sizeof(VPHeartbeatFrame)) && // inside the frame
           f.first_bit % 8 + f.width <= 8;                                 // one byte written
}));

#endif
