/* A process that says hello, is answered, and answers: on a bare libev loop, with what the bus sends. */
#include "bare_start.h"

#include <stdlib.h>

static int answering_socket(void) {
    return sock;
}

int main(void) {
    if (open_socket() != 0) {
        return EXIT_FAILURE;
    }
    ev_io readable;
    struct ev_loop *loop = make_loop(&readable);
    send_bytes(sock, k_hello_bytes);
    ev_run(loop, 0);
    return EXIT_SUCCESS;
}
