/* A process that says hello, is answered, and answers: on a bare libev loop, with what the bus sends. */
#include <arpa/inet.h>
#include <ev.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

enum { k_port = 9005, k_manager_port = 9000, k_hello_bytes = 58, k_message_bytes = 80 };

static struct sockaddr_in manager;
static int sock;

static void send_bytes(size_t size) {
    uint8_t bytes[k_message_bytes];
    memset(bytes, 0, sizeof bytes);
    (void)sendto(sock, bytes, size, 0, (const struct sockaddr *)&manager, sizeof manager);
}

/* The bus tells a manager's notice and a message apart by the fourth byte; this does no more. */
static void on_readable(struct ev_loop *loop, ev_io *watcher, int events) {
    (void)loop;
    (void)watcher;
    (void)events;
    uint8_t bytes[8192];
    while (recv(sock, bytes, sizeof bytes, 0) >= 0) {
        if (bytes[3] == 1) {
            send_bytes(k_message_bytes);
        }
    }
}

int main(void) {
    struct sockaddr_in own;
    memset(&own, 0, sizeof own);
    own.sin_family = AF_INET;
    own.sin_port = htons(k_port);
    manager = own;
    manager.sin_port = htons(k_manager_port);
    (void)inet_pton(AF_INET, "192.168.1.1", &manager.sin_addr);
    sock = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    if (sock < 0 || bind(sock, (const struct sockaddr *)&own, sizeof own) != 0) {
        return EXIT_FAILURE;
    }
    struct ev_loop *loop = ev_loop_new(EVFLAG_NOENV);
    ev_io readable;
    ev_io_init(&readable, on_readable, sock, EV_READ);
    ev_io_start(loop, &readable);
    send_bytes(k_hello_bytes);
    ev_run(loop, 0);
    return EXIT_SUCCESS;
}
