/**
 * @file
 * Sockets in one call each: a thin layer over the system's socket calls, on an IPv4 socket object
 * (net_sockfd_t) or on a bare descriptor. It adds the retry rules, the time-outs and the log lines that every
 * caller would otherwise write anew, and nothing else: no state, no locks, no allocation.
 *
 *     net_sockfd_t server;
 *     if (net_udp_server(&server, "127.0.0.1", 9000) == 0) {
 *         char text[64];
 *         int len = net_recvfrom(&server, text, sizeof text); // waits; the sender is in server.remote_addr
 *         (void)net_sendto_peer(&server, text, len);
 *         (void)net_close(&server);
 *     }
 *
 * What holds for all of them:
 * - Results: 0, a count or a descriptor for success, -1 with `errno` set for failure. The three setters of
 *   the blocking mode are the exception: 1 for success, 0 for failure.
 * - Addresses are IPv4 as dotted-quad text, ports in host order. Text that is NULL or does not parse is the
 *   address 0.0.0.0; only mcast_join and net_mcast_leave refuse it. Texts are read during the call only.
 * - "Retries" means: as long as the system call fails with EINTR or EAGAIN it is made again, without a limit,
 *   1000 microseconds apart unless "at once" is said. On a non-blocking socket these operations thus wait.
 * - Buffers stay the caller's and are used during the call only. Negative lengths are refused with EINVAL,
 *   a NULL object counts as a closed one (EBADF; net_recv_timedwait waits for nothing, as poll does). Whether
 * a buffer holds `len` bytes is not checked.
 * - A stream whose peer has gone raises SIGPIPE when it is sent to, as send(2) does without flags.
 * - Operations that wait by select(2) refuse a descriptor of FD_SETSIZE (1024) or more with EINVAL: it has
 *   no place in the descriptor set.
 * - Log lines are at level INFO, failures too.
 *
 * @par Threads  Any thread; a socket object belongs to one thread at a time.
 */
#ifndef NETAPI_H
#define NETAPI_H

#include "vexamsg_export.h"

#include <stddef.h>
#include <sys/socket.h>
#include <sys/time.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A socket and its peer. The caller's, usually embedded in something larger. */
typedef struct net_sockfd_s {
    int sockfd;                          /**< the descriptor; -1 is closed. 0 is standard input, not "none" */
    struct sockaddr_storage remote_addr; /**< the peer: written by net_accept and net_recvfrom, read by
                                            net_sendto_peer */
} net_sockfd_t;

/* ---- Creation and connection ---- */

/**
 * Opens a socket with the default protocol.
 * @param sockobj  receives the descriptor, or -1; what it held before is not closed
 * @param domain   AF_INET, AF_UNIX, ...
 * @param type     SOCK_STREAM, SOCK_DGRAM, ...
 * @return the descriptor; -1 on failure (logged)
 */
VEXAMSG_API int net_socket(net_sockfd_t *sockobj, int domain, int type);

/**
 * Binds to a local address.
 * @param ip    NULL, and text that does not parse, bind to every interface
 * @param port  0 lets the system choose
 * @return 0; -1 on failure (logged)
 */
VEXAMSG_API int net_bind(net_sockfd_t *sockobj, const char *ip, unsigned short port);

/**
 * Makes a bound stream socket accept connections.
 * @param num  how many may wait to be accepted
 * @return 0; -1 on failure (logged)
 */
VEXAMSG_API int net_listen(net_sockfd_t *sockobj, int num);

/**
 * Takes the next waiting connection. Waits for one when the listener blocks; not retried.
 * @param sock_conn  receives the connection's descriptor, or -1, and the peer's address; what it held before
 * is not closed. The connection is blocking, whatever the listener is
 * @return the descriptor; -1 on failure (not logged), with EINVAL when `sock_conn` is NULL
 */
VEXAMSG_API int net_accept(net_sockfd_t *sockobj, net_sockfd_t *sock_conn);

/**
 * Connects an AF_UNIX socket.
 * @param local_domain  path of the peer's socket, at most 107 characters
 * @return 0; -1 on failure, with ENAMETOOLONG when the path does not fit (nothing is connected then) and
 * EINVAL when it is NULL
 */
VEXAMSG_API int net_connect_domain(net_sockfd_t *sockobj, const char *local_domain);

/**
 * Connects an IPv4 socket. Waits as long as the system does when the socket blocks; not retried.
 * @return 0; -1 on failure
 */
VEXAMSG_API int net_connect(net_sockfd_t *sockobj, const char *remote_addr, unsigned short remote_port);

/**
 * Connects an IPv4 socket and waits no longer than a time-out for the outcome. The socket must be
 * non-blocking already, or the time-out has no effect, and stays so. A signal that interrupts the wait ends
 * it; what the connection's error state says at that moment is then the result, and 0 can mean "still
 * connecting".
 * @param timeout  [s] 0 looks once
 * @return 0; -1 on failure, with ETIMEDOUT when the time is up. After -1 the attempt may still be under way:
 * close the socket
 */
VEXAMSG_API int net_connect_nonb(net_sockfd_t *sockobj, const char *remote_addr, unsigned short remote_port,
                                 int timeout);

/**
 * Opens a TCP socket and connects it, waiting as long as the system does.
 * @param port  its low 16 bits are used
 * @return 0 with a blocking socket in `sockobj`; -1 on failure, nothing is left open and `sockfd` is -1
 */
VEXAMSG_API int net_tcp_connect_block(net_sockfd_t *sockobj, const char *ip, int port);

/**
 * Opens a non-blocking TCP socket and connects it as net_connect_nonb does.
 * @param port     its low 16 bits are used
 * @param timeout  [s]
 * @return 0 with a non-blocking socket in `sockobj`; -1 on failure, nothing is left open and `sockfd` is -1
 */
VEXAMSG_API int net_tcp_connect(net_sockfd_t *sockobj, const char *ip, int port, int timeout);

/**
 * Opens a TCP listener: address reuse on, backlog 5.
 * @param ip         as for net_bind
 * @param blockflag  0 leaves the listener blocking; anything else makes it NON-blocking
 * @return 0; -1 on failure, nothing is left open and `sockfd` is -1. Only opening, binding and listening can
 * fail it; an option that cannot be set does not
 */
VEXAMSG_API int net_tcp_server(net_sockfd_t *sockobj, const char *ip, unsigned short port, int blockflag);

/**
 * Opens a non-blocking UDP socket bound to an address, address reuse on.
 * @param sockobj  zeroed first, `remote_addr` too; what it held before is not closed
 * @param ip       as for net_bind
 * @return 0; -1 on failure, nothing is left open and `sockfd` is -1
 */
VEXAMSG_API int net_udp_server(net_sockfd_t *sockobj, const char *ip, unsigned short port);

/**
 * Opens a UDP socket: not bound, blocking, no options. `remote_addr` is left as it is.
 * @return 0; -1 on failure (logged)
 */
VEXAMSG_API int net_udp_client(net_sockfd_t *sockobj);

/**
 * Closes the socket and sets `sockfd` to -1. Does nothing when it is -1 already.
 * @return 0, always
 */
VEXAMSG_API int net_close(net_sockfd_t *sockobj);

/* ---- Sending and receiving ---- */

/**
 * Sends a whole buffer on a stream. Repeated on EINTR only: on a non-blocking socket that is full it fails
 * with EAGAIN, and how much went out before is not told.
 * @param len  [bytes] below 1 nothing is sent
 * @return bytes sent: `len`, or less when the system took 0 bytes at once; 0 for a `len` below 1; -1 on
 * failure
 */
VEXAMSG_API int net_send(net_sockfd_t *sockobj, const void *buf, int len);

/** As net_send, but retries on EAGAIN too, so that a non-blocking socket that is full is waited for. */
VEXAMSG_API int net_sendn(net_sockfd_t *sockobj, const void *buf, int len);

/**
 * Sends a whole buffer on a stream within a time. "select error" and "Send error" go to standard error
 * (perror), the latter also for an EINTR or EAGAIN that is then retried at once.
 * @param inLength   [bytes] below 1 nothing is sent
 * @param tvTimeOut  the time for all of it; what is left is written back. NULL waits without a limit
 * @return bytes sent, fewer than `inLength` when the time is up; 0 for an `inLength` below 1; -1 on failure
 */
VEXAMSG_API int net_send_timeout(net_sockfd_t *sockobj, const char *inData, int inLength,
                                 struct timeval *tvTimeOut);

/**
 * Sends a datagram to an address. Retries.
 * @param fd        1 or more; standard input is refused on purpose, as a forgotten initialisation
 * @param buff_len  [bytes]
 * @param addr_len  [bytes] size of the address behind `ptr_addr`
 * @return bytes sent; -1 on failure (a refused descriptor is logged, EBADF)
 */
VEXAMSG_API int net_sendto2_fd(int fd, const void *buf, int buff_len, const struct sockaddr *ptr_addr,
                               int addr_len);

/**
 * Sends a datagram to an IPv4 address, as net_sendto2_fd does: one system call when the network takes it.
 * @param len  [bytes]
 * @return bytes sent; -1 on failure
 */
VEXAMSG_API int net_sendto_fd(int fd, const void *buf, int len, const char *ip, unsigned short port);

/** As net_sendto2_fd, on an object's socket, and without the look at the descriptor. */
VEXAMSG_API int net_sendto2(net_sockfd_t *sockobj, const void *buf, int buff_len,
                            const struct sockaddr *ptr_addr, int addr_len);

/** As net_sendto_fd, on an object's socket, and without the look at the descriptor. */
VEXAMSG_API int net_sendto(net_sockfd_t *sockobj, const void *buf, int len, const char *ip,
                           unsigned short port);

/**
 * Sends a datagram to `remote_addr`, taken as an IPv4 address: usually an answer to what net_recvfrom has
 * received. Retries.
 * @param buff_len  [bytes]
 * @return bytes sent; -1 on failure
 */
VEXAMSG_API int net_sendto_peer(net_sockfd_t *sockobj, const void *buf, int buff_len);

/**
 * Receives from a stream, or one datagram. Retries: with nothing there it waits, on a non-blocking socket in
 * steps of a millisecond.
 * @param len  [bytes] the most that is written to `buf`; the rest of a longer datagram is lost
 * @return bytes received; 0 at the end of a stream or for an empty datagram; -1 on failure
 */
VEXAMSG_API int net_recv(net_sockfd_t *sockobj, void *buf, int len);

/** As net_recv, and stores the sender's address in `remote_addr`. */
VEXAMSG_API int net_recvfrom(net_sockfd_t *sockobj, void *buf, int buff_len);

/* ---- Options and modes ---- */

/**
 * Makes the socket non-blocking.
 * @return 1 on success, 0 on failure
 */
VEXAMSG_API int net_set_socket_noblock(net_sockfd_t *sockobj);

/** As net_set_socket_noblock, on a bare descriptor: a pipe's, for example. */
VEXAMSG_API int net_set_fd_noblock(int fd);

/**
 * Makes the socket blocking.
 * @return 1 on success, 0 on failure
 */
VEXAMSG_API int net_set_socket_block(net_sockfd_t *sockobj);

/**
 * Switches address reuse (SO_REUSEADDR); takes effect at the next bind.
 * @param flag  1 on, 0 off
 * @return 0; -1 on failure (logged)
 */
VEXAMSG_API int net_set_reuse_addr(net_sockfd_t *sockobj, int flag);

/**
 * Asks for a size of the send buffer (SO_SNDBUF).
 * @param isize  [bytes] the system doubles it and keeps it within its own limits
 * @return 0; -1 on failure (logged)
 */
VEXAMSG_API int net_set_sendbuf_size(net_sockfd_t *sockobj, int isize);

/**
 * Size of the send buffer.
 * @return [bytes] as the system counts, about twice what was asked for; -1 on failure (logged)
 */
VEXAMSG_API int net_get_sendbuf_size(net_sockfd_t *sockobj);

/** As net_set_sendbuf_size, for the receive buffer (SO_RCVBUF). */
VEXAMSG_API int net_set_recvbuf_size(net_sockfd_t *sockobj, int isize);

/** As net_get_sendbuf_size, for the receive buffer. */
VEXAMSG_API int net_get_recvbuf_size(net_sockfd_t *sockobj);

/**
 * Has the system probe an idle TCP connection: three probes, 10 s apart. Every option is tried, whatever
 * became of the ones before.
 * @param requestedtime  [s] of silence before the first probe
 * @return the sum of the four results: 0 when all could be set, else minus the number of failures as an
 * unsigned number
 */
VEXAMSG_API unsigned net_set_keep_alive_time(net_sockfd_t *sockobj, unsigned requestedtime);

/**
 * Joins a multicast group on the interface that the routing table names.
 * @param ip  224.0.0.0 to 239.255.255.255; anything else is refused (logged, EINVAL)
 * @return 0; -1 on failure
 */
VEXAMSG_API int mcast_join(net_sockfd_t *sockobj, const char *ip);

/** Leaves a multicast group; otherwise as mcast_join. */
VEXAMSG_API int net_mcast_leave(net_sockfd_t *sockobj, const char *ip);

/**
 * Lets this host's own members of a group hear what the socket sends to it.
 * @return 0; -1 on failure
 */
VEXAMSG_API int net_set_multicast_loop(net_sockfd_t *sockobj);

/**
 * Allows the socket to send to broadcast addresses.
 * @return 0; -1 on failure
 */
VEXAMSG_API int net_bcast_join(net_sockfd_t *sockobj);

/* ---- Waiting and timed I/O ---- */

/**
 * Waits by select(2) until the socket can be read. Retries at once, each time with the whole time-out.
 * @param timeout  [ms] 0 looks once; a negative one is an error
 * @return positive when it can, 0 when the time is up, -1 on failure
 */
VEXAMSG_API int net_read_timeout(net_sockfd_t *sockobj, int timeout);

/** As net_read_timeout, until the socket can be written. */
VEXAMSG_API int net_write_timeout(net_sockfd_t *sockobj, int timeout);

/**
 * Waits as net_read_timeout does, then receives once as net_recv does.
 * @param timeout  [ms]
 * @return bytes received, at least 1; -1 on failure, when the time is up (ETIMEDOUT), and at the end of a
 * stream, which leaves `errno` as it was
 */
VEXAMSG_API int net_readn_timeout(net_sockfd_t *sockobj, void *buf, int len, unsigned timeout);

/**
 * Waits by poll(2) until a descriptor of any number can be read, or has failed or been hung up. Retries at
 * once, each time with the whole time-out.
 * @param sockfd        a negative one is never ready
 * @param milliseconds  a negative number waits without a limit
 * @return 1 when it can, 0 when the time is up, -1 on failure
 */
VEXAMSG_API int net_wait_readable(int sockfd, int milliseconds);

/** As net_wait_readable, until the descriptor can be written. */
VEXAMSG_API int net_wait_writeable(int sockfd, int milliseconds);

/**
 * Waits as net_wait_readable does, then receives once as net_recv does.
 * @param count  [bytes] the most that is written to `buf`; above INT_MAX counts as INT_MAX
 * @return bytes received; 0 when the time is up, and at the end of a stream; -1 on failure
 */
VEXAMSG_API int net_recv_timedwait(net_sockfd_t *sockobj, void *buf, size_t count, int milliseconds);

/**
 * Waits as net_wait_readable does, then reads once from any descriptor. Retries at once.
 * @param count  [bytes] the most that is written to `buf`
 * @return bytes read; 0 when the time is up (logged) and at the end of the input; -1 on failure (logged when
 * it was the wait that failed)
 */
VEXAMSG_API int net_read_timedwait(int fd, void *buf, size_t count, int milliseconds);

/**
 * Writes a whole buffer to any descriptor, waiting up to 10 s before each write. Retries at once.
 * @param count  [bytes] at most INT_MAX
 * @return `count`; -1 on failure, also when the wait failed or the descriptor took nothing for 10 s (both
 * logged, the latter ETIMEDOUT); how much went out before is not told
 */
VEXAMSG_API int net_writen_timedwait(int fd, const void *buf, size_t count);

/* ---- Interface queries ---- */

/**
 * The hardware address of a network interface.
 * @param ifname  such as "eth0"; cut after 15 characters
 * @param mac     receives 6 bytes; untouched on failure
 * @return 0; -1 on failure, with EINVAL when either is NULL
 */
VEXAMSG_API int net_get_hwaddr(const char *ifname, unsigned char *mac);

/**
 * The IPv4 address of a network interface.
 * @param ifname  such as "eth0"; cut after 15 characters
 * @return dotted-quad text in the C library's buffer for inet_ntoa, good until the next call that uses it;
 * NULL on failure
 */
VEXAMSG_API char *net_get_ifaddr(const char *ifname);

#ifdef __cplusplus
}
#endif

#endif
