// What C code makes of the link's headers is what C++ code makes of them.
#include "test_vxlink_c11.h"

#include "link_samples.h"
#include "udp_peer.h"
#include "vectors.h"

#include <gtest/gtest.h>

namespace {

template <class Make, class... Record>
std::vector<uint8_t> image_made_by(Make make, const Record *...record) {
    std::vector<uint8_t> image(C11_IMAGE_SIZE);
    image.resize(make(image.data(), record...));
    return image;
}

} // namespace

TEST(VxlinkFromC, PacksACommand) {
    EXPECT_EQ(image_made_by(c11_packed_command), vectors::bytes("link_frame_command"));
}

TEST(VxlinkFromC, EncodesACommand) {
    const auto record = samples::movidus_command();
    EXPECT_EQ(image_made_by(c11_encoded_command, &record), vectors::bytes("link_frame_command"));
}

TEST(VxlinkFromC, EncodesAGoalArea) {
    const auto record = samples::movidus_report_goal_area();
    EXPECT_EQ(image_made_by(c11_encoded_goal_area, &record), vectors::bytes("link_frame_goal_area"));
}

TEST(VxlinkFromC, EncodesATrackStatus) {
    const auto record = samples::movidus_report_track_status();
    EXPECT_EQ(image_made_by(c11_encoded_track_status, &record), vectors::bytes("link_frame_track_status"));
}

TEST(VxlinkFromC, EncodesAnOrbitStatus) {
    const auto record = samples::movidus_report_orbit_status();
    EXPECT_EQ(image_made_by(c11_encoded_orbit_status, &record), vectors::bytes("link_frame_orbit_status"));
}

TEST(VxlinkFromC, EncodesAnOrbitArea) {
    const auto record = samples::movidus_report_orbit_area();
    EXPECT_EQ(image_made_by(c11_encoded_orbit_area, &record), vectors::bytes("link_frame_orbit_area"));
}

TEST(VxlinkFromC, NumbersFramesTogetherWithTheOtherSourcesOfTheProgram) {
    const auto record = samples::movidus_command();
    vxlink_message_head_t frame;
    vxlink_msg_movidus_command_encode(DEV_APP, DEV_MOVIDIUS_1, &frame, &record);
    EXPECT_EQ(frame.seq, 0);
    EXPECT_EQ(c11_next_seq(DEV_APP), 1);
    vxlink_msg_movidus_command_encode(DEV_APP, DEV_MOVIDIUS_1, &frame, &record);
    EXPECT_EQ(frame.seq, 2);
}

TEST(VxlinkFromC, SeesTheSameFlagByte) {
    EXPECT_EQ(c11_flag_byte(), 0xF0);
}

TEST(VxlinkFromC, SendsACameraCommand) {
    udp_peer camera("192.168.1.11", 5685);
    uint8_t data[] = {0xA0, 0xA1, 0xA2};
    EXPECT_EQ(c11_sent_command(0x11, data, 3), 0);
    EXPECT_EQ(camera.receive().value(), vectors::bytes("link_datagram_camera_command"));
}
