/**
 * @file
 * The command message. An order, or the answer to one: a number and 31 bytes whose meaning is the order's
 * own. Reports acknowledge with it, the camera is commanded with it.
 *
 *     vxlink_movidus_command_t command = {.command = 7};
 *     uint16_t bytes = vxlink_msg_movidus_command_encode(DEV_CAMERA, DEV_MOVIDIUS_1, &frame, &command);
 */
#ifndef VXLINK_MSG_MOVIDUS_COMMAND_H
#define VXLINK_MSG_MOVIDUS_COMMAND_H

#include "protocol.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VXLINK_MSG_ID_MOVIDUS_COMMAND 117    /**< `msgid` */
#define VXLINK_MSG_ID_MOVIDUS_COMMAND_LEN 32 /**< [bytes] payload */
#define VXLINK_MSG_ID_MOVIDUS_COMMAND_CRC 23 /**< its entry of vxlink_message_crcs */

/** The payload: type, name, elements, offset [bytes]. */
#define VXLINK_MOVIDUS_COMMAND_FIELDS(VALUE, ARRAY)                                                          \
    VALUE(uint8_t, command, 0)  /* which order */                                                            \
    ARRAY(uint8_t, data, 31, 1) /* what belongs to it; unused bytes are 0 */

/** The message as a program sees it: a member for each field of the list, in host byte order. */
typedef struct {
    VXLINK_MOVIDUS_COMMAND_FIELDS(VXLINK_MEMBER_VALUE, VXLINK_MEMBER_ARRAY)
} vxlink_movidus_command_t;
VXLINK_CHECK_LAYOUT(vxlink_movidus_command_t, VXLINK_MOVIDUS_COMMAND_FIELDS,
                    VXLINK_MSG_ID_MOVIDUS_COMMAND_LEN);

/**
 * Makes a finished frame of the fields, which follow `msg` as parameters in the order of the list; an array
 * is a pointer to all its elements, or NULL for zeros.
 *
 * @param dest_id    a MAV_COMPONENT
 * @param source_id  a MAV_COMPONENT
 * @param msg        caller's record; overwritten as a whole, so no array may lie in it
 * @return length of the frame image, 42 [bytes]; 0 for a NULL record
 * @par Threads  Any thread, each with a record of its own.
 */
static inline uint16_t vxlink_msg_movidus_command_pack(
    uint8_t dest_id, uint8_t source_id,
    vxlink_message_head_t *msg VXLINK_MOVIDUS_COMMAND_FIELDS(VXLINK_PARAMETER_VALUE,
                                                             VXLINK_PARAMETER_ARRAY)) {
    uint8_t *payload = vxlink_begin_message(msg, VXLINK_MSG_ID_MOVIDUS_COMMAND);
    if (payload == NULL) {
        return 0;
    }
    VXLINK_MOVIDUS_COMMAND_FIELDS(VXLINK_PUT_VALUE, VXLINK_PUT_ARRAY)
    return vxlink_finalize_message(msg, dest_id, source_id, VXLINK_MSG_ID_MOVIDUS_COMMAND_LEN,
                                   VXLINK_MSG_ID_MOVIDUS_COMMAND_CRC);
}

/**
 * Makes a finished frame of a record; otherwise as vxlink_msg_movidus_command_pack.
 * @param record  copied; 0 is returned and `msg` left alone when it is NULL
 */
static inline uint16_t vxlink_msg_movidus_command_encode(uint8_t dest_id, uint8_t source_id,
                                                         vxlink_message_head_t *msg,
                                                         const vxlink_movidus_command_t *record) {
    if (record == NULL) {
        return 0;
    }
    return vxlink_msg_movidus_command_pack(
        dest_id, source_id, msg VXLINK_MOVIDUS_COMMAND_FIELDS(VXLINK_ARGUMENT_VALUE, VXLINK_ARGUMENT_ARRAY));
}

#ifdef __cplusplus
}
#endif

#endif
