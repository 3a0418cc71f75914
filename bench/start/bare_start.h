/**
 * @file
 * What the bare programs of the start-up measurement share: a socket, and what is said on it.
 */
#ifndef BENCH_BARE_START_H
#define BENCH_BARE_START_H

#include <arpa/inet.h>
#include <ev.h>
#include <stdint.h>
#include <string.h>
#include <sys/socket.h>

enum { k_port = 9005, k_manager_port = 9000, k_hello_bytes = 58, k_message_bytes = 80 };

static struct sockaddr_in manager;
static int sock;

static void send_bytes(int from, size_t size) {
    uint8_t bytes[k_message_bytes];
    memset(bytes, 0, sizeof bytes);
    (void)sendto(from, bytes, size, 0, (const struct sockaddr *)&manager, sizeof manager);
}

/* The program's own: where its message leaves. */
static int answering_socket(void);

/* The bus tells a manager's notice and a message apart by the fourth byte; this does no more. */
static void on_readable(struct ev_loop *loop, ev_io *watcher, int events) {
    (void)loop;
    (void)watcher;
    (void)events;
    uint8_t bytes[8192];
    while (recv(sock, bytes, sizeof bytes, 0) >= 0) {
        if (bytes[3] == 1) {
            send_bytes(answering_socket(), k_message_bytes);
        }
    }
}

/* The port is the node's; 0, or -1 when it is taken. */
static int open_socket(void) {
    struct sockaddr_in own;
    memset(&own, 0, sizeof own);
    own.sin_family = AF_INET;
    own.sin_port = htons(k_port);
    manager = own;
    manager.sin_port = htons(k_manager_port);
    (void)inet_pton(AF_INET, "192.168.1.1", &manager.sin_addr);
    sock = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    return sock < 0 ? -1 : bind(sock, (const struct sockaddr *)&own, sizeof own);
}

static struct ev_loop *make_loop(ev_io *readable) {
    struct ev_loop *loop = ev_loop_new(EVFLAG_NOENV);
    ev_io_init(readable, on_readable, sock, EV_READ);
    ev_io_start(loop, readable);
    return loop;
}

#endif
