/**
 * @file
 * The node table: where each of the 128 nodes can be reached (name, IPv4 address, UDP port) and whether it is
 * active. One slot per node id, each with a lock of its own, so that the I/O thread, which writes what the
 * node manager sends, and the senders, which look up every destination, meet only on the slot they both
 * touch.
 *
 *     vexa_node_t node;
 *     if (nmapping_get(nmapping_get_next_hop(dst), &node) == 0 && node.stat == NODE_STAT_ACTIVED) { ... }
 *
 * The table works between nmapping_create and nmapping_destroy, which vision_msg_component_init and _deinit
 * call; outside of that every operation refuses. An id of 128 or more is refused too.
 */
#ifndef NODE_MAPPING_H
#define NODE_MAPPING_H

#include "vx_msg_def.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Sets this process's own node id.
 * @par Threads  Any thread; no lock. Meant to be called once, before the node starts.
 */
VEXAMSG_API void nmapping_set_self(uint16_t node_id);

/**
 * This process's own node id.
 * @return the id given to nmapping_set_self, 0 before that
 * @par Threads  Any thread; no lock.
 */
VEXAMSG_API uint16_t nmapping_self_node_id(void);

/**
 * Number of slots.
 * @return 128, at any time
 * @par Threads  Any thread.
 */
VEXAMSG_API int nmapping_get_size(void);

/**
 * Makes the table usable and presets slot 0 with the node manager: "mgr_server", 192.168.1.1, port 9000,
 * inactive. The first call, and the first after nmapping_destroy, also gives slots 1 to 127 their ids; their
 * other content is left as it is.
 * @return 0; -1 when a slot's lock cannot be made, slot 0 is then not preset and a later call starts anew
 * @par Threads  Any thread.
 */
VEXAMSG_API int nmapping_create(void);

/**
 * Ends the use of the table. The records stay and are there again after the next nmapping_create, but for
 * slot 0.
 * @par Threads  Any thread. Waits for operations of other threads that are under way; later ones are refused.
 */
VEXAMSG_API void nmapping_destroy(void);

/**
 * Stores a node's record, whole.
 * @param node_id  slot, 0 to 127; the record's own node_id is not compared with it
 * @param node     copied
 * @return 0; -1 for an id of 128 or more, a NULL record, or a table that is not in use
 * @par Threads  Any thread. Takes the slot's lock.
 */
VEXAMSG_API int nmapping_add(uint16_t node_id, const vexa_node_t *node);

/** The same operation as nmapping_add, under the name that the receiving side uses. */
VEXAMSG_API int nmapping_set(uint16_t node_id, const vexa_node_t *node);

/**
 * Copies out a node's record, whole.
 * @param node_id  slot, 0 to 127
 * @param node     receives the record; untouched when the id is refused. Its texts come as they were stored,
 * with or without a NUL
 * @return 0; -1 for an id of 128 or more (logged), for a table that is not in use, and, with the record
 * copied all the same, when the record in the slot carries another node_id
 * @par Threads  Any thread. Takes the slot's lock.
 */
VEXAMSG_API int nmapping_get(uint16_t node_id, vexa_node_t *node);

/**
 * Marks a node inactive; its name, address and id stay.
 * @return 0; -1 for an id of 128 or more or a table that is not in use
 * @par Threads  Any thread. Takes the slot's lock.
 */
VEXAMSG_API int nmapping_del(uint16_t node_id);

/**
 * Whether a node is active.
 * @return the stored byte, NODE_STAT_ACTIVED or NODE_STAT_INACTIVED in practice; -1 for an id of 128 or more
 * or a table that is not in use
 * @par Threads  Any thread. Takes the slot's lock.
 */
VEXAMSG_API int nmapping_get_stat(uint16_t node_id);

/**
 * Stores a node's state. Does nothing for an id of 128 or more or a table that is not in use.
 * @param stat  its low 8 bits are stored
 * @par Threads  Any thread. Takes the slot's lock.
 */
VEXAMSG_API void nmapping_set_stat(uint16_t node_id, int stat);

/**
 * The node to which a message for `dst_node` is handed.
 * @return `dst_node` itself up to 127, the proxy (127) for everything above, the broadcast id included
 * @par Threads  Any thread; no lock, no look at the table.
 */
VEXAMSG_API uint16_t nmapping_get_next_hop(uint16_t dst_node);

/**
 * Logs one row for each slot whose state is not 0, in the order of the ids. Not a snapshot: the slots are
 * read one after the other.
 * @par Threads  Any thread. Takes each slot's lock in turn.
 */
VEXAMSG_API void nmapping_valid_item_show(void);

#ifdef __cplusplus
}
#endif

#endif
