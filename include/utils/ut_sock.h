/**
 * @file
 * Socket addresses that say themselves which family they are of, made from a line of a configuration, from a
 * path or from a socket, and turned into text; and a few socket options by name. Nothing here logs: what went
 * wrong is in the result and in errno.
 *
 *     ut_addr_t addr;
 *     int type;
 *     if (ut_sock_cfg_parse("udp@192.168.1.1:9000", &addr, &type) == 0) {
 *         int fd = socket((int)addr.family, type, 0);
 *         connect(fd, (struct sockaddr *)&addr.in, addr.addrlen);
 *     }
 *
 * @par Threads  Any thread, but for the two functions that say otherwise. None of them blocks or keeps a
 * pointer that it was given. Pointers must not be NULL, which is not checked.
 */
#ifndef UT_SOCK_H
#define UT_SOCK_H

#include "vexamsg_export.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#ifdef __cplusplus
extern "C" {
#endif

#define UT_SOCK_HUMAN_ADDR_SIZE 128 /**< [bytes] room for any text of ut_sock_human_addr_s */
#define UT_SOCK_IP_SIZE 46          /**< [bytes] room for any text of ut_sock_ip_s */

/** An IPv4, IPv6 or local socket address, owned by the caller. */
typedef struct {
    unsigned int family;  /**< AF_INET, AF_INET6 or AF_UNIX: this one counts, not the one in the union */
    unsigned int addrlen; /**< [bytes] what to tell the system: 16, 28 or, local, 110 */
    union {
        struct sockaddr_in in;   /**< of AF_INET; port in network order */
        struct sockaddr_in6 in6; /**< of AF_INET6; port in network order */
        struct sockaddr_un un;   /**< of AF_UNIX */
    };
} ut_addr_t;

/**
 * Reads a socket's description: a scheme in any case, '@', and the rest.
 *
 *     tcp@HOST:PORT, udp@HOST:PORT                      SOCK_STREAM, SOCK_DGRAM
 *     stream@PATH, dgram@PATH, seqpacket@PATH           SOCK_STREAM, SOCK_DGRAM, SOCK_SEQPACKET
 *
 * HOST is an IPv4 address as dotted quad. It ends at the first colon, so an IPv6 address is never one, and
 * names are not looked up. PORT is what strtoul reads in base 0 (decimal, "0x" or octal), cut to 16 bits;
 * what follows the number is ignored, and no number is 0. PATH is any text of up to 107 characters.
 *
 * @param cfg        NUL-terminated; copied while the function works
 * @param addr       receives the address; cleared for a host that does not convert, otherwise untouched by a
 *                   failure. For a path only what the path needs is written
 * @param sock_type  receives the socket type as soon as the scheme is known, also when what follows it fails
 * @return 0; -1 no '@'; -2 unknown scheme; -3 no ':' behind tcp or udp; -4 HOST is not an IPv4 address; -5
 * PATH is too long; -6 no memory for the copy (errno ENOMEM), nothing is written then
 */
VEXAMSG_API int ut_sock_cfg_parse(const char *cfg, ut_addr_t *addr, int *sock_type);

/**
 * Makes a local address of a path. Writes no more of `addr` than the path needs.
 * @param unix_path  NUL-terminated; whether there is such a file does not matter
 * @return 0; -1 when the path is longer than 107 characters, `addr` is untouched then
 */
VEXAMSG_API int ut_sock_addr_fill_unix(ut_addr_t *addr, const char *unix_path);

/**
 * An address as text: "10.0.0.1:80" (an IPv6 address the same way, without brackets), "unix:/tmp/s", or
 * nothing for any other family.
 * @return a static buffer of 128 bytes, overwritten by the next call
 * @par Threads  One thread at a time.
 */
VEXAMSG_API char *ut_sock_human_addr(ut_addr_t *addr);

/**
 * The text of ut_sock_human_addr in a buffer of the caller's.
 * @param dest  must hold UT_SOCK_HUMAN_ADDR_SIZE bytes
 * @return `dest`
 */
VEXAMSG_API char *ut_sock_human_addr_s(ut_addr_t *addr, char *dest);

/**
 * The IPv4 or IPv6 address alone as text, without the port; nothing for any other family.
 * @return a static buffer of 48 bytes, overwritten by the next call
 * @par Threads  One thread at a time.
 */
VEXAMSG_API char *ut_sock_ip(ut_addr_t *addr);

/**
 * The text of ut_sock_ip in a buffer of the caller's.
 * @param ip  must hold UT_SOCK_IP_SIZE bytes
 * @return `ip`
 */
VEXAMSG_API char *ut_sock_ip_s(ut_addr_t *addr, char *ip);

/**
 * Sets who may use a local socket: the mode of the file at its path.
 * @param mode  as for chmod
 * @return 0; -1 with errno when chmod refuses; 0, with nothing done, for an address that is not local
 */
VEXAMSG_API int ut_sock_set_mode(ut_addr_t *addr, mode_t mode);

/**
 * Whom a connected socket is connected to.
 * @param addr  receives the address. `addrlen` is the length that the system tells: that of a local address
 * is its true length, 2 for one without a name. Of an address that is not one of the three kinds the first
 * 110 bytes
 * @return 0; -1 with errno (not connected, not a socket), only `addrlen` has changed then, to 110
 */
VEXAMSG_API int ut_sock_peer_addr(int sockfd, ut_addr_t *addr);

/** The address that a socket itself is bound to; otherwise as ut_sock_peer_addr. */
VEXAMSG_API int ut_sock_host_addr(int sockfd, ut_addr_t *addr);

/**
 * Takes a socket's pending error, for the end of a non-blocking connect, say. Asking clears it.
 * @return an errno value; 0 when there is none; when asking fails, why it failed, or EBADFD when the system
 * does not tell
 */
VEXAMSG_API int ut_sock_errno(int sockfd);

/**
 * Size of a socket's send buffer.
 * @param buf_size  [bytes] receives the size as the system counts it, untouched by a failure
 * @return 0; -1 with errno
 */
VEXAMSG_API int ut_sock_get_send_buf(int sockfd, int *buf_size);

/** Size of a socket's receive buffer; otherwise as ut_sock_get_send_buf. */
VEXAMSG_API int ut_sock_get_recv_buf(int sockfd, int *buf_size);

/**
 * Asks for a send buffer of a size.
 * @param buf_size  [bytes] Linux doubles it for its own needs and limits it without telling
 * @return 0; -1 with errno
 */
VEXAMSG_API int ut_sock_set_send_buf(int sockfd, int buf_size);

/** Asks for a receive buffer of a size; otherwise as ut_sock_set_send_buf. */
VEXAMSG_API int ut_sock_set_recv_buf(int sockfd, int buf_size);

/**
 * Makes a descriptor non-blocking and leaves its other flags alone.
 * @return 0; -1 with errno. (The setters of netapi.h say 1 and 0.)
 */
VEXAMSG_API int ut_sock_set_nonblock(int sockfd);

/**
 * Sends small TCP segments at once (TCP_NODELAY).
 * @return 0; -1 with errno, for a socket that is not TCP too
 */
VEXAMSG_API int ut_sock_set_no_delay(int sockfd);

/**
 * Lets a socket bind to an address that lately was in use (SO_REUSEADDR).
 * @return 0; -1 with errno
 */
VEXAMSG_API int ut_sock_set_reuse_addr(int sockfd);

#ifdef __cplusplus
}
#endif

#endif
