/**
 * @file
 * The goal area message. The targets seen in a picture, up to eight at once. All eight slots travel, whatever
 * `number` says.
 *
 *     vxlink_movidus_report_goal_area_t area = {.number = 1};
 *     uint16_t bytes = vxlink_msg_movidus_report_goal_area_encode(DEV_APP, DEV_MOVIDIUS_1, &frame, &area);
 */
#ifndef VXLINK_MSG_MOVIDUS_REPORT_GOAL_AREA_H
#define VXLINK_MSG_MOVIDUS_REPORT_GOAL_AREA_H

#include "protocol.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VXLINK_MSG_ID_MOVIDUS_REPORT_GOAL_AREA 123     /**< `msgid` */
#define VXLINK_MSG_ID_MOVIDUS_REPORT_GOAL_AREA_LEN 416 /**< [bytes] payload */
#define VXLINK_MSG_ID_MOVIDUS_REPORT_GOAL_AREA_CRC 61  /**< its entry of vxlink_message_crcs */

/** The payload: type, name, elements, offset [bytes]. */
#define VXLINK_MOVIDUS_REPORT_GOAL_AREA_FIELDS(VALUE, ARRAY)                                                 \
    VALUE(uint64_t, timestamp, 0) /* [ns] the sender's */                                                    \
    VALUE(uint32_t, number, 8)    /* slots in use */                                                         \
    VALUE(uint32_t, total, 12)    /* targets in all */                                                       \
    ARRAY(float, start_x, 8, 16)  /* left edges */                                                           \
    ARRAY(float, start_y, 8, 48)  /* top edges */                                                            \
    ARRAY(float, width, 8, 80)                                                                               \
    ARRAY(float, height, 8, 112)                                                                             \
    ARRAY(float, distance, 8, 144)                                                                           \
    ARRAY(uint32_t, status, 8, 176)                                                                          \
    ARRAY(float, confidence, 8, 208)                                                                         \
    ARRAY(uint32_t, type, 8, 240)                                                                            \
    VALUE(uint32_t, id, 272)                                                                                 \
    VALUE(uint32_t, resolution_width, 276)  /* [pixels] of the picture */                                    \
    VALUE(uint32_t, resolution_height, 280) /* [pixels] */                                                   \
    VALUE(uint32_t, object_id, 284)                                                                          \
    ARRAY(uint8_t, info, 128, 288) /* free bytes */

/** The message as a program sees it: a member for each field of the list, in host byte order. */
typedef struct {
    VXLINK_MOVIDUS_REPORT_GOAL_AREA_FIELDS(VXLINK_MEMBER_VALUE, VXLINK_MEMBER_ARRAY)
} vxlink_movidus_report_goal_area_t;
VXLINK_CHECK_LAYOUT(vxlink_movidus_report_goal_area_t, VXLINK_MOVIDUS_REPORT_GOAL_AREA_FIELDS,
                    VXLINK_MSG_ID_MOVIDUS_REPORT_GOAL_AREA_LEN);

/**
 * Makes a finished frame of the fields, which follow `msg` as parameters in the order of the list; an array
 * is a pointer to all its elements, or NULL for zeros.
 *
 * @param dest_id    a MAV_COMPONENT
 * @param source_id  a MAV_COMPONENT
 * @param msg        caller's record; overwritten as a whole, so no array may lie in it
 * @return length of the frame image, 426 [bytes]; 0 for a NULL record
 * @par Threads  Any thread, each with a record of its own.
 */
static inline uint16_t vxlink_msg_movidus_report_goal_area_pack(
    uint8_t dest_id, uint8_t source_id,
    vxlink_message_head_t *msg VXLINK_MOVIDUS_REPORT_GOAL_AREA_FIELDS(VXLINK_PARAMETER_VALUE,
                                                                      VXLINK_PARAMETER_ARRAY)) {
    uint8_t *payload = vxlink_begin_message(msg, VXLINK_MSG_ID_MOVIDUS_REPORT_GOAL_AREA);
    if (payload == NULL) {
        return 0;
    }
    VXLINK_MOVIDUS_REPORT_GOAL_AREA_FIELDS(VXLINK_PUT_VALUE, VXLINK_PUT_ARRAY)
    return vxlink_finalize_message(msg, dest_id, source_id, VXLINK_MSG_ID_MOVIDUS_REPORT_GOAL_AREA_LEN,
                                   VXLINK_MSG_ID_MOVIDUS_REPORT_GOAL_AREA_CRC);
}

/**
 * Makes a finished frame of a record; otherwise as vxlink_msg_movidus_report_goal_area_pack.
 * @param record  copied; 0 is returned and `msg` left alone when it is NULL
 */
static inline uint16_t
vxlink_msg_movidus_report_goal_area_encode(uint8_t dest_id, uint8_t source_id, vxlink_message_head_t *msg,
                                           const vxlink_movidus_report_goal_area_t *record) {
    if (record == NULL) {
        return 0;
    }
    return vxlink_msg_movidus_report_goal_area_pack(
        dest_id, source_id,
        msg VXLINK_MOVIDUS_REPORT_GOAL_AREA_FIELDS(VXLINK_ARGUMENT_VALUE, VXLINK_ARGUMENT_ARRAY));
}

#ifdef __cplusplus
}
#endif

#endif
