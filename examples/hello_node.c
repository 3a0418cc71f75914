/* hello_node OWN-ID PEER-ID: says hello to the peer five times and prints what it hears meanwhile. */
#include "vision_service_route_funcs.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

static void on_message(void *payload, MsgExtra *extra) {
    printf("node %d says %.*s\n", (int)extra->src, extra->len - 16, (const char *)payload);
}

int main(int argc, char **argv) {
    if (argc != 3 ||
        vision_msg_component_init((NodeID)atoi(argv[1]), "hello", "192.168.1.2", on_message) != 0) {
        return 1;
    }
    for (int i = 0; i < 5; ++i) { /* refused until the node manager has told where the peer is */
        sleep(1);
        vision_send_msg((NodeID)atoi(argv[2]), "hello", 5);
    }
    vision_msg_component_deinit();
}
