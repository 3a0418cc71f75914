/**
 * @file
 * What every function of the component answers while there is no node.
 */
#ifndef TEST_REFUSALS_H
#define TEST_REFUSALS_H

#include "node_mapping.h"
#include "peer.h"
#include "vision_service_route_funcs.h"

#include <cstring>
#include <gtest/gtest.h>

namespace bus {

/** Calls them all. None may send, write to a descriptor, or touch what is gone. */
inline void expect_refusals() {
    const HeartBeatPair pair = {LED, 7};
    MsgExtra extra{};
    uint8_t room[8192];
    VPHeartbeatFrame before{};
    VPHeartbeatFrame after{};
    EXPECT_EQ(vision_get_hearbeat(&before), 0);
    for (const uint16_t dst : ids{0, 3, 9, 126, 127, 128, 64001, k_everybody}) {
        EXPECT_EQ(vision_send_msg(static_cast<NodeID>(dst), "x", 1), -1) << dst;
        EXPECT_EQ(vision_send_status(static_cast<NodeID>(dst), "x", 1), -1) << dst;
        for (const int kind : {0, 1, 2, 3, 4}) {
            EXPECT_EQ(vxmsg_send_general(dst, kind, "x", 1), -1) << dst << ' ' << kind;
        }
    }
    EXPECT_EQ(vision_broadcast_status("x", 1), -1);
    EXPECT_EQ(vision_brocast_msg("x", 1), -1);
    EXPECT_EQ(vision_recv_status(MSG_DETECTION_OBJECTS, room, sizeof room, nullptr), -1);
    EXPECT_EQ(vision_recv_status(MSG_DETECTION_OBJECTS, room, sizeof room, &extra), 0);
    EXPECT_EQ(extra.len, 0);
    EXPECT_EQ(vision_set_hearbeat(&pair, 1), -1);
    vision_send_heartbeat();
    EXPECT_EQ(vision_get_hearbeat(&after), 0);
    EXPECT_EQ(memcmp(&before, &after, sizeof before), 0);
    EXPECT_NE(nmapping_get_stat(0), 1);
}

} // namespace bus

#endif
