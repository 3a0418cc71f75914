/**
 * @file
 * The two queues between the application's threads and the I/O thread. The transmit queue is first in, first
 * out. The receive queue keeps the newest message per payload key: a newer one replaces it in place, and
 * reading takes nothing out, so an application may ask for the latest status of a type at any time.
 *
 *     io_pool_init(same_key);
 *     io_pool_tx_put(msg);
 *     int len = io_pool_rx_get(&key, payload, &payload_len, &head);
 *
 * A message is a vx_msg_head_t, its payload directly behind it. Each queue holds at most 1025 messages; one
 * more drops the oldest. A queue keeps a copy of its own of every message. Unless the library was built with
 * VEXAMSG_RECLAIM_QUEUE_COPIES the copies are kept for good, also when their message has left the queue.
 */
#ifndef IO_POOL_H
#define IO_POOL_H

#include "vx_msg_def.h"

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Whether two payloads carry the same key. The first argument is the newcomer's payload or the key searched
 * for, the second that of a queued message. At least two bytes may be read from either: a payload shorter
 * than that is shown with its missing key bytes 0. Called with the receive queue's lock held: must not call
 * back into this unit.
 */
typedef bool (*pool_msg_match)(const void *, const void *);

/**
 * Makes both queues ready. A second call says "duplicated", succeeds and changes nothing; after
 * io_pool_deinit it says so too, and leaves two empty, working queues.
 * @param msg_match  key comparison of the receive queue; must not be NULL
 * @return 0; -1 when a lock or a queue cannot be made (logged); what was made is used by the next attempt
 * @par Threads  Any thread.
 */
VEXAMSG_API int io_pool_init(pool_msg_match msg_match);

/**
 * Ends the use of both queues and empties them.
 * @par Threads  Any thread but one that is inside this unit. Waits for operations of other threads that are
 * under way; later ones are refused.
 */
VEXAMSG_API void io_pool_deinit(void);

/**
 * Puts a received message into the receive queue, in place of a queued one with the same key.
 * @param msg  copied; not NULL
 * @return 0, also when memory for the copy is lacking (logged); -1, with nothing queued, when the pool is not
 * ready, `src` is above 127, or the payload is longer than 8192 bytes
 * @par Threads  Any thread. Takes the receive queue's lock.
 */
VEXAMSG_API int io_pool_rx_put(const vx_msg_head_t *msg);

/**
 * Copies out the first queued message whose key matches. It stays in the queue.
 * @param msg_cmp   the key, handed to the match function as its first argument
 * @param buf       receives the payload; must hold the largest payload of that key (8192 bytes are always
 * enough)
 * @param len       receives the payload's length [bytes], 0 when there is none; its value on entry is not
 * used
 * @param head_out  receives the header; untouched when there is none
 * @return the payload's length [bytes]; 0 when nothing matches, the payload is empty or the pool is not ready
 * @par Threads  Any thread. Takes the receive queue's lock.
 */
VEXAMSG_API int io_pool_rx_get(const void *msg_cmp, char *buf, int *len, vx_msg_head_t *head_out);

/**
 * Appends a message to the transmit queue.
 * @param msg  copied; not NULL
 * @return 0, also when memory for the copy is lacking (logged); -1, with nothing queued, when the pool is not
 * ready or the payload is longer than 8192 bytes
 * @par Threads  Any thread. Takes the transmit queue's lock.
 */
VEXAMSG_API int io_pool_tx_put(const vx_msg_head_t *msg);

/**
 * Takes the oldest message out of the transmit queue.
 * @param buf  receives header and payload; must hold VX_MSG_BUFFER_SIZE bytes
 * @param len  receives the message's length with its header [bytes], 0 when there is none
 * @return the same length; 0 when the queue was found empty 128 times in a row
 * @par Threads  Any thread. Takes the transmit queue's lock; does not wait.
 */
VEXAMSG_API int io_pool_tx_get(char *buf, int *len);

/**
 * Appends a message and refuses every further one, as io_pool_tx_put does before the start, until the next
 * io_pool_init: so that nobody can push a node's farewell out of the queue. Not exported.
 */
void io_pool_tx_put_last(const vx_msg_head_t *msg);

/** Refuses a message as io_pool_tx_put does before the start. @return -1. Not exported. */
int io_pool_tx_refuse(const vx_msg_head_t *msg);

#ifdef __cplusplus
}
#endif

#endif
