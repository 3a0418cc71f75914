/* The event loop, the timers and the socket addresses through their headers, compiled as C11. */
#include "ut_loop_in_c.h"

#include "utils/ut_evt.h"
#include "utils/ut_sock.h"
#include "utils/ut_timer.h"

#include <string.h>
#include <unistd.h>

#define CHECK(condition)                                                                                     \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            return __LINE__;                                                                                 \
        }                                                                                                    \
    } while (0)

static char received[16];

static void keep(socket_io_t *sio, void *buf, int len) {
    memcpy(received, buf, (size_t)len);
    ev_io_stop(sio->loop, &sio->ev);
}

static socket_io_t sio = {.pipefd_wr = -1, .proc_msg = keep};

int c_loop_reads_a_datagram(void) {
    ut_addr_t addr;
    int type = 0;
    CHECK(ut_sock_cfg_parse("udp@127.0.0.1:0", &addr, &type) == 0);
    sio.sockfd = socket((int)addr.family, type, 0);
    CHECK(bind(sio.sockfd, (struct sockaddr *)&addr.in, addr.addrlen) == 0);
    CHECK(ut_sock_set_nonblock(sio.sockfd) == 0);
    CHECK(ut_sock_host_addr(sio.sockfd, &addr) == 0);
    CHECK(sendto(sio.sockfd, "to myself", 10, 0, (struct sockaddr *)&addr.in, addr.addrlen) == 10);
    ut_loop_init();
    sio.loop = ut_default_loop;
    ev_io_init(&sio.ev, on_read, sio.sockfd, EV_READ);
    ev_io_start(sio.loop, &sio.ev);
    ut_loop_run(); /* until the handler has stopped the watcher */
    CHECK(strcmp(received, "to myself") == 0);
    CHECK(sio.fromAddr.sin_port == addr.in.sin_port);
    CHECK(close(sio.sockfd) == 0);
    return 0;
}

static void count_to_three(ut_timer *timer, void *privdata) {
    int *count = privdata;
    if (++*count == 3) {
        ut_timer_stop(timer);
    }
}

int c_timer_repeats_until_stopped(void) {
    static ut_timer timer;
    int count = 0;
    ut_timer_set(&timer, 0.001, true, count_to_three, &count);
    ut_timer_start(&timer);
    CHECK(ut_timer_active(&timer));
    CHECK(ut_timer_remaining(&timer) > 0);
    ut_loop_run();
    CHECK(count == 3);
    CHECK(!ut_timer_active(&timer));
    return 0;
}

int c_sock_reads_descriptions(void) {
    ut_addr_t addr;
    int type = 0;
    char text[UT_SOCK_HUMAN_ADDR_SIZE];
    char ip[UT_SOCK_IP_SIZE];
    CHECK(ut_sock_cfg_parse("tcp@10.0.0.1:0x10", &addr, &type) == 0);
    CHECK(type == SOCK_STREAM);
    CHECK(addr.family == AF_INET && addr.addrlen == sizeof addr.in);
    CHECK(strcmp(ut_sock_human_addr_s(&addr, text), "10.0.0.1:16") == 0);
    CHECK(strcmp(ut_sock_ip_s(&addr, ip), "10.0.0.1") == 0);
    CHECK(ut_sock_cfg_parse("seqpacket@/tmp/s", &addr, &type) == 0);
    CHECK(type == SOCK_SEQPACKET);
    CHECK(strcmp(ut_sock_human_addr(&addr), "unix:/tmp/s") == 0);
    CHECK(ut_sock_cfg_parse("udp@localhost:1", &addr, &type) == -4);
    return 0;
}
