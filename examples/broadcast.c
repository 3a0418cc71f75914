/* broadcast OWN-ID PEER-ID: waits for the peer, then tells every active node whose id is below its own. */
#include "node_mapping.h"
#include "vision_service_route_funcs.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

int main(int argc, char **argv) {
    if (argc != 3 ||
        vision_msg_component_init((NodeID)atoi(argv[1]), "broadcast", "192.168.1.2", NULL) != 0) {
        return 1;
    }
    while (nmapping_get_stat((uint16_t)atoi(argv[2])) != NODE_STAT_ACTIVED) {
        usleep(10000);
    }
    /* Both are queued; the I/O thread sends one datagram to each receiver. Nodes above this one get nothing.
     */
    const int message = vision_brocast_msg("landing", 7);
    const unsigned char status[] = {MSG_SECURELANDING_STATUS, 0,
                                    1}; /* its type in 2 bytes, then what it says */
    const int kept = vision_broadcast_status(status, sizeof status);
    printf("queued: %d, %d\n", message, kept);
    vision_msg_component_deinit(); /* what is queued leaves before the node does */
    return message == 0 && kept == 0 ? 0 : 1;
}
