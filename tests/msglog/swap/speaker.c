/* Logs one line with whatever log library it was linked to. */
#include "vision_log.h"

int main(void) {
    ControlLogInit("speaker");
    ControlLog(MODULE_MSG_ROUTE, VISION_LOG_LEVEL_WARN, "src/speaker", __func__, 7, "%d apples\n", 3);
    return 0;
}
