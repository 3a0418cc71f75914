/**
 * @file
 * Where the named bits and bytes of the heartbeat frame and of the flag byte lie, compiled as C and as C++.
 * Each function sets one member after the other to all ones and returns the name of the first that turned out
 * to lie elsewhere, or NULL.
 */
#ifndef INTERFACE_BITS_H
#define INTERFACE_BITS_H

#include "all_public_headers.h"

#include <stddef.h>
#include <string.h>

/** Whether of a block of bytes exactly these bits of this one byte are set. */
static inline int has_only(const void *block, size_t size, size_t byte, unsigned mask) {
    const uint8_t *bytes = (const uint8_t *)block;
    for (size_t i = 0; i < size; ++i) {
        if (bytes[i] != (i == byte ? mask : 0U)) {
            return 0;
        }
    }
    return 1;
}

#define BITS(member, all_ones, byte, mask)                                                                   \
    do {                                                                                                     \
        memset(&object, 0, sizeof object);                                                                   \
        object.member = all_ones;                                                                            \
        if (!has_only(&object, sizeof object, byte, mask)) {                                                 \
            return #member;                                                                                  \
        }                                                                                                    \
    } while (0)

static inline const char *misplaced_flag(void) {
    vx_msg_head_t object;
    BITS(flag.ack, 1, 2, 0x01);
    BITS(flag.qos, 3, 2, 0x06);
    BITS(flag.reserved, 31, 2, 0xF8);
    return NULL;
}

static inline const char *misplaced_device_member(void) {
    struct VPHeartbeatFrame object;
    BITS(device.details.environment_light, 3, 0, 0x03);
    BITS(device.details.stereo_camera_head1, 1, 0, 0x04);
    BITS(device.details.stereo_camera_head2, 1, 0, 0x08);
    BITS(device.details.stereo_camera_rear1, 1, 0, 0x10);
    BITS(device.details.stereo_camera_rear2, 1, 0, 0x20);
    BITS(device.details.stereo_camera_bottom1, 1, 0, 0x40);
    BITS(device.details.stereo_camera_bottom2, 1, 0, 0x80);
    BITS(device.details.stereo_camera_right1, 1, 1, 0x01);
    BITS(device.details.stereo_camera_right2, 1, 1, 0x02);
    BITS(device.details.stereo_camera_left1, 1, 1, 0x04);
    BITS(device.details.stereo_camera_left2, 1, 1, 0x08);
    BITS(device.details.stereo_camera_top1, 1, 1, 0x10);
    BITS(device.details.stereo_camera_top2, 1, 1, 0x20);
    BITS(device.details.gimbal_camera_prior, 1, 1, 0x40);
    BITS(device.details.gimbal_camera_minor, 1, 1, 0x80);
    BITS(device.details.gimbal_camera_therm, 1, 2, 0x01);
    BITS(device.details.stereo_calib_head, 1, 2, 0x02);
    BITS(device.details.stereo_calib_rear, 1, 2, 0x04);
    BITS(device.details.stereo_calib_bottom, 1, 2, 0x08);
    BITS(device.details.stereo_calib_right, 1, 2, 0x10);
    BITS(device.details.stereo_calib_left, 1, 2, 0x20);
    BITS(device.details.stereo_calib_top, 1, 2, 0x40);
    BITS(device.details.gimbal_calib_prior, 1, 2, 0x80);
    BITS(device.details.gimbal_calib_minor, 1, 3, 0x01);
    BITS(device.details.gimbal_calib_therm, 1, 3, 0x02);
    BITS(device.details.stereo_calib_imu_head, 1, 3, 0x04);
    BITS(device.details.stereo_calib_imu_rear, 1, 3, 0x08);
    BITS(device.details.stereo_calib_imu_bottom, 1, 3, 0x10);
    BITS(device.details.stereo_calib_imu_right, 1, 3, 0x20);
    BITS(device.details.stereo_calib_imu_left, 1, 3, 0x40);
    BITS(device.details.stereo_calib_imu_top, 1, 3, 0x80);
    BITS(device.details.bottom_flash_state, 7, 4, 0x07);
    BITS(device.details.overheat, 1, 4, 0x08);
    BITS(device.details.wifi_enable, 1, 4, 0x10);
    BITS(device.details.wifi_status, 1, 4, 0x20);
    BITS(device.details.stereo_calib_head_status, 3, 4, 0xC0);
    BITS(device.details.stereo_calib_rear_status, 3, 5, 0x03);
    BITS(device.details.stereo_calib_bottom_status, 3, 5, 0x0C);
    return NULL;
}

static inline const char *misplaced_core_member(void) {
    struct VPHeartbeatFrame object;
    BITS(core.details.vision_machine_mode, 255, 8, 0xFF);
    BITS(core.details.vision_machine_rate, 255, 9, 0xFF);
    BITS(core.details.calib_machine_mode, 255, 10, 0xFF);
    BITS(core.details.calib_machine_rate, 255, 11, 0xFF);
    BITS(core.details.vio_mode, 255, 12, 0xFF);
    BITS(core.details.vio_rate, 255, 13, 0xFF);
    BITS(core.details.dpu_mode, 255, 14, 0xFF);
    BITS(core.details.dpu_rate, 255, 15, 0xFF);
    BITS(core.details.soa_mode, 255, 16, 0xFF);
    BITS(core.details.soa_rate, 255, 17, 0xFF);
    BITS(core.details.self_calib_mode, 255, 18, 0xFF);
    BITS(core.details.self_calib_rate, 255, 19, 0xFF);
    BITS(core.details.secure_landing_mode, 255, 20, 0xFF);
    BITS(core.details.secure_landing_rate, 255, 21, 0xFF);
    BITS(core.details.precise_landing_mode, 255, 22, 0xFF);
    BITS(core.details.precise_landing_rate, 255, 23, 0xFF);
    BITS(core.details.detection_tracking_mode, 255, 24, 0xFF);
    BITS(core.details.detection_tracking_rate, 255, 25, 0xFF);
    BITS(core.details.mapping_pathplanning_mode, 255, 26, 0xFF);
    BITS(core.details.mapping_pathplanning_rate, 255, 27, 0xFF);
    return NULL;
}

static inline const char *misplaced_task_member(void) {
    struct VPHeartbeatFrame object;
    BITS(task.details.show_head_radar, 1, 40, 0x01);
    BITS(task.details.show_rear_radar, 1, 40, 0x02);
    BITS(task.details.show_bottom_radar, 1, 40, 0x04);
    BITS(task.details.show_right_radar, 1, 40, 0x08);
    BITS(task.details.show_left_radar, 1, 40, 0x10);
    BITS(task.details.show_top_radar, 1, 40, 0x20);
    BITS(task.details.show_omni_radar, 1, 40, 0x40);
    BITS(task.details.show_prior_radar, 1, 40, 0x80);
    BITS(task.details.enable_head_soa, 1, 41, 0x01);
    BITS(task.details.enable_rear_soa, 1, 41, 0x02);
    BITS(task.details.enable_bottom_soa, 1, 41, 0x04);
    BITS(task.details.enable_right_soa, 1, 41, 0x08);
    BITS(task.details.enable_left_soa, 1, 41, 0x10);
    BITS(task.details.enable_top_soa, 1, 41, 0x20);
    BITS(task.details.enable_omni_soa, 1, 41, 0x40);
    BITS(task.details.enable_prior_soa, 1, 41, 0x80);
    BITS(task.details.enable_secure_landing, 1, 42, 0x01);
    BITS(task.details.enable_precise_landing, 1, 42, 0x02);
    BITS(task.details.enable_vio, 1, 42, 0x04);
    BITS(task.details.enable_reserved_function, 31, 42, 0xF8);
    BITS(task.details.reserved_global_setting[0], 255, 43, 0xFF);
    BITS(task.details.reserved_global_setting[1], 255, 44, 0xFF);
    BITS(task.details.reserved_global_setting[2], 255, 45, 0xFF);
    BITS(task.details.reserved_global_setting[3], 255, 46, 0xFF);
    BITS(task.details.reserved_global_setting[4], 255, 47, 0xFF);
    BITS(task.details.work_mode, 255, 48, 0xFF);
    BITS(task.details.work_status, 255, 49, 0xFF);
    return NULL;
}

#endif
