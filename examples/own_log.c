/* own_log: takes the library's log lines itself. The loader prefers these two functions to those of the log
 * library. */
#include "vision_log.h"
#include "vision_service_route_funcs.h"

#include <stdarg.h>
#include <stdio.h>

void ControlLogInit(const char *name) {
    printf("log of %s\n", name);
}

/* Called from several threads, with locks of the library held: it must not call the library. */
void ControlLog(int module, int level, const char *file, const char *function, int line, const char *format,
                ...) {
    (void)line;
    if (module != MODULE_MSG_ROUTE || level > VISION_LOG_LEVEL_ERROR) {
        return;
    }
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    printf("%s in %s: %s", file, function, text);
}

int main(void) {
    vision_send_msg(NODE_VIO, "too early", 9); /* logs that nobody is active */
    if (vision_msg_component_init(NODE_SOA, "own_log", "192.168.1.2", NULL) == 0) {
        vision_send_msg(NODE_VIO, NULL, 9); /* nor now: there is no node manager */
        vision_msg_component_deinit();
    }
}
