/* polling OWN-ID: asks for the newest radar status ten times a second until one says "stop". */
#include "vision_service_route_funcs.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

int main(int argc, char **argv) {
    if (argc != 2 || vision_msg_component_init((NodeID)atoi(argv[1]), "polling", "192.168.1.2", NULL) != 0) {
        return 1;
    }
    printf("started\n");
    fflush(stdout);
    static char payload[8192]; /* the largest there is; how much room there is cannot be said */
    char last[64] = "";
    while (strcmp(last, "stop") != 0) {
        MsgExtra extra = {0};
        /* The message stays: the same one comes again until a newer one of its type has arrived. */
        const int len = vision_recv_status(MSG_SOA_RADAR_MSG, payload, sizeof payload, &extra);
        char text[64] = "";
        if (len > 2) { /* the first two bytes are the type */
            snprintf(text, sizeof text, "%.*s", len - 2, payload + 2);
        }
        if (strcmp(text, last) != 0) {
            printf("node %d: %s\n", (int)extra.src, text);
            fflush(stdout);
            memcpy(last, text, sizeof last);
        }
        usleep(100000);
    }
    vision_msg_component_deinit();
}
