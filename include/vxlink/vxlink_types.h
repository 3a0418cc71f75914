/**
 * @file
 * The types of the vision link: the record in which one frame is built, the device ids, the channels and
 * their statistics. A frame is one message as it would go over a line: an 8-byte header, the payload, a
 * 16-bit CRC. This system builds frames in full, but its datagrams carry only their payloads, behind the
 * camera-protocol header of vision_protocol.h.
 *
 *     vxlink_message_head_t frame;
 *     uint16_t bytes = vxlink_msg_movidus_command_encode(DEV_CAMERA, DEV_MOVIDIUS_1, &frame, &command);
 *     write_line(vxlink_frame_image(&frame), bytes);
 */
#ifndef VXLINK_TYPES_H
#define VXLINK_TYPES_H

#include "vexamsg_export.h"

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VXLINK_STX 0xFD            /**< `magic`, the first byte of every frame image */
#define VXLINK_FRAME_HEAD_LEN 8    /**< [bytes] from `magic` to `checksum` */
#define VXLINK_CRC_LEN 2           /**< [bytes] behind the payload, low byte first */
#define VXLINK_PAYLOAD_STORAGE 520 /**< [bytes] room for the payload and the CRC behind it */
#define VXLINK_MAX_PAYLOAD_LEN                                                                               \
    (VXLINK_PAYLOAD_STORAGE - VXLINK_CRC_LEN) /**< [bytes] longest payload of a frame */
#define VXLINK_CHANNEL_COUNT 16               /**< records in the table of channels */
#define VXLINK_DEVICE_COUNT 256               /**< device ids are one byte */

/** Who sends a frame and who is meant: `sourceid` and `destid`. */
typedef enum MAV_COMPONENT VEXAMSG_ENUM_U32 {
    DEV_NONE = 0,
    DEV_UAV = 1,
    DEV_DSP = 2,
    DEV_DSP_RC = 3,
    DEV_RC_PLAYER = 4,
    DEV_ESC_PITCH = 7,
    DEV_ESC_ROLL = 8,
    DEV_ESC_YAW = 9,
    DEV_BATTERY = 10,
    DEV_GIMBAL = 11,
    DEV_TOF = 12,
    DEV_RC_ANDROID = 13,
    DEV_RC = 14,
    DEV_SONAR = 15,
    DEV_RADAR = 16,
    DEV_ESC1 = 20,
    DEV_ESC2 = 21,
    DEV_ESC3 = 22,
    DEV_ESC4 = 23,
    DEV_SWITCHER = 24,
    DEV_MOVIDIUS_1 = 25, /**< the vision computer; source of every frame of this library */
    DEV_MOVIDIUS_2 = 26,
    DEV_MOVIDIUS_3 = 27,
    DEV_PC = 28,
    DEV_APP = 32,    /**< receiver of all reports */
    DEV_CAMERA = 33, /**< receiver of camera commands */
    DEV_MULTICAST = 254,
    DEV_BROADCAST = 255,
    MAV_COMPONENT_ENUM_END = 256,
} MAV_COMPONENT;

/** Which line a frame is counted on. This library uses the first one only. */
typedef enum vxlink_channel_t VEXAMSG_ENUM_U32 {
    VXLINK_COMM_0 = 0,
    VXLINK_COMM_1 = 1,
    VXLINK_COMM_2 = 2,
    VXLINK_COMM_3 = 3,
} vxlink_channel_t;

/** How far a receiver has come within a frame. For receivers; nothing here parses frames. */
typedef enum vxlink_parse_state_t VEXAMSG_ENUM_U32 {
    VXLINK_PARSE_STATE_UNINIT = 0,
    VXLINK_PARSE_STATE_IDLE = 1,
    VXLINK_PARSE_STATE_GOT_STX = 2,
    VXLINK_PARSE_STATE_GOT_SEQ = 3,
    VXLINK_PARSE_STATE_GOT_LENGTH_LO = 4,
    VXLINK_PARSE_STATE_GOT_LENGTH_HI = 5,
    VXLINK_PARSE_STATE_GOT_DESTID = 6,
    VXLINK_PARSE_STATE_GOT_SOURCEID = 7,
    VXLINK_PARSE_STATE_GOT_MSGID = 8,
    VXLINK_PARSE_STATE_GOT_CHKSUM = 9,
    VXLINK_PARSE_STATE_GOT_PAYLOAD = 10,
    VXLINK_PARSE_STATE_GOT_CRC1 = 11,
    VXLINK_PARSE_STATE_GOT_BAD_CRC1 = 12,
} vxlink_parse_state_t;

/**
 * The record in which a frame is built. Packed, so that everything from `magic` to the CRC lies in one piece
 * and is the frame image; read that through vxlink_frame_image and the payload through vxlink_payload, since
 * a record may lie at any address.
 */
typedef struct __attribute__((packed)) __vxlink_message_head {
    uint16_t crc;     /**< the finished CRC, host order; not part of the image */
    uint16_t len;     /**< payload length [bytes], host order; not part of the image */
    uint8_t magic;    /**< VXLINK_STX; the image begins here */
    uint8_t len_lo;   /**< payload length [bytes], low byte */
    uint8_t len_hi;   /**< payload length [bytes], high byte */
    uint8_t seq;      /**< counts the frames to `destid`, from 0, wrapping after 255 */
    uint8_t destid;   /**< a MAV_COMPONENT */
    uint8_t sourceid; /**< a MAV_COMPONENT */
    uint8_t msgid;    /**< which message the payload is */
    uint8_t checksum; /**< sum of the seven bytes from `magic` to `msgid`, modulo 256 */
    uint64_t payload64[VXLINK_PAYLOAD_STORAGE / 8]; /**< the payload, then at once the two CRC bytes */
} vxlink_message_head_t;
static_assert(sizeof(vxlink_message_head_t) == 532, "a record is its 12 bytes of fields and the storage");
static_assert(offsetof(vxlink_message_head_t, magic) == 4 &&
                  offsetof(vxlink_message_head_t, checksum) == 11 &&
                  offsetof(vxlink_message_head_t, payload64) == 12,
              "the image is in one piece");

/** What is counted on one channel. Only `current_tx_seq` is ever written here; the rest is for receivers. */
typedef struct __vxlink_status {
    /** A receiver's own count or state; 0 here. */
    /** @{ */
    uint8_t msg_received;
    uint8_t buffer_overrun;
    uint8_t parse_error;
    vxlink_parse_state_t parse_state;
    uint16_t packet_idx;
    uint8_t current_rx_seq[VXLINK_DEVICE_COUNT];
    /** @} */
    uint8_t current_tx_seq[VXLINK_DEVICE_COUNT]; /**< next `seq` per `destid`; read and written atomically */
    /** For receivers and senders of their own, per device; 0 here. */
    /** @{ */
    uint32_t packet_rx_success_count[VXLINK_DEVICE_COUNT];
    uint32_t packet_rx_drop_count[VXLINK_DEVICE_COUNT];
    uint32_t packet_tx_success_count[VXLINK_DEVICE_COUNT];
    uint32_t packet_tx_fail_count[VXLINK_DEVICE_COUNT];
    /** @} */
} vxlink_status_t;

/**
 * The frame image inside a record: `len` + 10 bytes once the frame is finalized.
 * @return the caller's record, from `magic` on
 * @par Threads  Any thread; no memory is touched.
 */
static inline const uint8_t *vxlink_frame_image(const vxlink_message_head_t *msg) {
    return (const uint8_t *)msg + offsetof(vxlink_message_head_t, magic);
}

/**
 * The payload inside a record, VXLINK_PAYLOAD_STORAGE bytes of room.
 * @return the caller's record, from `payload64` on, as bytes
 * @par Threads  Any thread; no memory is touched.
 */
static inline uint8_t *vxlink_payload(vxlink_message_head_t *msg) {
    return (uint8_t *)msg + offsetof(vxlink_message_head_t, payload64);
}

#ifdef __cplusplus
}
#endif

#endif
