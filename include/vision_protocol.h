/**
 * @file
 * The vision link as a program uses it: reports to the flight side (UDP 192.168.1.5:5673), commands to the
 * camera (UDP 192.168.1.11:5685), and the 16-byte camera-protocol header that stands before every datagram of
 * both. A datagram is that header and the payload of one link message (vxlink/); the message's own header and
 * CRC are made and stay in memory.
 *
 *     vxlink_movidus_report_orbit_area_t area = {0};
 *     area.status = 1;
 *     if (send_message_orbit_area(&area) < 0) { ... }
 *
 * Nothing has to be started first. All senders of a process share one socket, which is made at the first send
 * and stays open, and one `sequence` counter, the camera's datagrams included. A datagram that cannot be sent
 * has used its number. Every send takes at least a millisecond and keeps the caller for it.
 */
#ifndef VISION_PROTOCOL_H
#define VISION_PROTOCOL_H

#include "utils/ut_le.h"
#include "vexamsg_export.h"
#include "vxlink/vxlink.h"

#include <assert.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VISION_MSG_MAGIC_0 0x00   /**< first byte of `magic` */
#define VISION_MSG_MAGIC_1 0x56   /**< second byte of `magic` */
#define VISION_MSG_VERSION 1      /**< `version` */
#define VISION_MSG_HEAD_SIZE 16   /**< [bytes] */
#define VISION_COMMAND_MAX_LEN 31 /**< [bytes] longest data of a camera command */

#define VISION_FLIGHT_IP "192.168.1.5"  /**< where reports go */
#define VISION_FLIGHT_PORT 5673         /**< where reports go */
#define VISION_CAMERA_IP "192.168.1.11" /**< where commands go */
#define VISION_CAMERA_PORT 5685         /**< where commands go */

/** Node codes of `msg_src` and `msg_dst`. Single bits, so that several receivers can be named at once. */
enum node_type_e_ VEXAMSG_ENUM_U32 {
    NULL_NODE = 0,
    AIRCRAFT_NODE = 1,
    CARMERA_NODE = 2, /**< the camera; the spelling is part of the interface */
    GIM_NODE = 4,
    AIRPLANE_CTRL_NODE = 8,
    AVOID_BARRIER = 16,
    MOVIDIUS_NODE = 32, /**< the vision computer */
    BATTERY_NODE = 64,
    GROUND_NODE = 1024,
    TELE_CTRL_NODE = 2048,
    PHONE_NODE = 4096,
    RC_PLAYER_NODE = 8192,
    VISION_NODE = 16384,
    ALL_NODE = 65535
};

/** The flag byte. */
struct flag_s {
    /**
     * From bit 0 up: `res` is 0, `debug` marks a debug message, `reply` asks for a reply, `form` is the data
     * form, `final` marks the last packet of a message and `start` the first.
     */
    /** @{ */
    VEXAMSG_BITS6(res : 3, debug : 1, reply : 1, form : 1, final : 1, start : 1);
    /** @} */
};

// C++ compilers know the flexible arrays of C and complain that C++ does not.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"
/**
 * The header. Its words are in host byte order while a program works on it; the senders here write them
 * little-endian. Takes 16 bytes, whatever room lies behind it.
 */
typedef struct msg_head_s {
    uint8_t magic[2];    /**< VISION_MSG_MAGIC_0, VISION_MSG_MAGIC_1 */
    uint8_t version;     /**< VISION_MSG_VERSION */
    struct flag_s flag;  /**< 0xE0 in everything that the senders here send */
    uint16_t length;     /**< [bytes] header and data */
    uint16_t msg_src;    /**< a node_type_e_ */
    uint16_t msg_dst;    /**< one or several of node_type_e_ */
    uint16_t msg_type;   /**< which message the data are */
    uint16_t sequence;   /**< counts the datagrams of a process */
    uint16_t package_id; /**< 0 in everything that the senders here send */
    uint8_t data[];      /**< `length` - 16 bytes, in the memory behind the header */
} msg_head_t;
#pragma GCC diagnostic pop
static_assert(sizeof(struct flag_s) == 1, "one byte on the wire");
static_assert(sizeof(msg_head_t) == VISION_MSG_HEAD_SIZE, "wire size of the header");
static_assert(offsetof(msg_head_t, version) == 2 && offsetof(msg_head_t, flag) == 3 &&
                  offsetof(msg_head_t, length) == 4 && offsetof(msg_head_t, msg_src) == 6 &&
                  offsetof(msg_head_t, msg_dst) == 8 && offsetof(msg_head_t, msg_type) == 10 &&
                  offsetof(msg_head_t, sequence) == 12 && offsetof(msg_head_t, package_id) == 14 &&
                  offsetof(msg_head_t, data) == VISION_MSG_HEAD_SIZE,
              "wire offsets of the header");

/**
 * Reads a header from the first VISION_MSG_HEAD_SIZE bytes of a datagram of these senders, little-endian. The
 * fields are taken as they are.
 * @param bytes  at least VISION_MSG_HEAD_SIZE bytes, at any address
 * @param msg    receives the header; its data are left alone
 * @par Threads  Any thread.
 */
static inline void msg_head_load(const uint8_t *bytes, struct msg_head_s *msg) {
    memcpy(msg, bytes, VISION_MSG_HEAD_SIZE); // takes magic, version and the flag byte
    msg->length = ut_get_le16(bytes + offsetof(msg_head_t, length));
    msg->msg_src = ut_get_le16(bytes + offsetof(msg_head_t, msg_src));
    msg->msg_dst = ut_get_le16(bytes + offsetof(msg_head_t, msg_dst));
    msg->msg_type = ut_get_le16(bytes + offsetof(msg_head_t, msg_type));
    msg->sequence = ut_get_le16(bytes + offsetof(msg_head_t, sequence));
    msg->package_id = ut_get_le16(bytes + offsetof(msg_head_t, package_id));
}

/**
 * Writes a header to the first VISION_MSG_HEAD_SIZE bytes of a datagram, little-endian.
 * @param bytes  room for VISION_MSG_HEAD_SIZE bytes, at any address, not the header's own
 * @par Threads  Any thread.
 */
static inline void msg_head_store(uint8_t *bytes, const struct msg_head_s *msg) {
    memcpy(bytes, msg, VISION_MSG_HEAD_SIZE);
    ut_put_le16(bytes + offsetof(msg_head_t, length), msg->length);
    ut_put_le16(bytes + offsetof(msg_head_t, msg_src), msg->msg_src);
    ut_put_le16(bytes + offsetof(msg_head_t, msg_dst), msg->msg_dst);
    ut_put_le16(bytes + offsetof(msg_head_t, msg_type), msg->msg_type);
    ut_put_le16(bytes + offsetof(msg_head_t, sequence), msg->sequence);
    ut_put_le16(bytes + offsetof(msg_head_t, package_id), msg->package_id);
}

/** @name The camera-protocol header
 * Functions on one header, which is the caller's and lies at an even address; for another one there are
 * msg_head_load and msg_head_store. A NULL header is left alone, and asked about gives 0.
 * @par Threads  Any thread; they touch only that header, take no lock and do not block.
 * @{ */

/**
 * Starts a header: magic, version 1, flags `start` and `final`, every word 0. The data are left alone.
 */
VEXAMSG_API void msg_head_init(struct msg_head_s *msg);

/**
 * Whether a header begins with the magic bytes. The version is not looked at.
 * @return 1 or 0
 */
VEXAMSG_API int check_msg_magic(struct msg_head_s *msg);

/**
 * Whether the sender wants a reply.
 * @return the `reply` bit, 1 or 0
 */
VEXAMSG_API int is_need_reply(struct msg_head_s *msg);

/**
 * Turns the six words from host to network order, in place: swaps their bytes, whatever the host. The senders
 * here do not use it: their headers travel little-endian.
 */
VEXAMSG_API void msg_head_htons(struct msg_head_s *msg);

/** The same as msg_head_htons; a second swap undoes the first. */
VEXAMSG_API void msg_head_ntohs(struct msg_head_s *msg);

/**
 * Sets the `form` bit.
 * @param form  its lowest bit counts
 */
VEXAMSG_API void set_data_form_flag(struct msg_head_s *msg, int form);

/**
 * Sets the `form` bit, not the `reply` bit, whatever its name says; peers rely on it.
 * @param reply  its lowest bit counts
 */
VEXAMSG_API void set_reply_flag(struct msg_head_s *msg, int reply);

/** Sets the `final` bit. */
VEXAMSG_API void set_final_flag(struct msg_head_s *msg);

/** Sets the `start` bit. */
VEXAMSG_API void set_start_flag(struct msg_head_s *msg);

/**
 * Puts a text behind a header and sets `length`. Made to be the output callback of a JSON serializer.
 *
 * @param json_string  NUL-terminated; copied with its terminator, which `length` does not count
 * @param ctx          a header (msg_head_t), at any address, with room behind it for the text and its
 * terminator; how much room there is is not checked
 * @return the new `length`, text and header [bytes], its low 16 bits when the text is longer; -1, logged and
 * nothing written, when either is NULL
 */
VEXAMSG_API int data_to_json_cb(const char *json_string, void *ctx);
/** @} */

/** @name Reports to the flight side
 * The caller's record is read and not kept. Every function sends one datagram and returns
 * - the bytes sent, header included,
 * - -1 when the record is NULL or nothing could be sent (both logged; a missing socket is also reported on
 *   standard error), and also when only the fifth and last attempt got through,
 * - 0 when the system took no byte in five attempts.
 * @par Threads  Any thread, also several at once; datagrams of two threads are numbered in either order.
 * Blocks for at least 1 ms per attempt (1 to 5 attempts) and what the system takes to send; allocates
 * nothing.
 * @{ */

/** Reports one tracked target. */
VEXAMSG_API int send_message_track_status(vxlink_movidus_report_track_status_t *mav_report_goal);

/** Reports the targets in the picture. All eight slots travel, whatever `number` says. */
VEXAMSG_API int send_message_track_area_array(vxlink_movidus_report_goal_area_t *mav_report_goal);

/** Reports how an orbit goes. */
VEXAMSG_API int send_message_orbit_status(vxlink_movidus_report_orbit_status_t *mav_orbit_status);

/** Reports the target of an orbit. */
VEXAMSG_API int send_message_orbit_area(vxlink_movidus_report_orbit_area_t *mav_orbit_area);

/**
 * Answers a command with more than a status.
 * @param cmd      the command that is answered
 * @param status   how it went
 * @param status1  the rest of the answer; travels from the fourth payload byte on, behind a zero byte
 */
VEXAMSG_API int send_ifly_command_ack_rc(unsigned char cmd, unsigned char status, unsigned int status1);

/**
 * Answers a command.
 * @param cmd     the command that is answered
 * @param status  how it went
 */
VEXAMSG_API int send_ifly_command_ack(unsigned char cmd, unsigned char status);

/** Sends a track status with made-up values, the time of now and an `id` that counts the calls from 0. */
VEXAMSG_API int vision_test_send_track_status(void);

/**
 * Sends the payload of any finished link message.
 * @param msgType  `msg_type` of the datagram; 0x0907 goes to phone and remote control, all others to the
 * phone
 * @param pMav     `len` bytes of its payload are sent; refused, logged and -1 returned, when it is NULL or
 * `len` is more than a record holds (VXLINK_PAYLOAD_STORAGE). That it was finalized is not checked
 */
VEXAMSG_API int send_general_message(unsigned short msgType, vxlink_message_head_t *pMav);
/** @} */

/**
 * Sends one datagram from the process's link socket, trying up to five times with a millisecond's pause after
 * each attempt. Any failure of an attempt counts, an interruption too.
 *
 * @param sData    `dwLen` bytes, read and not kept
 * @param dwLen    [bytes]
 * @param sIpAddr  IPv4 address in dotted text; a text that is none goes to 0.0.0.0, which is this host
 * @param wPort    UDP port
 * @return bytes sent; -1 when there is no socket (reported on standard error; the next call tries again),
 * when only the fifth attempt succeeded (reported too) and for input that cannot be sent (logged: NULL with a
 * length, a negative length, no address); else what the fifth attempt gave, -1 with errno or 0
 * @par Threads  Any thread. Blocks for at least 1 ms per attempt (1 to 5 attempts) and what the system takes
 * to send.
 */
VEXAMSG_API int vision_udp_send(char *sData, int dwLen, char *sIpAddr, unsigned short wPort);

/** @name Commands to the camera
 * @par Threads  Any thread, as for the reports; blocks as long.
 * @{ */

/**
 * Sends the payload of any finished link message to the camera.
 * @param msgType  `msg_type` of the datagram
 * @param pMav     as for send_general_message
 * @return 0 unless vision_udp_send gives -1 or the record is refused: then -1, logged. A send of 0 bytes
 * counts as success too
 */
VEXAMSG_API int send_general_message_cam(unsigned short msgType, vxlink_message_head_t *pMav);

/**
 * Sends a command to the camera.
 * @param cmd     which command
 * @param pData   `length` bytes, read and not kept; the rest of the command's 31 bytes is 0
 * @param length  [bytes], at most VISION_COMMAND_MAX_LEN
 * @return 0; -1 for a longer command (not logged), for a NULL with a length (logged) and when nothing could
 * be sent (logged)
 */
VEXAMSG_API int send_ifly_command_cam(unsigned char cmd, unsigned char *pData, uint16_t length);
/** @} */

#ifdef __cplusplus
}
#endif

#endif
