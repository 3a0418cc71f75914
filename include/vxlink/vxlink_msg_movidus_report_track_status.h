/**
 * @file
 * The track status message. One tracked target: where it is in the picture, how far away, how sure.
 *
 *     vxlink_movidus_report_track_status_t status = {.id = 7};
 *     uint16_t bytes =
 *         vxlink_msg_movidus_report_track_status_encode(DEV_APP, DEV_MOVIDIUS_1, &frame, &status);
 */
#ifndef VXLINK_MSG_MOVIDUS_REPORT_TRACK_STATUS_H
#define VXLINK_MSG_MOVIDUS_REPORT_TRACK_STATUS_H

#include "protocol.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VXLINK_MSG_ID_MOVIDUS_REPORT_TRACK_STATUS 124    /**< `msgid` */
#define VXLINK_MSG_ID_MOVIDUS_REPORT_TRACK_STATUS_LEN 56 /**< [bytes] payload */
#define VXLINK_MSG_ID_MOVIDUS_REPORT_TRACK_STATUS_CRC 58 /**< its entry of vxlink_message_crcs */

/** The payload: type, name, elements, offset [bytes]. */
#define VXLINK_MOVIDUS_REPORT_TRACK_STATUS_FIELDS(VALUE, ARRAY)                                              \
    VALUE(uint64_t, timestamp, 0) /* [ns] the sender's */                                                    \
    VALUE(float, start_x, 8)      /* left edge */                                                            \
    VALUE(float, start_y, 12)     /* top edge */                                                             \
    VALUE(float, width, 16)                                                                                  \
    VALUE(float, height, 20)                                                                                 \
    VALUE(float, confidence, 24)                                                                             \
    VALUE(float, distance, 28)                                                                               \
    VALUE(uint32_t, status, 32)                                                                              \
    VALUE(uint32_t, type, 36)                                                                                \
    VALUE(uint32_t, resolution_width, 40)  /* [pixels] of the picture */                                     \
    VALUE(uint32_t, resolution_height, 44) /* [pixels] */                                                    \
    VALUE(uint32_t, id, 48)                                                                                  \
    VALUE(uint32_t, object_id, 52)

/** The message as a program sees it: a member for each field of the list, in host byte order. */
typedef struct {
    VXLINK_MOVIDUS_REPORT_TRACK_STATUS_FIELDS(VXLINK_MEMBER_VALUE, VXLINK_MEMBER_ARRAY)
} vxlink_movidus_report_track_status_t;
VXLINK_CHECK_LAYOUT(vxlink_movidus_report_track_status_t, VXLINK_MOVIDUS_REPORT_TRACK_STATUS_FIELDS,
                    VXLINK_MSG_ID_MOVIDUS_REPORT_TRACK_STATUS_LEN);

/**
 * Makes a finished frame of the fields, which follow `msg` as parameters in the order of the list; an array
 * is a pointer to all its elements, or NULL for zeros.
 *
 * @param dest_id    a MAV_COMPONENT
 * @param source_id  a MAV_COMPONENT
 * @param msg        caller's record; overwritten as a whole, so no array may lie in it
 * @return length of the frame image, 66 [bytes]; 0 for a NULL record
 * @par Threads  Any thread, each with a record of its own.
 */
static inline uint16_t vxlink_msg_movidus_report_track_status_pack(
    uint8_t dest_id, uint8_t source_id,
    vxlink_message_head_t *msg VXLINK_MOVIDUS_REPORT_TRACK_STATUS_FIELDS(VXLINK_PARAMETER_VALUE,
                                                                         VXLINK_PARAMETER_ARRAY)) {
    uint8_t *payload = vxlink_begin_message(msg, VXLINK_MSG_ID_MOVIDUS_REPORT_TRACK_STATUS);
    if (payload == NULL) {
        return 0;
    }
    VXLINK_MOVIDUS_REPORT_TRACK_STATUS_FIELDS(VXLINK_PUT_VALUE, VXLINK_PUT_ARRAY)
    return vxlink_finalize_message(msg, dest_id, source_id, VXLINK_MSG_ID_MOVIDUS_REPORT_TRACK_STATUS_LEN,
                                   VXLINK_MSG_ID_MOVIDUS_REPORT_TRACK_STATUS_CRC);
}

/**
 * Makes a finished frame of a record; otherwise as vxlink_msg_movidus_report_track_status_pack.
 * @param record  copied; 0 is returned and `msg` left alone when it is NULL
 */
static inline uint16_t
vxlink_msg_movidus_report_track_status_encode(uint8_t dest_id, uint8_t source_id, vxlink_message_head_t *msg,
                                              const vxlink_movidus_report_track_status_t *record) {
    if (record == NULL) {
        return 0;
    }
    return vxlink_msg_movidus_report_track_status_pack(
        dest_id, source_id,
        msg VXLINK_MOVIDUS_REPORT_TRACK_STATUS_FIELDS(VXLINK_ARGUMENT_VALUE, VXLINK_ARGUMENT_ARRAY));
}

#ifdef __cplusplus
}
#endif

#endif
