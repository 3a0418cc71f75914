/* proxy: node 127. Hands heartbeat changes on to every node, and what is for the ids behind it to standard
 * output. */
#include "vision_service_route_funcs.h"

#include <signal.h>
#include <stdio.h>

/* Every node's message to an id from 127 up comes here; `dst` says whom it is for. */
static void on_message(void *payload, MsgExtra *extra) {
    printf("for %d from %d: %.*s\n", (int)extra->dst, (int)extra->src, extra->len - 16,
           (const char *)payload);
    fflush(stdout);
}

int main(void) {
    sigset_t end;
    sigemptyset(&end);
    sigaddset(&end, SIGINT);
    sigaddset(&end, SIGTERM);
    sigprocmask(SIG_BLOCK, &end, NULL); /* before the start: the library's threads inherit it */
    if (vision_msg_component_init(PROXY_NODE_ID, "proxy", "192.168.1.127", on_message) != 0) {
        return 1;
    }
    printf("started\n"); /* heartbeat changes are applied and handed on without a line of code here */
    fflush(stdout);
    int signal_number = 0;
    sigwait(&end, &signal_number);
    vision_msg_component_deinit();
}
