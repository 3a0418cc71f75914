/* A program in C that uses a unit from each folder of the installed headers, libev and the log library. */
#include "hb_mgr.h"
#include "utils/ut_evt.h"
#include "utils/ut_list.h"
#include "vision_log.h"
#include "vision_service_route_funcs.h"
#include "vxlink/vxlink.h"

#include <stdio.h>

int main(void) {
    ControlLogInit("consumer");
    ControlLog(MODULE_VEXA_VISION, VISION_LOG_LEVEL_INFO, "units", __func__, __LINE__, "a line of the log\n");

    list_type no_hooks = {NULL, NULL, NULL};
    list_t *list = list_create(&no_hooks);
    int value = 7;
    list_add_node_tail(list, &value);
    HeartBeatPair pair = {VIO_MODE, 2};
    hbmgr_set_hb(&pair, 1);
    struct VPHeartbeatFrame frame;
    hbmgr_get_hb(&frame);
    ut_loop_init();
    printf("list %lu, heartbeat %zu bytes, crc %04X, loop %s, libev %d, in %s\n", list->len, sizeof frame,
           crc_calculate((const uint8_t *)"123456789", 9), ut_default_loop != NULL ? "made" : "missing",
           ev_version_major(), "C");
    list_release(list);
}
