/* heartbeat OWN-ID: says that its obstacle avoidance runs, and waits until somebody has set the work mode. */
#include "vision_service_route_funcs.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

int main(int argc, char **argv) {
    if (argc != 2 ||
        vision_msg_component_init((NodeID)atoi(argv[1]), "heartbeat", "192.168.1.2", NULL) != 0) {
        return 1;
    }
    /* Applied to the own frame at once and sent to the proxy, which tells everybody. */
    const HeartBeatPair changes[] = {{SOA_MODE, 2}, {SOA_RATE, 30}};
    if (vision_set_hearbeat(changes, 2) != 0) {
        return 1;
    }
    struct VPHeartbeatFrame frame;
    vision_get_hearbeat(&frame);
    printf("mode %d, rate %d\n", frame.core.details.soa_mode, frame.core.details.soa_rate);
    fflush(stdout);
    while (frame.task.details.work_mode == 0) {
        usleep(10000);
        vision_get_hearbeat(&frame);
    }
    printf("work mode %d\n", frame.task.details.work_mode);
    vision_msg_component_deinit();
}
