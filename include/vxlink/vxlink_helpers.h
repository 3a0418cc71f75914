/**
 * @file
 * The step that turns a record with a payload into a finished frame: header, sequence number, checksum, CRC.
 * Frames are numbered per channel and destination; the counters are the one state of the link.
 *
 *     frame.msgid = VXLINK_MSG_ID_MOVIDUS_COMMAND; // the payload is in place
 *     uint16_t bytes = vxlink_finalize_message(&frame, DEV_APP, DEV_MOVIDIUS_1, len, crc_extra);
 */
#ifndef VXLINK_HELPERS_H
#define VXLINK_HELPERS_H

#include "checksum.h"
#include "utils/ut_le.h"
#include "vxlink_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * The statistics of a channel, zero at load.
 *
 * Weak and hidden: there is one copy per program or shared library, whatever number of
 * sources, C or C++, include this. A static function would number each source's frames on its own. The price
 * is that it is never inlined.
 *
 * @param chan  0 to VXLINK_CHANNEL_COUNT - 1; the vxlink_channel_t names are the first four
 * @return the program's own record, valid to its end; NULL for a higher channel
 * @par Threads  Any thread. Whoever reads or writes `current_tx_seq` while frames are made does so
 * atomically.
 */
__attribute__((weak, visibility("hidden"))) vxlink_status_t *vxlink_get_channel_status(uint8_t chan);

/* NOLINTNEXTLINE(misc-definitions-in-headers): weak, so one copy is left of them all */
__attribute__((weak, visibility("hidden"))) vxlink_status_t *vxlink_get_channel_status(uint8_t chan) {
    static vxlink_status_t channels[VXLINK_CHANNEL_COUNT];
    return chan < VXLINK_CHANNEL_COUNT ? &channels[chan] : NULL;
}

/**
 * The next sequence number to a destination; counts it as used.
 * @param status  a channel's record; must not be NULL
 * @return 0 to 255, then 0 again
 * @par Threads  Any thread: two callers never get the same number within 256 frames.
 */
static inline uint8_t vxlink_take_seq(vxlink_status_t *status, uint8_t dest_id) {
    return __atomic_fetch_add(&status->current_tx_seq[dest_id], (uint8_t)1, __ATOMIC_RELAXED);
}

/**
 * Finishes a frame whose payload and `msgid` are in place: fills the header, numbers the frame, writes
 * checksum and CRC.
 *
 * @param msg        caller's record
 * @param dest_id    a MAV_COMPONENT
 * @param source_id  a MAV_COMPONENT
 * @param chan       channel on which the frame is numbered
 * @param length     payload length [bytes], at most VXLINK_MAX_PAYLOAD_LEN
 * @param crc_extra  folded into the CRC last; the message's entry of vxlink_message_crcs, which is not
 * checked
 * @return length of the frame image [bytes], `length` + 10; 0, with record and counter untouched, for a NULL
 * record, a channel that does not exist or a payload that leaves no room for the CRC
 * @par Threads  Any thread, each with a record of its own. Does not block.
 */
static inline uint16_t vxlink_finalize_message_chan(vxlink_message_head_t *msg, uint8_t dest_id,
                                                    uint8_t source_id, uint8_t chan, uint16_t length,
                                                    uint8_t crc_extra) {
    vxlink_status_t *status = vxlink_get_channel_status(chan);
    if (msg == NULL || status == NULL || length > VXLINK_MAX_PAYLOAD_LEN) {
        return 0;
    }
    msg->len = length;
    msg->magic = VXLINK_STX;
    msg->len_lo = (uint8_t)(length & 0xFF);
    msg->len_hi = (uint8_t)(length >> 8);
    msg->seq = vxlink_take_seq(status, dest_id);
    msg->destid = dest_id;
    msg->sourceid = source_id;
    msg->checksum = (uint8_t)(msg->magic + msg->len_lo + msg->len_hi + msg->seq + msg->destid +
                              msg->sourceid + msg->msgid);
    // Everything behind `magic` up to the payload's end lies in one piece.
    const uint16_t covered = (uint16_t)(VXLINK_FRAME_HEAD_LEN - 1 + length);
    uint16_t crc = crc_calculate(vxlink_frame_image(msg) + 1, covered);
    crc_accumulate(crc_extra, &crc);
    ut_put_le16(vxlink_payload(msg) + length, crc);
    msg->crc = crc;
    return (uint16_t)(VXLINK_FRAME_HEAD_LEN + length + VXLINK_CRC_LEN);
}

/** vxlink_finalize_message_chan on channel VXLINK_COMM_0. */
static inline uint16_t vxlink_finalize_message(vxlink_message_head_t *msg, uint8_t dest_id, uint8_t source_id,
                                               uint16_t length, uint8_t crc_extra) {
    return vxlink_finalize_message_chan(msg, dest_id, source_id, (uint8_t)VXLINK_COMM_0, length, crc_extra);
}

#ifdef __cplusplus
}
#endif

#endif
