/**
 * @file
 * The orbit status message. How an orbit around a target goes: the circle asked for and the one flown.
 *
 *     vxlink_movidus_report_orbit_status_t status = {.rotate = 1};
 *     uint16_t bytes =
 *         vxlink_msg_movidus_report_orbit_status_encode(DEV_APP, DEV_MOVIDIUS_1, &frame, &status);
 */
#ifndef VXLINK_MSG_MOVIDUS_REPORT_ORBIT_STATUS_H
#define VXLINK_MSG_MOVIDUS_REPORT_ORBIT_STATUS_H

#include "protocol.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_STATUS 125     /**< `msgid` */
#define VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_STATUS_LEN 48  /**< [bytes] payload */
#define VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_STATUS_CRC 135 /**< its entry of vxlink_message_crcs */

/** The payload: type, name, elements, offset [bytes]. */
#define VXLINK_MOVIDUS_REPORT_ORBIT_STATUS_FIELDS(VALUE, ARRAY)                                              \
    VALUE(uint64_t, timestamp, 0) /* [ns] the sender's */                                                    \
    VALUE(float, expect_radius, 8)                                                                           \
    VALUE(float, actual_radius, 12)                                                                          \
    VALUE(float, expect_height, 16)                                                                          \
    VALUE(float, actual_height, 20)                                                                          \
    VALUE(float, max_speed, 24)                                                                              \
    VALUE(uint32_t, rotate, 28)                                                                              \
    VALUE(uint32_t, status, 32)                                                                              \
    VALUE(float, set_speed, 36)                                                                              \
    VALUE(uint32_t, flag, 40)                                                                                \
    VALUE(uint32_t, reserve, 44)

/** The message as a program sees it: a member for each field of the list, in host byte order. */
typedef struct {
    VXLINK_MOVIDUS_REPORT_ORBIT_STATUS_FIELDS(VXLINK_MEMBER_VALUE, VXLINK_MEMBER_ARRAY)
} vxlink_movidus_report_orbit_status_t;
VXLINK_CHECK_LAYOUT(vxlink_movidus_report_orbit_status_t, VXLINK_MOVIDUS_REPORT_ORBIT_STATUS_FIELDS,
                    VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_STATUS_LEN);

/**
 * Makes a finished frame of the fields, which follow `msg` as parameters in the order of the list; an array
 * is a pointer to all its elements, or NULL for zeros.
 *
 * @param dest_id    a MAV_COMPONENT
 * @param source_id  a MAV_COMPONENT
 * @param msg        caller's record; overwritten as a whole, so no array may lie in it
 * @return length of the frame image, 58 [bytes]; 0 for a NULL record
 * @par Threads  Any thread, each with a record of its own.
 */
static inline uint16_t vxlink_msg_movidus_report_orbit_status_pack(
    uint8_t dest_id, uint8_t source_id,
    vxlink_message_head_t *msg VXLINK_MOVIDUS_REPORT_ORBIT_STATUS_FIELDS(VXLINK_PARAMETER_VALUE,
                                                                         VXLINK_PARAMETER_ARRAY)) {
    uint8_t *payload = vxlink_begin_message(msg, VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_STATUS);
    if (payload == NULL) {
        return 0;
    }
    VXLINK_MOVIDUS_REPORT_ORBIT_STATUS_FIELDS(VXLINK_PUT_VALUE, VXLINK_PUT_ARRAY)
    return vxlink_finalize_message(msg, dest_id, source_id, VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_STATUS_LEN,
                                   VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_STATUS_CRC);
}

/**
 * Makes a finished frame of a record; otherwise as vxlink_msg_movidus_report_orbit_status_pack.
 * @param record  copied; 0 is returned and `msg` left alone when it is NULL
 */
static inline uint16_t
vxlink_msg_movidus_report_orbit_status_encode(uint8_t dest_id, uint8_t source_id, vxlink_message_head_t *msg,
                                              const vxlink_movidus_report_orbit_status_t *record) {
    if (record == NULL) {
        return 0;
    }
    return vxlink_msg_movidus_report_orbit_status_pack(
        dest_id, source_id,
        msg VXLINK_MOVIDUS_REPORT_ORBIT_STATUS_FIELDS(VXLINK_ARGUMENT_VALUE, VXLINK_ARGUMENT_ARRAY));
}

#ifdef __cplusplus
}
#endif

#endif
