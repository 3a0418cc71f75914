/**
 * @file
 * Messages around the node table: the UNREGISTER with which a node leaves, and sending a node's record to
 * another.
 *
 *     uint8_t room[16 + 58];
 *     buid_unregist_msg((vx_msg_head_t *)room);
 */
#ifndef NODE_MGR_MSG_HELPER_H
#define NODE_MGR_MSG_HELPER_H

#include "utils/ut_sock.h"
#include "vx_msg_def.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Part of the interface; the library neither reads nor writes it. */
extern VEXAMSG_API ut_addr_t g_regster_addr;

/**
 * Builds the UNREGISTER of this node: header in host byte order, payload as it goes on the wire.
 * @param msg  room for 16 + 58 bytes, aligned as a vx_msg_head_t. Must not be NULL
 * @par Threads  Any thread. Takes the lock of the own slot of the node table.
 */
VEXAMSG_API void buid_unregist_msg(vx_msg_head_t *msg);

/**
 * Sends the record of one node to another.
 * @param fd           UDP socket to send from; above 0
 * @param src_node_id  whose record, 0 to 127; also the message's `src`
 * @param dst_node_id  who gets it, 0 to 127
 * @param msg_type     the message's kind, its low 8 bits
 * @return 0, whatever the network did with it; -1 (logged) when the table has no such record or the
 * destination is not active
 * @par Threads  Any thread. May wait while the socket's send buffer is full.
 */
VEXAMSG_API int send_node_info(int fd, uint16_t src_node_id, uint16_t dst_node_id, int msg_type);

/** Reserved; does nothing. @return 0 */
VEXAMSG_API int send_node_info_req(uint16_t dest_node);

/** Reserved; does nothing. @return 0 */
VEXAMSG_API int send_heart_beat(uint16_t dest_node);

#ifdef __cplusplus
}
#endif

#endif
