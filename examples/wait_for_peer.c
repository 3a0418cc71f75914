/* wait_for_peer OWN-ID PEER-ID: starts a node, waits until its peer is active, says hello, leaves. */
#include "node_mapping.h"
#include "vision_service_route_funcs.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

/* The node manager tells where everybody is; until then every send is refused. */
static int wait_until_active(uint16_t id, int timeout_s) {
    for (int tries = 0; nmapping_get_stat(id) != NODE_STAT_ACTIVED; ++tries) {
        if (tries == timeout_s * 100) {
            return -1;
        }
        usleep(10000);
    }
    return 0;
}

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: wait_for_peer OWN-ID PEER-ID\n");
        return 2;
    }
    const NodeID own = (NodeID)atoi(argv[1]);
    const NodeID peer = (NodeID)atoi(argv[2]);
    if (vision_msg_component_init(own, "waiting", "192.168.1.2", NULL) != 0) {
        return 1;
    }
    const int found = wait_until_active((uint16_t)peer, 30);
    if (found == 0 && vision_send_msg(peer, "hello", 5) == 0) {
        printf("node %d is active\n", (int)peer);
    } else {
        printf("node %d is not there\n", (int)peer);
    }
    vision_msg_component_deinit();
    return found == 0 ? 0 : 1;
}
