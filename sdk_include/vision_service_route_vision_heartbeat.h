/**
 * @file
 * The heartbeat frame: 56 bytes that say how the vision computer's cameras, calibrations, algorithms and
 * switches are. Every node keeps one; it is changed field by field, by (field, value) pairs that travel to
 * the proxy and from there to every node.
 *
 *     HeartBeatPair pair = {VIO_MODE, 2};
 *     vision_set_hearbeat(&pair, 1);
 *
 * The frame and the pairs cross process boundaries, so their bytes are fixed; bits count from the lowest bit
 * of their byte. What a value means is a matter between the nodes that set and read it: it is stored as
 * given.
 */
#ifndef VISION_SERVICE_ROUTE_VISION_HEARTBEAT_H
#define VISION_SERVICE_ROUTE_VISION_HEARTBEAT_H

#include "vexamsg_export.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Cameras and calibrations, frame bytes 0 to 7. A bit is 1 for "there" or "done" unless a field says more.
 */
struct VPHeartbeatDevice {
    /** What the name says, see above. No field writes the gimbal_camera_ bits of bytes 1 and 2. */
    /** @{ */
    VEXAMSG_BITS7(environment_light : 2, stereo_camera_head1 : 1, stereo_camera_head2 : 1,
                  stereo_camera_rear1 : 1, stereo_camera_rear2 : 1, stereo_camera_bottom1 : 1,
                  stereo_camera_bottom2 : 1);
    VEXAMSG_BITS8(stereo_camera_right1 : 1, stereo_camera_right2 : 1, stereo_camera_left1 : 1,
                  stereo_camera_left2 : 1, stereo_camera_top1 : 1, stereo_camera_top2 : 1,
                  gimbal_camera_prior : 1, gimbal_camera_minor : 1);
    VEXAMSG_BITS8(gimbal_camera_therm : 1, stereo_calib_head : 1, stereo_calib_rear : 1,
                  stereo_calib_bottom : 1, stereo_calib_right : 1, stereo_calib_left : 1,
                  stereo_calib_top : 1, gimbal_calib_prior : 1);
    VEXAMSG_BITS8(gimbal_calib_minor : 1, gimbal_calib_therm : 1, stereo_calib_imu_head : 1,
                  stereo_calib_imu_rear : 1, stereo_calib_imu_bottom : 1, stereo_calib_imu_right : 1,
                  stereo_calib_imu_left : 1, stereo_calib_imu_top : 1);
    VEXAMSG_BITS5(bottom_flash_state : 3, overheat : 1, wifi_enable : 1, wifi_status : 1,
                  stereo_calib_head_status : 2);
    VEXAMSG_BITS3(stereo_calib_rear_status : 2, stereo_calib_bottom_status : 2, unused : 4);
    /** @} */
    uint8_t unused_bytes[2]; /**< 0 */
};

/** Mode and rate of each core task, frame bytes 8 to 27. */
struct VPHeartbeatCore {
    /** As the task's node has set it. */
    /** @{ */
    uint8_t vision_machine_mode;
    uint8_t vision_machine_rate;
    uint8_t calib_machine_mode;
    uint8_t calib_machine_rate;
    uint8_t vio_mode;
    uint8_t vio_rate;
    uint8_t dpu_mode;
    uint8_t dpu_rate;
    uint8_t soa_mode;
    uint8_t soa_rate;
    uint8_t self_calib_mode;
    uint8_t self_calib_rate;
    uint8_t secure_landing_mode;
    uint8_t secure_landing_rate;
    uint8_t precise_landing_mode;
    uint8_t precise_landing_rate;
    uint8_t detection_tracking_mode;
    uint8_t detection_tracking_rate;
    uint8_t mapping_pathplanning_mode;
    uint8_t mapping_pathplanning_rate;
    /** @} */
};

/** What is shown, what is enabled, and the work mode, frame bytes 40 to 49. */
struct VPHeartbeatTask {
    /** 1 for "shown" or "enabled". No field writes enable_vio. */
    /** @{ */
    VEXAMSG_BITS8(show_head_radar : 1, show_rear_radar : 1, show_bottom_radar : 1, show_right_radar : 1,
                  show_left_radar : 1, show_top_radar : 1, show_omni_radar : 1, show_prior_radar : 1);
    VEXAMSG_BITS8(enable_head_soa : 1, enable_rear_soa : 1, enable_bottom_soa : 1, enable_right_soa : 1,
                  enable_left_soa : 1, enable_top_soa : 1, enable_omni_soa : 1, enable_prior_soa : 1);
    VEXAMSG_BITS4(enable_secure_landing : 1, enable_precise_landing : 1, enable_vio : 1,
                  enable_reserved_function : 5);
    /** @} */
    uint8_t reserved_global_setting[5]; /**< never written */
    uint8_t work_mode;                  /**< as its node has set it */
    uint8_t work_status;                /**< as its node has set it */
};

/** The whole frame. Its 6 trailing bytes fill it up to a multiple of 8 and are 0. */
struct VPHeartbeatFrame {
    union {
        uint64_t data;                    /**< the 8 bytes as one little-endian word */
        struct VPHeartbeatDevice details; /**< the same by name */
    } device;                             /**< bytes 0 to 7 */
    union {
        uint8_t data[32];               /**< bytes 20 to 31 have no name and are never written */
        struct VPHeartbeatCore details; /**< the same by name */
    } core;                             /**< bytes 8 to 39 */
    union {
        uint8_t data[10];               /**< as bytes */
        struct VPHeartbeatTask details; /**< the same by name */
    } task;                             /**< bytes 40 to 49 */
};

VX_STATIC_ASSERT(sizeof(struct VPHeartbeatFrame) == 56 && offsetof(struct VPHeartbeatFrame, core) == 8 &&
                     offsetof(struct VPHeartbeatFrame, task) == 40,
                 "layout of the frame");
VX_STATIC_ASSERT(sizeof(struct VPHeartbeatDevice) == 8 && sizeof(struct VPHeartbeatTask) == 10,
                 "bytes of the bit fields");
VX_STATIC_ASSERT(sizeof(struct VPHeartbeatCore) == 20 && offsetof(struct VPHeartbeatCore, vio_mode) == 4 &&
                     offsetof(struct VPHeartbeatCore, detection_tracking_mode) == 16,
                 "one byte each, in this order");
VX_STATIC_ASSERT(offsetof(struct VPHeartbeatTask, reserved_global_setting) == 3 &&
                     offsetof(struct VPHeartbeatTask, work_mode) == 8 &&
                     offsetof(struct VPHeartbeatTask, work_status) == 9,
                 "three bytes of switches come first");

/** Which field a pair writes. The three GIMBAL_CAMERA_ fields write the gimbal_calib_ bits. */
typedef enum HeartBeatField VEXAMSG_ENUM_I32 {
    LED = 0,
    ENVIRONMENT = 1,
    STEREO_CAMERA_HEAD = 2,
    STEREO_CAMERA_REAR = 3,
    STEREO_CAMERA_BOTTOM = 4,
    STEREO_CAMERA_RIGHT = 5,
    STEREO_CAMERA_LEFT = 6,
    STEREO_CAMERA_TOP = 7,
    GIMBAL_CAMERA_PRIOR = 8,
    GIMBAL_CAMERA_MINOR = 9,
    GIMBAL_CAMERA_THERM = 10,
    STEREO_CALIB_HEAD = 11,
    STEREO_CALIB_REAR = 12,
    STEREO_CALIB_BOTTOM = 13,
    STEREO_CALIB_RIGHT = 14,
    STEREO_CALIB_LEFT = 15,
    STEREO_CALIB_TOP = 16,
    GIMBAL_CALIB_PRIOR = 17,
    GIMBAL_CALIB_MINOR = 18,
    GIMBAL_CALIB_THERM = 19,
    STEREO_CALIB_IMU_HEAD = 20,
    STEREO_CALIB_IMU_REAR = 21,
    STEREO_CALIB_IMU_BOTTOM = 22,
    STEREO_CALIB_IMU_RIGHT = 23,
    STEREO_CALIB_IMU_LEFT = 24,
    STEREO_CALIB_IMU_TOP = 25,
    VISION_MACHINE_MODE = 26,
    VISION_MACHINE_RATE = 27,
    CALIB_MACHINE_MODE = 28,
    CALIB_MACHINE_RATE = 29,
    VIO_MODE = 30,
    VIO_RATE = 31,
    DPU_MODE = 32,
    DPU_RATE = 33,
    SOA_MODE = 34,
    SOA_RATE = 35,
    SELF_CALIB_MODE = 36,
    SELF_CALIB_RATE = 37,
    SECURE_LANDING_MODE = 38,
    SECURE_LANDING_RATE = 39,
    PRECISE_LANDING_MODE = 40,
    PRECISE_LANDING_RATE = 41,
    DETECTION_TRACKING_MODE = 42,
    DETECTION_TRACKING_RATE = 43,
    MAPPING_PATHPLANNING_MODE = 44,
    MAPPING_PATHPLANNING_RATE = 45,
    SHOW_HEAD_RADAR = 46,
    SHOW_REAR_RADAR = 47,
    SHOW_BOTTOM_RADAR = 48,
    SHOW_RIGHT_RADAR = 49,
    SHOW_LEFT_RADAR = 50,
    SHOW_TOP_RADAR = 51,
    SHOW_OMNI_RADAR = 52,
    SHOW_PRIOR_RADAR = 53,
    ENABLE_HEAD_SOA = 54,
    ENABLE_REAR_SOA = 55,
    ENABLE_BOTTOM_SOA = 56,
    ENABLE_RIGHT_SOA = 57,
    ENABLE_LEFT_SOA = 58,
    ENABLE_TOP_SOA = 59,
    ENABLE_OMNI_SOA = 60,
    ENABLE_PRIOR_SOA = 61,
    ENABLE_SECURE_LANDING = 62,
    ENABLE_PRECISE_LANDING = 63,
    ENABLE_RESERVED_FUNCTION = 64,
    WORK_MODE = 65,
    WORK_STATUS = 66,
    OVERHEART = 67, /**< writes `overheat` */
    WIFI_ENABLE = 68,
    WIFI_STATUS = 69,
    STEREO_CALIB_HEAD_STATUS = 70,
    STEREO_CALIB_REAR_STATUS = 71,
    STEREO_CALIB_BOTTOM_STATUS = 72,
} HeartBeatField;

/** One change of the frame. */
typedef struct HeartBeatPair {
    HeartBeatField field; /**< an unknown field is skipped */
    int value;            /**< a field keeps as many low bits of it as it is wide */
} HeartBeatPair;
VX_STATIC_ASSERT(sizeof(HeartBeatPair) == 8 && offsetof(HeartBeatPair, value) == 4,
                 "as it lies in a message");

#ifdef __cplusplus
}
#endif

#endif
