// The frames behind the datagrams. Frame numbers do not travel, so this program contains the library's
// objects itself and with them looks at the senders' own table of channels.
#include "vision_protocol.h"

#include "link_samples.h"

#include <gtest/gtest.h>

namespace {

uint8_t next_seq(uint8_t dest_id, uint8_t chan = VXLINK_COMM_0) {
    return __atomic_load_n(&vxlink_get_channel_status(chan)->current_tx_seq[dest_id], __ATOMIC_RELAXED);
}

} // namespace

TEST(FramesOfSenders, AreNumberedOneByOneToTheFlightSide) {
    auto track = samples::movidus_report_track_status();
    auto goal = samples::movidus_report_goal_area();
    auto status = samples::movidus_report_orbit_status();
    auto area = samples::movidus_report_orbit_area();
    EXPECT_EQ(next_seq(DEV_APP), 0);
    send_message_track_status(&track);
    EXPECT_EQ(next_seq(DEV_APP), 1);
    send_message_track_area_array(&goal);
    EXPECT_EQ(next_seq(DEV_APP), 2);
    send_message_orbit_status(&status);
    EXPECT_EQ(next_seq(DEV_APP), 3);
    send_message_orbit_area(&area);
    EXPECT_EQ(next_seq(DEV_APP), 4);
    send_ifly_command_ack(1, 1);
    EXPECT_EQ(next_seq(DEV_APP), 5);
    send_ifly_command_ack_rc(1, 1, 1);
    EXPECT_EQ(next_seq(DEV_APP), 6);
    vision_test_send_track_status();
    EXPECT_EQ(next_seq(DEV_APP), 7);
}

TEST(FramesOfSenders, ToTheCameraHaveTheirOwnNumbers) {
    send_ifly_command_ack(1, 1);
    send_ifly_command_cam(1, nullptr, 0);
    send_ifly_command_cam(1, nullptr, 0);
    EXPECT_EQ(next_seq(DEV_CAMERA), 2);
    EXPECT_EQ(next_seq(DEV_APP), 1);
}

TEST(FramesOfSenders, GoOverTheFirstChannelToNobodyElse) {
    send_ifly_command_ack(1, 1);
    send_ifly_command_cam(1, nullptr, 0);
    for (unsigned dest = 0; dest < 256; ++dest) {
        const int expected = dest == DEV_APP || dest == DEV_CAMERA ? 1 : 0;
        EXPECT_EQ(next_seq(static_cast<uint8_t>(dest)), expected) << dest;
        for (uint8_t chan = 1; chan < VXLINK_CHANNEL_COUNT; ++chan) {
            ASSERT_EQ(next_seq(static_cast<uint8_t>(dest), chan), 0);
        }
    }
}

TEST(FramesOfSenders, StartAgainAfter256) {
    for (int i = 0; i < 257; ++i) {
        send_ifly_command_ack(1, 1);
    }
    EXPECT_EQ(next_seq(DEV_APP), 1);
}

TEST(FramesOfSenders, ThatSendAFinishedFrameTakeNoFrameNumber) {
    vxlink_message_head_t frame{};
    send_general_message(0x0901, &frame);
    send_general_message_cam(0x0900, &frame);
    EXPECT_EQ(next_seq(DEV_APP), 0);
    EXPECT_EQ(next_seq(DEV_CAMERA), 0);
}

TEST(FramesOfSenders, ThatAreRefusedTakeNoFrameNumber) {
    EXPECT_EQ(send_message_track_status(nullptr), -1);
    EXPECT_EQ(send_ifly_command_cam(1, nullptr, 1), -1);
    EXPECT_EQ(send_ifly_command_cam(1, nullptr, 32), -1);
    EXPECT_EQ(next_seq(DEV_APP), 0);
    EXPECT_EQ(next_seq(DEV_CAMERA), 0);
}
