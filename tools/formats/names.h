/**
 * @file
 * What the numbers of the formats are called: the names that the library's own headers give them. A number
 * that travels in more than one format has one table.
 */
#ifndef FORMATS_NAMES_H
#define FORMATS_NAMES_H

#include "description.h"

#include "vision_protocol.h"
#include "vision_service_route_vision_heartbeat.h"
#include "vx_msg_def.h"

#include <array>

namespace formats {

#define NAMED(name)                                                                                          \
    value_name {                                                                                             \
        name, #name                                                                                          \
    }

inline constexpr auto k_node_id_rows = std::to_array<value_name>({
    NAMED(NODE_RESERVED_ZERO),
    NAMED(NODE_VISION_MACHINE),
    NAMED(NODE_CALIB_MACHINE),
    NAMED(NODE_VIO),
    NAMED(NODE_DPU),
    NAMED(NODE_SOA),
    NAMED(NODE_SELF_CALIB),
    NAMED(NODE_SECURE_LANDING),
    NAMED(NODE_PRECISE_LANDING),
    NAMED(NODE_DETECTION_TRACKING),
    NAMED(NODE_MAPPING_PLANNING),
    NAMED(NODE_CAMERA),
    NAMED(NODE_TARGET_ESTIMATION),
    NAMED(NODE_AIRPLANE_TRANSMIT),
    NAMED(NODE_GROUND_TRANSMIT),
    NAMED(NODE_SERVICE_CONTROL),
    NAMED(NODE_SOA2),
    NAMED(NODE_SELF_CALIB2),
    NAMED(NODE_MISSION_MANAGER),
    NAMED(NODE_RESERVER_BEGIN),
    NAMED(NODE_VISION_CAMERA),
    NAMED(NODE_VEXA_STREAM),
    NAMED(NODE_RC),
    NAMED(PROXY_NODE_ID),
    NAMED(NODE_RESERVER_END),
    NAMED(NODE_APP),
    NAMED(NODE_FOR_TEST),
    NAMED(VX_MSG_BROADCAST),
});
inline constexpr name_table k_node_ids{.id = "node_id", .rows = k_node_id_rows};

inline constexpr auto k_msg_type_rows = std::to_array<value_name>({
    NAMED(MSG_VISION_STATE),
    NAMED(MSG_VIO_CFG),
    NAMED(MSG_SOA_CFG),
    NAMED(MSG_SOA_RADAR_MSG),
    NAMED(MSG_CMD_ACK),
    NAMED(MSG_SOA_DISTANCES),
    NAMED(MSG_DETECTION_OBJECTS),
    NAMED(MSG_TRACK_OBJECTS),
    NAMED(MSG_SECURELANDING_STATUS),
    NAMED(MSG_PRECISELANDING_STATUS),
    NAMED(MSG_TRACKINFO_TO_TARGETESTIMATION),
    NAMED(MSG_VISION_CALIB_USB_SWITCH_CMD),
    NAMED(MSG_LOG_FILE_GET_REQ),
    NAMED(MSG_LOG_FILE_GET_RESP),
    NAMED(MSG_LOG_FILE_START_PACK),
    NAMED(MSG_LOG_FILE_READY),
    NAMED(MSG_LOG_FILE_FINISH),
    NAMED(MSG_LOG_LED_CONTROL),
    NAMED(MSG_LOG_FILE_DELETE_REQ),
    NAMED(MSG_LOG_DELETE_FINISH),
    NAMED(MSG_VISION_WIFI_CFG),
    NAMED(MSG_AIRTRANS_CMD_REQ),
    NAMED(MSG_AIRTRANS_CMD_RESP),
    NAMED(MSG_HEAD_FULL_DATA),
    NAMED(MSG_APP_CMD),
    NAMED(MSG_PLANNING_EXIT_CMD),
    NAMED(MSG_PLANNING_EXIT_CMD_ACK),
    NAMED(MSG_PLANNING_SWITCH_DPU_PC_CMD),
    NAMED(MSG_PLANNING_SWITCH_DPU_PC_CMD_ACK),
    NAMED(MSG_PLANNING_SWITCH_SOA_CMD),
    NAMED(MSG_PLANNING_SWITCH_SOA_CMD_ACK),
    NAMED(MSG_CAMERA_FOV_PARA_RESP),
    NAMED(VISION_EVENT_TO_APP),
    NAMED(MSG_AI_SERVICE_PLANNING),
    NAMED(MSG_CAMERA_FOV_PARA_REQ),
    NAMED(MSG_CONTROL_CAMERA_CMD),
    NAMED(MSG_CONTROL_CAMERA_CMD_ACK),
    NAMED(MSG_MISSION_MANAGER_SOA_CMD),
    NAMED(MSG_MISSION_MANAGER_SOA_CMD_ACK),
});
inline constexpr name_table k_msg_types{.id = "msg_type", .rows = k_msg_type_rows};

inline constexpr auto k_kind_rows = std::to_array<value_name>({
    NAMED(MSTP_USER_DATA_OVER_WRITE),
    NAMED(MSTP_USER_DATA_PROC_BY_CALLBACK),
    NAMED(MSTP_NODE_MGR),
    NAMED(MSTP_HEART_BEAT),
    NAMED(MSTP_OPERATION_ON_HB),
});
inline constexpr name_table k_kinds{.id = "kind", .rows = k_kind_rows, .complete = true};
static_assert(counts_up(k_kind_rows));

inline constexpr auto k_command_rows = std::to_array<value_name>({
    NAMED(MGR_CMD_REGISTER),
    NAMED(MGR_CMD_UNREGISTER),
    NAMED(MGR_CMD_NOTIFY),
});
inline constexpr name_table k_commands{.id = "mgr_cmd", .rows = k_command_rows, .complete = true};

inline constexpr auto k_stat_rows = std::to_array<value_name>({
    NAMED(NODE_STAT_INACTIVED),
    NAMED(NODE_STAT_ACTIVED),
});
inline constexpr name_table k_stats{.id = "stat", .rows = k_stat_rows, .complete = true};

inline constexpr auto k_heartbeat_rows = std::to_array<value_name>({
    NAMED(LED),
    NAMED(ENVIRONMENT),
    NAMED(STEREO_CAMERA_HEAD),
    NAMED(STEREO_CAMERA_REAR),
    NAMED(STEREO_CAMERA_BOTTOM),
    NAMED(STEREO_CAMERA_RIGHT),
    NAMED(STEREO_CAMERA_LEFT),
    NAMED(STEREO_CAMERA_TOP),
    NAMED(GIMBAL_CAMERA_PRIOR),
    NAMED(GIMBAL_CAMERA_MINOR),
    NAMED(GIMBAL_CAMERA_THERM),
    NAMED(STEREO_CALIB_HEAD),
    NAMED(STEREO_CALIB_REAR),
    NAMED(STEREO_CALIB_BOTTOM),
    NAMED(STEREO_CALIB_RIGHT),
    NAMED(STEREO_CALIB_LEFT),
    NAMED(STEREO_CALIB_TOP),
    NAMED(GIMBAL_CALIB_PRIOR),
    NAMED(GIMBAL_CALIB_MINOR),
    NAMED(GIMBAL_CALIB_THERM),
    NAMED(STEREO_CALIB_IMU_HEAD),
    NAMED(STEREO_CALIB_IMU_REAR),
    NAMED(STEREO_CALIB_IMU_BOTTOM),
    NAMED(STEREO_CALIB_IMU_RIGHT),
    NAMED(STEREO_CALIB_IMU_LEFT),
    NAMED(STEREO_CALIB_IMU_TOP),
    NAMED(VISION_MACHINE_MODE),
    NAMED(VISION_MACHINE_RATE),
    NAMED(CALIB_MACHINE_MODE),
    NAMED(CALIB_MACHINE_RATE),
    NAMED(VIO_MODE),
    NAMED(VIO_RATE),
    NAMED(DPU_MODE),
    NAMED(DPU_RATE),
    NAMED(SOA_MODE),
    NAMED(SOA_RATE),
    NAMED(SELF_CALIB_MODE),
    NAMED(SELF_CALIB_RATE),
    NAMED(SECURE_LANDING_MODE),
    NAMED(SECURE_LANDING_RATE),
    NAMED(PRECISE_LANDING_MODE),
    NAMED(PRECISE_LANDING_RATE),
    NAMED(DETECTION_TRACKING_MODE),
    NAMED(DETECTION_TRACKING_RATE),
    NAMED(MAPPING_PATHPLANNING_MODE),
    NAMED(MAPPING_PATHPLANNING_RATE),
    NAMED(SHOW_HEAD_RADAR),
    NAMED(SHOW_REAR_RADAR),
    NAMED(SHOW_BOTTOM_RADAR),
    NAMED(SHOW_RIGHT_RADAR),
    NAMED(SHOW_LEFT_RADAR),
    NAMED(SHOW_TOP_RADAR),
    NAMED(SHOW_OMNI_RADAR),
    NAMED(SHOW_PRIOR_RADAR),
    NAMED(ENABLE_HEAD_SOA),
    NAMED(ENABLE_REAR_SOA),
    NAMED(ENABLE_BOTTOM_SOA),
    NAMED(ENABLE_RIGHT_SOA),
    NAMED(ENABLE_LEFT_SOA),
    NAMED(ENABLE_TOP_SOA),
    NAMED(ENABLE_OMNI_SOA),
    NAMED(ENABLE_PRIOR_SOA),
    NAMED(ENABLE_SECURE_LANDING),
    NAMED(ENABLE_PRECISE_LANDING),
    NAMED(ENABLE_RESERVED_FUNCTION),
    NAMED(WORK_MODE),
    NAMED(WORK_STATUS),
    NAMED(OVERHEART),
    NAMED(WIFI_ENABLE),
    NAMED(WIFI_STATUS),
    NAMED(STEREO_CALIB_HEAD_STATUS),
    NAMED(STEREO_CALIB_REAR_STATUS),
    NAMED(STEREO_CALIB_BOTTOM_STATUS),
});
inline constexpr name_table k_heartbeat_fields{.id = "hb_field", .rows = k_heartbeat_rows, .complete = true};
static_assert(counts_up(k_heartbeat_rows));

inline constexpr auto k_device_rows = std::to_array<value_name>({
    NAMED(DEV_NONE),       NAMED(DEV_UAV),        NAMED(DEV_DSP),        NAMED(DEV_DSP_RC),
    NAMED(DEV_RC_PLAYER),  NAMED(DEV_ESC_PITCH),  NAMED(DEV_ESC_ROLL),   NAMED(DEV_ESC_YAW),
    NAMED(DEV_BATTERY),    NAMED(DEV_GIMBAL),     NAMED(DEV_TOF),        NAMED(DEV_RC_ANDROID),
    NAMED(DEV_RC),         NAMED(DEV_SONAR),      NAMED(DEV_RADAR),      NAMED(DEV_ESC1),
    NAMED(DEV_ESC2),       NAMED(DEV_ESC3),       NAMED(DEV_ESC4),       NAMED(DEV_SWITCHER),
    NAMED(DEV_MOVIDIUS_1), NAMED(DEV_MOVIDIUS_2), NAMED(DEV_MOVIDIUS_3), NAMED(DEV_PC),
    NAMED(DEV_APP),        NAMED(DEV_CAMERA),     NAMED(DEV_MULTICAST),  NAMED(DEV_BROADCAST),
});
inline constexpr name_table k_devices{.id = "device", .rows = k_device_rows};

inline constexpr auto k_link_node_rows = std::to_array<value_name>({
    NAMED(NULL_NODE),
    NAMED(AIRCRAFT_NODE),
    NAMED(CARMERA_NODE),
    NAMED(GIM_NODE),
    NAMED(AIRPLANE_CTRL_NODE),
    NAMED(AVOID_BARRIER),
    NAMED(MOVIDIUS_NODE),
    NAMED(BATTERY_NODE),
    NAMED(GROUND_NODE),
    NAMED(TELE_CTRL_NODE),
    NAMED(PHONE_NODE),
    NAMED(RC_PLAYER_NODE),
    NAMED(VISION_NODE),
    NAMED(ALL_NODE),
});
inline constexpr name_table k_link_nodes{.id = "link_node", .rows = k_link_node_rows, .bit_set = true};

#undef NAMED

} // namespace formats

#endif
