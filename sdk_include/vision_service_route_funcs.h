/**
 * @file
 * How a process joins the bus and talks on it. One call starts the node: it registers with the node manager,
 * learns where the other nodes are, and receives. From then on any thread may send; what arrives is handed to
 * a callback or kept, newest per type, to be polled.
 *
 *     static void on_message(void *payload, MsgExtra *extra) { ... }
 *
 *     vision_msg_component_init(NODE_SOA, "soa", "192.168.1.2", on_message);
 *     vision_send_msg(NODE_VIO, "hello", 5);
 *     vision_msg_component_deinit();
 *
 * A message is at most 8192 bytes. It goes to its destination if that node is active, and to the proxy for
 * every destination from 127 up. Delivery is UDP's: a message may be lost, nothing is repeated. Of a message
 * longer than 8176 bytes the receiver gets the first 8176.
 *
 * Every function answers with its refusal before vision_msg_component_init and after
 * vision_msg_component_deinit.
 */
#ifndef VISION_SERVICE_ROUTE_FUNCS_H
#define VISION_SERVICE_ROUTE_FUNCS_H

#include "vision_service_route_types.h"
#include "vision_service_route_vision_heartbeat.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** What a receiver learns about one message. */
typedef struct MsgExtra {
    NodeID src;        /**< sender's id, as the message says */
    NodeID dst;        /**< destination's id, as the message says; in a broadcast each receiver's own */
    int64_t recv_time; /**< time of arrival within the wall clock's second [ns], 0 to 999 999 000 */
    int len; /**< [bytes] callback: the whole datagram, 16 header bytes included; polling: the payload */
} MsgExtra;
VX_STATIC_ASSERT(offsetof(MsgExtra, dst) == 4 && offsetof(MsgExtra, recv_time) == 8 &&
                     offsetof(MsgExtra, len) == 16,
                 "binary interface of the callback");

/**
 * Receives messages on the I/O thread. While it runs nothing is received and nothing queued is sent, so it
 * should return soon. It may call every function of this header except vision_msg_component_deinit, which
 * refuses there. The payload lies at an address that is a multiple of 8; it and the MsgExtra are valid only
 * during the call.
 */
typedef void (*msg_call_back)(void *payload, MsgExtra *extra);

/**
 * 0 asks for one dump of the node table to the log, which comes within the next 120 s; the library then sets
 * it to 1. While the node runs, write it with an atomic store (`__atomic_store_n(&gn_dbg_route, 0,
 * __ATOMIC_RELAXED)`).
 */
extern VEXAMSG_API int gn_dbg_route;

/**
 * Starts the node: queues, node table, log, two pipes, the I/O thread (bound to UDP port 9000 + id on every
 * interface), the registration worker and the debug thread. It does not wait for the node manager: until that
 * has accepted the node and sent the table, sends to other nodes are refused; after a restart in the same
 * process the table still knows the other nodes. Programs that the process runs do not inherit the node's
 * sockets and pipes. A forked child has no node, however busy its parent's was, and may start one of its own,
 * under another id; a child that was forked in the callback ends when that callback returns.
 *
 * @param id    the node's id, 1 to 127. Ids above that have no place in the node table
 * @param name  for the table and the log; the first 15 characters are kept. Must not be NULL
 * @param ip    IPv4 address at which the others reach this node, as dotted-quad text; the first 15 characters
 * are kept. Must not be NULL; not checked otherwise
 * @param cb    receives callback messages; NULL drops them
 * @return 0; -1 or a sub-step's negative result on failure (logged). What was done before the failure stays;
 * when the threads could not be started the node counts as started and vision_msg_component_deinit cleans up
 * @par Threads  Any thread but the callback's, which is told that it can't be done twice. Does not wait for
 * the network. After a vision_msg_component_deinit it may be called again;
 * what that had to leave behind is waited for, less than a second, and a start before its end fails (logged).
 */
VEXAMSG_API int vision_msg_component_init(NodeID id, const char *name, const char *ip, msg_call_back cb);

/**
 * Leaves the bus and stops everything that init started: tells the node manager, ends and joins all threads,
 * closes pipes and sockets. Takes about 30 ms, and as long as the callback needs for what has arrived already
 * (at most 300 messages), but no more than a second. If a callback has not returned by then it is left to end
 * by itself, with an ERROR line: it is the last one, sends in it are refused, and what it uses must live
 * until it returns. Sends that wait for a network without room are ended. Does nothing when the node is not
 * started, but finish such a stop as far as it can; called from the callback it logs an error and does
 * nothing, because it would wait for itself.
 * @par Threads  Any thread but the callback's. Others may be inside any function of this header.
 */
VEXAMSG_API void vision_msg_component_deinit(void);

/**
 * Queues a message of any kind; the I/O thread sends it.
 * @param dst_node     destination's id; 0xFF00 needs an active proxy here, see vision_brocast_msg
 * @param level1_type  kind, its low 8 bits: 0 to be polled by the receiver, 1 for its callback, 4 heartbeat
 * operation (HeartBeatPair array). 2 is the node manager's: it ends this node's session
 * @param msg          payload, copied; may be NULL when `msg_len` is 0
 * @param msg_len      [bytes] 0 to 8192
 * @return 0 when queued. -1 (logged) when the next hop is inactive, the length is out of range, the node is
 * not started or leaving, or the I/O thread cannot be woken; in the last case the message stays queued
 * @par Threads  Any thread. Does not block.
 */
VEXAMSG_API int vxmsg_send_general(uint16_t dst_node, int level1_type, const void *msg, int msg_len);

/**
 * Sends a message to a node's callback at once, from the calling thread: one system call, no queue, no thread
 * switch.
 * @param id   destination's id
 * @param msg  payload, read only; may be NULL when `len` is 0
 * @param len  [bytes] 0 to 8192
 * @return 0, whatever the network did with it. -1 (logged) when the next hop is inactive, the length is out
 * of range, or the node is not started
 * @par Threads  Any thread. May wait while the socket's send buffer is full.
 */
VEXAMSG_API int vision_send_msg(NodeID id, const void *msg, int len);

/**
 * Sends a status at once; the receiver keeps the newest of each type for vision_recv_status. Otherwise like
 * vision_send_msg.
 * @param msg  payload; begins with the MsgType as a little-endian uint16_t
 */
VEXAMSG_API int vision_send_status(NodeID id, const void *msg, int len);

/**
 * Queues a status for every active node whose id is below this node's own. Nodes above it are not reached;
 * what the proxy broadcasts reaches all.
 * @param msg  payload, copied; begins with the MsgType as a little-endian uint16_t
 * @param len  [bytes] 0 to 8192
 * @return 0 when queued; -1 (logged) when the length is out of range, the node is not started or leaving, or
 * the I/O thread cannot be woken
 * @par Threads  Any thread. Does not block.
 */
VEXAMSG_API int vision_broadcast_status(const void *msg, int len);

/** The same for a message to the callbacks. */
VEXAMSG_API int vision_brocast_msg(const void *msg, int len);

/**
 * Copies out the newest status message of one type. The message stays queued, so every call returns it again
 * until a newer one of that type arrives.
 * @param type     compared by its low 16 bits with the first two payload bytes
 * @param msg      caller's buffer; must hold 8192 bytes, the largest payload. Must not be NULL
 * @param buf_len  not used; kept for the interface
 * @param extra    caller's; receives sender, destination, time of arrival and length. Its `len` is set to 0
 * when there is no message, the rest is then untouched
 * @return payload length [bytes]; 0 when none has arrived or the node is not started; -1 when `extra` or
 * `msg` is NULL
 * @par Threads  Any thread. Takes the receive queue's lock; never waits for the network.
 */
VEXAMSG_API int vision_recv_status(MsgType type, void *msg, int buf_len, MsgExtra *extra);

/** Does nothing; kept for the interface. */
VEXAMSG_API void vision_send_heartbeat(void);

/**
 * Copies out the node's heartbeat frame. Works at any time.
 * @param frame  caller's; receives all 56 bytes. Must not be NULL
 * @return 0
 * @par Threads  Any thread. Takes the frame's lock for the copy.
 */
VEXAMSG_API int vision_get_hearbeat(struct VPHeartbeatFrame *frame);

/**
 * Changes fields of the own heartbeat frame and sends the changes at once to the proxy, which hands them on
 * to every active node. They are sent whether the proxy is known to be active or not.
 * @param pairs  read only; may be NULL when `len` is 0
 * @param len    number of pairs, 0 to 1024. The receiver applies the first 1022 of them
 * @return 0, whatever the network did; -1 (logged), with nothing applied, when `len` is out of range or the
 * node is not started
 * @par Threads  Any thread. Takes the frame's lock. May wait while the socket's send buffer is full.
 */
VEXAMSG_API int vision_set_hearbeat(const HeartBeatPair *pairs, int len);

#ifdef __cplusplus
}
#endif

#endif
