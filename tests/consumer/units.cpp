// The same in C++.
#include "hb_mgr.h"
#include "utils/ut_evt.h"
#include "utils/ut_list.h"
#include "vision_log.h"
#include "vision_service_route_funcs.h"
#include "vxlink/vxlink.h"

#include <cstdio>
#include <memory>
#include <string>

int main() {
    ControlLogInit("consumer");
    ControlLog(MODULE_VEXA_VISION, VISION_LOG_LEVEL_INFO, "units", __func__, __LINE__, "a line of the log\n");

    list_type no_hooks{};
    const std::unique_ptr<list_t, decltype(&list_release)> list{list_create(&no_hooks), list_release};
    int value = 7;
    list_add_node_tail(list.get(), &value);
    HeartBeatPair pair{VIO_MODE, 2};
    hbmgr_set_hb(&pair, 1);
    VPHeartbeatFrame frame;
    hbmgr_get_hb(&frame);
    ut_loop_init();
    const std::string digits = "123456789";
    const uint16_t crc = crc_calculate(reinterpret_cast<const uint8_t *>(digits.data()), 9);
    printf("list %lu, heartbeat %zu bytes, crc %04X, loop %s, libev %d, in %s\n", list->len, sizeof frame,
           crc, ut_default_loop != nullptr ? "made" : "missing", ev_version_major(), "C++");
}
