/**
 * @file
 * The heartbeat frame, member by member: what its 56 bytes say, and which field of a heartbeat operation
 * writes a member.
 *
 *     for (const formats::frame_member &m : formats::k_frame_members) { say(m.name, read_member(frame, m)); }
 */
#ifndef FORMATS_HEARTBEAT_FRAME_H
#define FORMATS_HEARTBEAT_FRAME_H

#include "names.h"

#include "hb_fields.h"

#include <algorithm>
#include <array>
#include <span>

namespace formats {

struct frame_member {
    const char *name;
    uint16_t first_bit; /**< bit 0 is the lowest bit of frame byte 0 */
    uint8_t width;      /**< [bits]; all in one byte */
};

inline constexpr size_t k_frame_bytes = sizeof(VPHeartbeatFrame);

inline constexpr auto k_frame_members = std::to_array<frame_member>({
    {"environment_light", 0, 2},
    {"stereo_camera_head1", 2, 1},
    {"stereo_camera_head2", 3, 1},
    {"stereo_camera_rear1", 4, 1},
    {"stereo_camera_rear2", 5, 1},
    {"stereo_camera_bottom1", 6, 1},
    {"stereo_camera_bottom2", 7, 1},
    {"stereo_camera_right1", 8, 1},
    {"stereo_camera_right2", 9, 1},
    {"stereo_camera_left1", 10, 1},
    {"stereo_camera_left2", 11, 1},
    {"stereo_camera_top1", 12, 1},
    {"stereo_camera_top2", 13, 1},
    {"gimbal_camera_prior", 14, 1},
    {"gimbal_camera_minor", 15, 1},
    {"gimbal_camera_therm", 16, 1},
    {"stereo_calib_head", 17, 1},
    {"stereo_calib_rear", 18, 1},
    {"stereo_calib_bottom", 19, 1},
    {"stereo_calib_right", 20, 1},
    {"stereo_calib_left", 21, 1},
    {"stereo_calib_top", 22, 1},
    {"gimbal_calib_prior", 23, 1},
    {"gimbal_calib_minor", 24, 1},
    {"gimbal_calib_therm", 25, 1},
    {"stereo_calib_imu_head", 26, 1},
    {"stereo_calib_imu_rear", 27, 1},
    {"stereo_calib_imu_bottom", 28, 1},
    {"stereo_calib_imu_right", 29, 1},
    {"stereo_calib_imu_left", 30, 1},
    {"stereo_calib_imu_top", 31, 1},
    {"bottom_flash_state", 32, 3},
    {"overheat", 35, 1},
    {"wifi_enable", 36, 1},
    {"wifi_status", 37, 1},
    {"stereo_calib_head_status", 38, 2},
    {"stereo_calib_rear_status", 40, 2},
    {"stereo_calib_bottom_status", 42, 2},
    {"vision_machine_mode", 64, 8},
    {"vision_machine_rate", 72, 8},
    {"calib_machine_mode", 80, 8},
    {"calib_machine_rate", 88, 8},
    {"vio_mode", 96, 8},
    {"vio_rate", 104, 8},
    {"dpu_mode", 112, 8},
    {"dpu_rate", 120, 8},
    {"soa_mode", 128, 8},
    {"soa_rate", 136, 8},
    {"self_calib_mode", 144, 8},
    {"self_calib_rate", 152, 8},
    {"secure_landing_mode", 160, 8},
    {"secure_landing_rate", 168, 8},
    {"precise_landing_mode", 176, 8},
    {"precise_landing_rate", 184, 8},
    {"detection_tracking_mode", 192, 8},
    {"detection_tracking_rate", 200, 8},
    {"mapping_pathplanning_mode", 208, 8},
    {"mapping_pathplanning_rate", 216, 8},
    {"show_head_radar", 320, 1},
    {"show_rear_radar", 321, 1},
    {"show_bottom_radar", 322, 1},
    {"show_right_radar", 323, 1},
    {"show_left_radar", 324, 1},
    {"show_top_radar", 325, 1},
    {"show_omni_radar", 326, 1},
    {"show_prior_radar", 327, 1},
    {"enable_head_soa", 328, 1},
    {"enable_rear_soa", 329, 1},
    {"enable_bottom_soa", 330, 1},
    {"enable_right_soa", 331, 1},
    {"enable_left_soa", 332, 1},
    {"enable_top_soa", 333, 1},
    {"enable_omni_soa", 334, 1},
    {"enable_prior_soa", 335, 1},
    {"enable_secure_landing", 336, 1},
    {"enable_precise_landing", 337, 1},
    {"enable_vio", 338, 1},
    {"enable_reserved_function", 339, 5},
    {"work_mode", 384, 8},
    {"work_status", 392, 8},
});

/** A member's value. */
constexpr unsigned read_member(std::span<const uint8_t, k_frame_bytes> frame, const frame_member &m) {
    return (frame[m.first_bit / 8] >> (m.first_bit % 8)) & ((1U << m.width) - 1);
}

/** Whether a heartbeat field writes the member, or a part of it, as the cameras' fields write two members. */
constexpr bool writes(const hb_field_t &field, const frame_member &m) {
    return field.first_bit < m.first_bit + m.width && m.first_bit < field.first_bit + field.width;
}

// Members follow each other in their bytes, and a field writes whole members.
static_assert(std::ranges::is_sorted(k_frame_members, {}, &frame_member::first_bit));
static_assert(std::ranges::all_of(k_frame_members, [](const frame_member &m) {
    return m.first_bit / 8U < k_frame_bytes && m.first_bit % 8 + m.width <= 8;
}));
static_assert(std::ranges::all_of(k_hb_fields, [](const hb_field_t &field) {
    int bits = 0;
    for (const frame_member &m : k_frame_members) {
        bits += writes(field, m) ? m.width : 0;
    }
    return bits == field.width;
}));

} // namespace formats

#endif
