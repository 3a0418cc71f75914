/**
 * @file
 * The I/O thread: one per process, it receives every datagram for the node, hands it to where it belongs, and
 * sends what other threads have put into the transmit queue. Other threads wake it with a byte in a pipe.
 * Beside it runs the registration worker, which sends REGISTER to the node manager every second until
 * accepted, then every 10 s.
 *
 * vision_msg_component_init and _deinit do all of this; the entry points are exported for tools and tests.
 */
#ifndef THREAD_IO_H
#define THREAD_IO_H

#include "io_pool.h"
#include "utils/ut_evt.h"
#include "vision_service_route_funcs.h"
#include "vx_msg_def.h"

#include <ev.h>

#ifdef __cplusplus
extern "C" {
#endif

/** What the I/O thread works on. Filled before the thread starts, which then owns it; one per process. */
typedef struct {
    ev_io ev;             /**< read watcher on pipefd[0]; first, so that its address is the record's */
    struct ev_loop *loop; /**< the loop that the thread runs */
    char name[16];        /**< the node's name, NUL-terminated */
    char ip[16];          /**< the node's IPv4 address as dotted-quad text, NUL-terminated */
    uint16_t node_id;     /**< the node's id; the socket is bound to port VX_NODE_PORT_BASE + node_id */
    pool_msg_match match; /**< key comparison of the receive queue */
    int pipefd[2];        /**< wake-up pipe, non-blocking; [0] is read here, senders write [1] */
    int thio2aumsg[2];    /**< second pipe; [1] is carried by the datagram reader */
    msg_call_back msg_cb; /**< the application's callback, or NULL */
} thr_in_data_t;

/**
 * Body of the I/O thread. Ends by pthread_exit after the node has unregistered, or returns NULL when there is
 * no event loop.
 * @param data  a thr_in_data_t; must live until the thread has been joined
 * @par Threads  Runs on a thread of its own, one at a time.
 */
VEXAMSG_API void *msg_io_thread(void *data);

/**
 * Handles one datagram: checks it and passes it to the receive queue, the callback, the node table or the
 * heartbeat frame. What is not well formed is dropped with a log line.
 * @param sio     the reader that received it; may be NULL
 * @param msg_in  the bytes that arrived, aligned as a vx_msg_head_t; changed in place
 * @param len     how many arrived [bytes]; nothing beyond is read
 * @par Threads  The I/O thread. Calls the application's callback.
 */
VEXAMSG_API void thrio_proc_message(socket_io_t *sio, void *msg_in, int len);

/**
 * Whether a message's sender and destination are acceptable here. The proxy accepts every message; others
 * want both ids below 128, or a broadcast.
 * @return 0 to accept, -1 to drop (logged)
 * @par Threads  Any thread.
 */
VEXAMSG_API int node_check(const vx_msg_head_t *msg);

/* Within the library only. */

/** The magic test: 0 if it is a message of this bus, else -1 (logged). */
int msg_check(const vx_msg_head_t *msg);

/** Sends everything in the transmit queue; the loop's callback for the wake-up pipe's read end. */
void on_write(struct ev_loop *loop, ev_io *watcher, int events);

/**
 * Sends a message to every active node from 1 up to, not including, its `src`. Its `dst` is left at the last
 * target. Its payload of `data_length` bytes follows it.
 */
void thrio_send_brocast(vx_msg_head_t *msg);

/** Body of the registration worker; `data` is the thr_in_data_t. */
void *send_register_req(void *data);

#ifdef __cplusplus
}
#endif

#endif
