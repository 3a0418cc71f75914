// The numbers behind the link's names.
#include "vxlink/vxlink_types.h"

#include <gtest/gtest.h>
#include <utility>

TEST(LinkNames, OfDevicesHaveTheirNumbers) {
    constexpr std::pair<MAV_COMPONENT, unsigned> rows[] = {{DEV_NONE, 0},
                                                           {DEV_UAV, 1},
                                                           {DEV_DSP, 2},
                                                           {DEV_DSP_RC, 3},
                                                           {DEV_RC_PLAYER, 4},
                                                           {DEV_ESC_PITCH, 7},
                                                           {DEV_ESC_ROLL, 8},
                                                           {DEV_ESC_YAW, 9},
                                                           {DEV_BATTERY, 10},
                                                           {DEV_GIMBAL, 11},
                                                           {DEV_TOF, 12},
                                                           {DEV_RC_ANDROID, 13},
                                                           {DEV_RC, 14},
                                                           {DEV_SONAR, 15},
                                                           {DEV_RADAR, 16},
                                                           {DEV_ESC1, 20},
                                                           {DEV_ESC2, 21},
                                                           {DEV_ESC3, 22},
                                                           {DEV_ESC4, 23},
                                                           {DEV_SWITCHER, 24},
                                                           {DEV_MOVIDIUS_1, 25},
                                                           {DEV_MOVIDIUS_2, 26},
                                                           {DEV_MOVIDIUS_3, 27},
                                                           {DEV_PC, 28},
                                                           {DEV_APP, 32},
                                                           {DEV_CAMERA, 33},
                                                           {DEV_MULTICAST, 254},
                                                           {DEV_BROADCAST, 255},
                                                           {MAV_COMPONENT_ENUM_END, 256}};
    for (const auto &[name, number] : rows) {
        EXPECT_EQ(static_cast<unsigned>(name), number);
    }
}

TEST(LinkNames, OfParseStatesHaveTheirNumbers) {
    constexpr vxlink_parse_state_t in_order[] = {
        VXLINK_PARSE_STATE_UNINIT,      VXLINK_PARSE_STATE_IDLE,          VXLINK_PARSE_STATE_GOT_STX,
        VXLINK_PARSE_STATE_GOT_SEQ,     VXLINK_PARSE_STATE_GOT_LENGTH_LO, VXLINK_PARSE_STATE_GOT_LENGTH_HI,
        VXLINK_PARSE_STATE_GOT_DESTID,  VXLINK_PARSE_STATE_GOT_SOURCEID,  VXLINK_PARSE_STATE_GOT_MSGID,
        VXLINK_PARSE_STATE_GOT_CHKSUM,  VXLINK_PARSE_STATE_GOT_PAYLOAD,   VXLINK_PARSE_STATE_GOT_CRC1,
        VXLINK_PARSE_STATE_GOT_BAD_CRC1};
    unsigned number = 0;
    for (const vxlink_parse_state_t state : in_order) {
        EXPECT_EQ(static_cast<unsigned>(state), number++);
    }
    EXPECT_EQ(number, 13U);
}

TEST(LinkNames, OfChannelsHaveTheirNumbers) {
    EXPECT_EQ(VXLINK_COMM_0, 0U);
    EXPECT_EQ(VXLINK_COMM_1, 1U);
    EXPECT_EQ(VXLINK_COMM_2, 2U);
    EXPECT_EQ(VXLINK_COMM_3, 3U);
}
