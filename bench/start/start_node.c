/* The same on the bus: a node that registers, is answered, and answers. */
#include "vision_service_route_funcs.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static void on_message(void *payload, MsgExtra *extra) {
    (void)payload;
    (void)extra;
    char answer[64];
    memset(answer, 0, sizeof answer);
    (void)vision_send_msg(NODE_RESERVED_ZERO, answer, (int)sizeof answer);
}

int main(void) {
    if (vision_msg_component_init(NODE_SOA, "start", "192.168.1.1", on_message) != 0) {
        return EXIT_FAILURE;
    }
    for (;;) {
        (void)pause();
    }
}
