/**
 * @file
 * The wire format of the routing bus, written once. Every message is one UDP datagram: a 16-byte header, then
 * `data_length` bytes of payload. In a process the header is a vx_msg_head_t in the host's own byte order; on
 * the wire every number is little-endian, and the two meet only in vx_msg_head_load and vx_msg_head_store.
 *
 *     vx_msg_head_t head = vx_msg_head_make(MSTP_USER_DATA_PROC_BY_CALLBACK, len, own_id, dst);
 *     vx_msg_head_store(datagram, &head);
 */
#ifndef VX_MSG_DEF_H
#define VX_MSG_DEF_H

#include "utils/ut_le.h"
#include "vision_service_route_types.h"

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VX_MSG_MAGIC 0x5E3A     /**< first word of every message; the characters ":^" on the wire */
#define VX_MSG_HEAD_SIZE 16     /**< [bytes] */
#define VX_MSG_MAX_PAYLOAD 8192 /**< [bytes] largest payload that a sending function accepts */
#define VX_MSG_MAX_READ 8192    /**< [bytes] most of a datagram that a receiver reads, header included */
#define VX_MSG_BUFFER_SIZE 8240 /**< [bytes] header, largest payload and some slack */
#define VX_MSG_BROADCAST 0xFF00 /**< `dst` of a message to every active node below the sender's id */
#define VX_NODE_COUNT 128       /**< node ids 0 to 127 */
#define VX_NODE_PORT_BASE 9000  /**< a node receives on UDP port 9000 + id */
#define VX_NODE_MANAGER_ID 0    /**< the node manager */

/** The flag byte. The node manager sets its top bit to say that a registration is accepted; nothing else is
 * used. */
typedef struct {
    /** From bit 0 up; 0 but for the top bit of `reserved`. */
    /** @{ */
    VEXAMSG_BITS3(ack : 1, qos : 2, reserved : 5);
    /** @} */
} vx_flag_s;

/** What a message is for, its `msg_type`. */
enum vx_msg_type {
    MSTP_USER_DATA_OVER_WRITE = 0,       /**< kept by the receiver, newest per key, for polling */
    MSTP_USER_DATA_PROC_BY_CALLBACK = 1, /**< handed to the receiver's callback */
    MSTP_NODE_MGR = 2,                   /**< between a node and the node manager: node_mgr_msg_t */
    MSTP_HEART_BEAT = 3,                 /**< never built; a receiver ignores it */
    MSTP_OPERATION_ON_HB = 4             /**< HeartBeatPair array, applied to the heartbeat frame */
};

/** The header of every message, in host byte order. Payload bytes follow it directly. */
typedef struct {
    uint16_t magic;       /**< VX_MSG_MAGIC */
    vx_flag_s flag;       /**< 0 in every message that this library builds */
    uint8_t msg_type;     /**< a vx_msg_type */
    uint16_t data_length; /**< [bytes] payload behind the header */
    uint16_t src;         /**< sender's node id; 127 in what the proxy sends on */
    uint16_t dst;         /**< receiver's node id, or VX_MSG_BROADCAST */
    uint16_t sequence;    /**< always 0 */
    uint32_t recv_time;   /**< 0 when sent; the receiver's clock within its second [ns] on arrival */
} vx_msg_head_t;

/** What a node asks the manager, or the manager tells; a receiver of this library does not look at it. */
enum mgr_msg_cmd { MGR_CMD_REGISTER = 0, MGR_CMD_UNREGISTER = 1, MGR_CMD_NOTIFY = 2 };

/** Start of a node-manager payload; `cnt` records of VX_NODE_RECORD_SIZE bytes follow it. */
typedef struct {
    int16_t cmd; /**< a mgr_msg_cmd */
    int16_t cnt; /**< number of records that follow */
} node_mgr_msg_t;

#define VX_MGR_HEAD_SIZE 4     /**< [bytes] `cmd` and `cnt` */
#define VX_NODE_RECORD_SIZE 38 /**< [bytes] stride of the records in a node-manager message */
#define VX_HB_PAIR_SIZE 8      /**< [bytes] stride of the pairs in a heartbeat operation */
#define VX_UNREGISTER_SURPLUS                                                                                \
    16 /**< [bytes] zeros behind an UNREGISTER's record; managers expect the length */

/** `stat` of a node record. */
enum { NODE_STAT_INACTIVED = 0, NODE_STAT_ACTIVED = 1 };

/** One node's record, as it lies in the node table and, with its numbers little-endian, in a manager message.
 */
typedef struct {
    char name[16];    /**< NUL-terminated, at most 15 characters */
    char ip[16];      /**< IPv4 address as dotted-quad text, NUL-terminated */
    uint16_t port;    /**< UDP port; VX_NODE_PORT_BASE + node_id for a node of this library */
    uint16_t node_id; /**< 0 to 127 */
    uint8_t stat;     /**< NODE_STAT_ACTIVED or NODE_STAT_INACTIVED; one unused byte follows */
} vexa_node_t;

VX_STATIC_ASSERT(sizeof(vx_flag_s) == 1, "one byte on the wire");
VX_STATIC_ASSERT(sizeof(vx_msg_head_t) == VX_MSG_HEAD_SIZE, "wire size of the header");
VX_STATIC_ASSERT(offsetof(vx_msg_head_t, flag) == 2 && offsetof(vx_msg_head_t, msg_type) == 3 &&
                     offsetof(vx_msg_head_t, data_length) == 4 && offsetof(vx_msg_head_t, src) == 6 &&
                     offsetof(vx_msg_head_t, dst) == 8 && offsetof(vx_msg_head_t, sequence) == 10 &&
                     offsetof(vx_msg_head_t, recv_time) == 12,
                 "wire offsets of the header");
VX_STATIC_ASSERT(sizeof(node_mgr_msg_t) == VX_MGR_HEAD_SIZE, "records follow the two words directly");
VX_STATIC_ASSERT(sizeof(vexa_node_t) == VX_NODE_RECORD_SIZE, "stride of the records in a manager message");
VX_STATIC_ASSERT(offsetof(vexa_node_t, ip) == 16 && offsetof(vexa_node_t, port) == 32 &&
                     offsetof(vexa_node_t, node_id) == 34 && offsetof(vexa_node_t, stat) == 36,
                 "wire offsets of a record");

/**
 * A header as every message begins: flag, `sequence` and `recv_time` 0.
 * @param msg_type     a vx_msg_type
 * @param data_length  [bytes] payload that will follow
 * @param src          sender's node id
 * @param dst          receiver's node id, or VX_MSG_BROADCAST
 * @par Threads  Any thread.
 */
static inline vx_msg_head_t vx_msg_head_make(uint8_t msg_type, uint16_t data_length, uint16_t src,
                                             uint16_t dst) {
    vx_msg_head_t head;
    memset(&head, 0, sizeof head);
    head.magic = VX_MSG_MAGIC;
    head.msg_type = msg_type;
    head.data_length = data_length;
    head.src = src;
    head.dst = dst;
    return head;
}

/**
 * Reads a header from the first VX_MSG_HEAD_SIZE bytes of a datagram. The fields are taken as they are.
 * @param bytes  at least VX_MSG_HEAD_SIZE bytes, at any address
 * @par Threads  Any thread.
 */
static inline vx_msg_head_t vx_msg_head_load(const uint8_t *bytes) {
    vx_msg_head_t head;
    memcpy(&head, bytes, sizeof head); // takes the flag byte, whose bits have names but no number
    head.magic = ut_get_le16(bytes);
    head.data_length = ut_get_le16(bytes + 4);
    head.src = ut_get_le16(bytes + 6);
    head.dst = ut_get_le16(bytes + 8);
    head.sequence = ut_get_le16(bytes + 10);
    head.recv_time = ut_get_le32(bytes + 12);
    return head;
}

/**
 * Writes a header to the first VX_MSG_HEAD_SIZE bytes of a datagram.
 * @param bytes  room for VX_MSG_HEAD_SIZE bytes, at any address; may be the header's own
 * @par Threads  Any thread.
 */
static inline void vx_msg_head_store(uint8_t *bytes, const vx_msg_head_t *head) {
    const vx_msg_head_t from = *head;
    memcpy(bytes, &from, sizeof from);
    ut_put_le16(bytes, from.magic);
    ut_put_le16(bytes + 4, from.data_length);
    ut_put_le16(bytes + 6, from.src);
    ut_put_le16(bytes + 8, from.dst);
    ut_put_le16(bytes + 10, from.sequence);
    ut_put_le32(bytes + 12, from.recv_time);
}

/**
 * Reads one node record.
 * @param bytes  at least VX_NODE_RECORD_SIZE bytes, at any address. The texts are copied as they are: whether
 * they end in a NUL is for the reader to see to
 * @par Threads  Any thread.
 */
static inline vexa_node_t vexa_node_load(const uint8_t *bytes) {
    vexa_node_t node;
    memcpy(&node, bytes, sizeof node);
    node.port = ut_get_le16(bytes + offsetof(vexa_node_t, port));
    node.node_id = ut_get_le16(bytes + offsetof(vexa_node_t, node_id));
    return node;
}

/**
 * Writes one node record.
 * @param bytes  room for VX_NODE_RECORD_SIZE bytes, at any address
 * @par Threads  Any thread.
 */
static inline void vexa_node_store(uint8_t *bytes, const vexa_node_t *node) {
    memcpy(bytes, node, sizeof *node);
    ut_put_le16(bytes + offsetof(vexa_node_t, port), node->port);
    ut_put_le16(bytes + offsetof(vexa_node_t, node_id), node->node_id);
}

/**
 * Ends both texts of a record that came from outside, so that they can be read as strings.
 * @par Threads  Any thread.
 */
static inline void vexa_node_end_texts(vexa_node_t *node) {
    node->name[sizeof node->name - 1] = '\0';
    node->ip[sizeof node->ip - 1] = '\0';
}

#ifdef __cplusplus
}
#endif

#endif
