/**
 * @file
 * The orbit area message. The target of an orbit, as a rectangle in the picture.
 *
 *     vxlink_movidus_report_orbit_area_t area = {.status = 1};
 *     uint16_t bytes = vxlink_msg_movidus_report_orbit_area_encode(DEV_APP, DEV_MOVIDIUS_1, &frame, &area);
 */
#ifndef VXLINK_MSG_MOVIDUS_REPORT_ORBIT_AREA_H
#define VXLINK_MSG_MOVIDUS_REPORT_ORBIT_AREA_H

#include "protocol.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_AREA 126     /**< `msgid` */
#define VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_AREA_LEN 36  /**< [bytes] payload */
#define VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_AREA_CRC 177 /**< its entry of vxlink_message_crcs */

/** The payload: type, name, elements, offset [bytes]. */
#define VXLINK_MOVIDUS_REPORT_ORBIT_AREA_FIELDS(VALUE, ARRAY)                                                \
    VALUE(uint64_t, timestamp, 0) /* [ns] the sender's */                                                    \
    VALUE(float, start_x, 8)      /* left edge */                                                            \
    VALUE(float, start_y, 12)     /* top edge */                                                             \
    VALUE(float, width, 16)                                                                                  \
    VALUE(float, height, 20)                                                                                 \
    VALUE(uint32_t, resolution_width, 24)  /* [pixels] of the picture */                                     \
    VALUE(uint32_t, resolution_height, 28) /* [pixels] */                                                    \
    VALUE(uint32_t, status, 32)

/** The message as a program sees it: a member for each field of the list, in host byte order. */
typedef struct {
    VXLINK_MOVIDUS_REPORT_ORBIT_AREA_FIELDS(VXLINK_MEMBER_VALUE, VXLINK_MEMBER_ARRAY)
} vxlink_movidus_report_orbit_area_t;
VXLINK_CHECK_LAYOUT(vxlink_movidus_report_orbit_area_t, VXLINK_MOVIDUS_REPORT_ORBIT_AREA_FIELDS,
                    VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_AREA_LEN);

/**
 * Makes a finished frame of the fields, which follow `msg` as parameters in the order of the list; an array
 * is a pointer to all its elements, or NULL for zeros.
 *
 * @param dest_id    a MAV_COMPONENT
 * @param source_id  a MAV_COMPONENT
 * @param msg        caller's record; overwritten as a whole, so no array may lie in it
 * @return length of the frame image, 46 [bytes]; 0 for a NULL record
 * @par Threads  Any thread, each with a record of its own.
 */
static inline uint16_t vxlink_msg_movidus_report_orbit_area_pack(
    uint8_t dest_id, uint8_t source_id,
    vxlink_message_head_t *msg VXLINK_MOVIDUS_REPORT_ORBIT_AREA_FIELDS(VXLINK_PARAMETER_VALUE,
                                                                       VXLINK_PARAMETER_ARRAY)) {
    uint8_t *payload = vxlink_begin_message(msg, VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_AREA);
    if (payload == NULL) {
        return 0;
    }
    VXLINK_MOVIDUS_REPORT_ORBIT_AREA_FIELDS(VXLINK_PUT_VALUE, VXLINK_PUT_ARRAY)
    return vxlink_finalize_message(msg, dest_id, source_id, VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_AREA_LEN,
                                   VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_AREA_CRC);
}

/**
 * Makes a finished frame of a record; otherwise as vxlink_msg_movidus_report_orbit_area_pack.
 * @param record  copied; 0 is returned and `msg` left alone when it is NULL
 */
static inline uint16_t
vxlink_msg_movidus_report_orbit_area_encode(uint8_t dest_id, uint8_t source_id, vxlink_message_head_t *msg,
                                            const vxlink_movidus_report_orbit_area_t *record) {
    if (record == NULL) {
        return 0;
    }
    return vxlink_msg_movidus_report_orbit_area_pack(
        dest_id, source_id,
        msg VXLINK_MOVIDUS_REPORT_ORBIT_AREA_FIELDS(VXLINK_ARGUMENT_VALUE, VXLINK_ARGUMENT_ARRAY));
}

#ifdef __cplusplus
}
#endif

#endif
