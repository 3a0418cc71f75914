/**
 * @file
 * The library's one event loop, and the reader that empties a datagram socket into a handler. The loop is
 * made on first use and never destroyed; it belongs to one thread, the one that calls ut_loop_run, and
 * everything that libev calls from it (handlers, timer callbacks) runs there. A callback may end that thread
 * with pthread_exit: another thread may then run the loop, with every watcher that is still started.
 *
 *     static socket_io_t sio = {.sockfd = fd, .proc_msg = handle}; // fd: bound, non-blocking
 *     ut_loop_init();
 *     sio.loop = ut_default_loop;
 *     ev_io_init(&sio.ev, on_read, sio.sockfd, EV_READ);
 *     ev_io_start(sio.loop, &sio.ev);
 *     ut_loop_run(); // handle() runs here, once per datagram
 */
#ifndef UT_EVT_H
#define UT_EVT_H

#include "vexamsg_export.h"

#include <ev.h>
#include <netinet/in.h>
#include <sys/socket.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct socket_io_t socket_io_t; /**< see the structure */

/**
 * A datagram socket that the loop reads. The caller owns it and keeps it in place while `ev` is started; the
 * library neither allocates nor frees one.
 */
struct socket_io_t {
    ev_io ev;             /**< read watcher; first, so that its address is the record's */
    struct ev_loop *loop; /**< loop on which `ev` is started; for the handler, on_read leaves it alone */
    int sockfd;           /**< socket to read; non-blocking, or on_read does not come back */
    int pipefd_wr;        /**< write end of a pipe, for the handler; on_read leaves it alone */
    struct sockaddr_in fromAddr; /**< sender of the datagram in hand; of an address of another family that is
                                      longer, the first 16 bytes */
    socklen_t addr_len;          /**< [bytes] length of the sender's address, as the system tells it */
    /**
     * Called once per datagram, on the loop's thread.
     * @param sio  the record the datagram came in by, with `fromAddr` filled
     * @param buf  the datagram, at an address divisible by 8; the handler may write to it, and may not keep
     * it: the next datagram overwrites it
     * @param len  [bytes] 0 to 8192; what was longer has been cut to that
     */
    void (*proc_msg)(socket_io_t *sio, void *buf, int len);
};

/**
 * The loop of the library. NULL until ut_loop_init has made it; never changed after that. Only the thread
 * that runs the loop may hand it to libev.
 */
extern VEXAMSG_API struct ev_loop *ut_default_loop;

/**
 * Makes ut_default_loop, unless it is there already. Also makes libev report its system errors, of every loop
 * in the process, as one line to syslog (facility daemon, named after the program) and to standard error,
 * after which libev tries again; the program's own openlog settings are lost with the first such line.
 *
 * @par Errors   When there is no memory or descriptor for a loop, ut_default_loop stays NULL and the next
 * call tries again.
 * @par Threads  One thread, before any other uses the loop. Does not block.
 */
VEXAMSG_API void ut_loop_init(void);

/**
 * Runs the loop on the calling thread until no watcher is left on it or ut_loop_break ends it. Without a loop
 * it returns at once.
 * @par Threads  One thread at a time. Blocks.
 */
VEXAMSG_API void ut_loop_run(void);

/**
 * Makes ut_loop_run return after the callbacks of this turn. Does nothing unless ut_loop_run was entered
 * since the last call.
 * @par Threads  The thread that runs the loop, from a callback: another thread's call would not wake it.
 */
VEXAMSG_API void ut_loop_break(void);

/**
 * Read callback of a socket_io_t, for ev_io_init. Receives until the socket is empty and hands each datagram,
 * also one of length 0, to `proc_msg`. It also returns when the handler stops the watcher; a watcher that was
 * not started in the first place is read until the socket is empty.
 *
 * @param loop     not used
 * @param watcher  `ev` of a socket_io_t; not checked, and neither is that its `proc_msg` is set
 * @param events   not used
 * @par Errors   An interrupted receive is repeated. Another failure is logged and ends this call; the watcher
 *               stays started.
 * @par Threads  The thread that runs the loop. Takes 8 KiB of its stack.
 */
VEXAMSG_API void on_read(struct ev_loop *loop, ev_io *watcher, int events);

#ifdef __cplusplus
}
#endif

#endif
