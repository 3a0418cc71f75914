/**
 * @file
 * The node's heartbeat frame: one per process, reached only by copying it out whole or changing it field by
 * field.
 *
 *     struct VPHeartbeatFrame frame;
 *     hbmgr_get_hb(&frame);
 *     print_hb(&frame);
 *
 * The frame starts with the environment light at 1, all stereo calibrations done and the overheat bit set,
 * lives as long as the process and is never reset.
 */
#ifndef HB_MGR_H
#define HB_MGR_H

#include "vision_service_route_vision_heartbeat.h"

#include <pthread.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Guards the frame; not recursive. A program that holds it may not call into this unit.
 */
extern VEXAMSG_API pthread_mutex_t hb_mutex;

/**
 * Copies out the whole frame.
 * @param frame  the caller's; receives all 56 bytes. Must not be NULL
 * @return 0
 * @par Threads  Any thread. Takes hb_mutex for the copy.
 */
VEXAMSG_API int hbmgr_get_hb(struct VPHeartbeatFrame *frame);

/**
 * Applies changes in the order of the array, all of them before anybody else sees the frame. An unknown field
 * is logged and skipped; a value is cut to its field's width, never refused.
 * @param pairs  read only; NULL changes nothing
 * @param len    number of pairs; below 1 changes nothing
 * @return 0
 * @par Threads  Any thread. Holds hb_mutex throughout, its log calls included: the log function must not come
 *               back here.
 */
VEXAMSG_API int hbmgr_set_hb(const HeartBeatPair *pairs, int len);

/**
 * Prints the flash state, the detection mode and the work mode of a frame to standard output, for debugging.
 * @param frame  read only; must not be NULL
 * @par Threads  Any thread; takes no lock.
 */
VEXAMSG_API void print_hb(struct VPHeartbeatFrame *frame);

/**
 * hbmgr_set_hb for pairs as they lie in a datagram: little-endian, VX_HB_PAIR_SIZE bytes each, at any
 * address. Used by the I/O thread; not exported.
 */
void hbmgr_set_hb_wire(const uint8_t *pairs, int len);

#ifdef __cplusplus
}
#endif

#endif
