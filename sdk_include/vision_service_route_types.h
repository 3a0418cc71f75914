/**
 * @file
 * The names of the routing bus: its nodes and the application-level message types. A node is one process of
 * the vision computer; it is addressed by its NodeID and receives on UDP port 9000 + NodeID.
 */
#ifndef VISION_SERVICE_ROUTE_TYPES_H
#define VISION_SERVICE_ROUTE_TYPES_H

#include "vexamsg_export.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Who sends and who receives. Ids 1 to 126 are ordinary nodes and reached directly; everything from 127 up is
 * reached through the proxy.
 */
typedef enum NodeID VEXAMSG_ENUM_U32 {
    NODE_RESERVED_ZERO = 0, /**< the node manager */
    NODE_VISION_MACHINE = 1,
    NODE_CALIB_MACHINE = 2,
    NODE_VIO = 3,
    NODE_DPU = 4,
    NODE_SOA = 5,
    NODE_SELF_CALIB = 6,
    NODE_SECURE_LANDING = 7,
    NODE_PRECISE_LANDING = 8,
    NODE_DETECTION_TRACKING = 9,
    NODE_MAPPING_PLANNING = 10,
    NODE_CAMERA = 11,
    NODE_TARGET_ESTIMATION = 12,
    NODE_AIRPLANE_TRANSMIT = 13,
    NODE_GROUND_TRANSMIT = 14,
    NODE_SERVICE_CONTROL = 15,
    NODE_SOA2 = 16,
    NODE_SELF_CALIB2 = 17,
    NODE_MISSION_MANAGER = 18,
    NODE_RESERVER_BEGIN = 100,
    NODE_VISION_CAMERA = 101,
    NODE_VEXA_STREAM = 102,
    NODE_RC = 126,
    PROXY_NODE_ID =
        127, /**< the proxy: next hop for every id from 127 up, rebroadcasts heartbeat operations */
    NODE_RESERVER_END = 128,
    NODE_APP = 64001,      /**< behind the proxy */
    NODE_FOR_TEST = 64002, /**< behind the proxy */
} NodeID;

/**
 * What an application message is about. Every status message (vision_send_status, vision_broadcast_status)
 * begins with its MsgType as a little-endian uint16_t; vision_recv_status finds it by that.
 */
typedef enum MsgType VEXAMSG_ENUM_U32 {
    MSG_VISION_STATE = 0,
    MSG_VIO_CFG = 1,
    MSG_SOA_CFG = 2,
    MSG_SOA_RADAR_MSG = 3,
    MSG_CMD_ACK = 4,
    MSG_SOA_DISTANCES = 5,
    MSG_DETECTION_OBJECTS = 6,
    MSG_TRACK_OBJECTS = 7,
    MSG_SECURELANDING_STATUS = 8,
    MSG_PRECISELANDING_STATUS = 9,
    MSG_TRACKINFO_TO_TARGETESTIMATION = 10,
    MSG_VISION_CALIB_USB_SWITCH_CMD = 11,
    MSG_LOG_FILE_GET_REQ = 12,
    MSG_LOG_FILE_GET_RESP = 13,
    MSG_LOG_FILE_START_PACK = 14,
    MSG_LOG_FILE_READY = 15,
    MSG_LOG_FILE_FINISH = 16,
    MSG_LOG_LED_CONTROL = 17,
    MSG_LOG_FILE_DELETE_REQ = 18,
    MSG_LOG_DELETE_FINISH = 19,
    MSG_VISION_WIFI_CFG = 20,
    MSG_AIRTRANS_CMD_REQ = 21,
    MSG_AIRTRANS_CMD_RESP = 22,
    MSG_HEAD_FULL_DATA = 23,
    MSG_APP_CMD = 224,
    MSG_PLANNING_EXIT_CMD = 225,
    MSG_PLANNING_EXIT_CMD_ACK = 226,
    MSG_PLANNING_SWITCH_DPU_PC_CMD = 227,
    MSG_PLANNING_SWITCH_DPU_PC_CMD_ACK = 228,
    MSG_PLANNING_SWITCH_SOA_CMD = 229,
    MSG_PLANNING_SWITCH_SOA_CMD_ACK = 230,
    MSG_CAMERA_FOV_PARA_RESP = 231,
    VISION_EVENT_TO_APP = 232,
    MSG_AI_SERVICE_PLANNING = 233,
    MSG_CAMERA_FOV_PARA_REQ = 234,
    MSG_CONTROL_CAMERA_CMD = 235,
    MSG_CONTROL_CAMERA_CMD_ACK = 236,
    MSG_MISSION_MANAGER_SOA_CMD = 237,
    MSG_MISSION_MANAGER_SOA_CMD_ACK = 238,
} MsgType;

#ifdef __cplusplus
}
#endif

#endif
