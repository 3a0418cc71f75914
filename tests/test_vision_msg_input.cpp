// Input that the link's senders refuse: -1, one line in the log with the values in it, nothing sent, no
// number used.
#include "vision_protocol.h"

#include "link_samples.h"
#include "log_capture.h"
#include "udp_peer.h"
#include "vision_log.h"

#include <chrono>
#include <gtest/gtest.h>
#include <string>

using namespace std::chrono_literals;

namespace {

class RefusedInput : public testing::Test {
protected:
    void expect_one_error(const std::string &function, const std::string &text) const {
        const auto lines = logs::all();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].level, VISION_LOG_LEVEL_ERROR);
        EXPECT_EQ(lines[0].module, MODULE_MSG_ROUTE);
        EXPECT_EQ(lines[0].unit, "src/vision_msg");
        EXPECT_EQ(lines[0].function, function);
        EXPECT_EQ(lines[0].text, text);
    }

    void expect_nothing_sent() {
        EXPECT_EQ(flight.receive(0ms), std::nullopt);
        EXPECT_EQ(camera.receive(0ms), std::nullopt);
        EXPECT_EQ(send_ifly_command_ack(1, 1), 48);
        EXPECT_EQ(ut_get_le16(flight.receive().value().data() + 12), 0) << "a refusal uses no number";
    }

    udp_peer flight{"192.168.1.5", 5673};
    udp_peer camera{"192.168.1.11", 5685};
};

vxlink_message_head_t frame_of_length(uint16_t len) {
    vxlink_message_head_t frame{};
    frame.len = len;
    return frame;
}

} // namespace

TEST_F(RefusedInput, TrackStatusThatIsNull) {
    EXPECT_EQ(send_message_track_status(nullptr), -1);
    expect_one_error("send_message_track_status", "msg type 0x90d not sent, the record is NULL\n");
    expect_nothing_sent();
}

TEST_F(RefusedInput, GoalAreaThatIsNull) {
    EXPECT_EQ(send_message_track_area_array(nullptr), -1);
    expect_one_error("send_message_track_area_array", "msg type 0x90c not sent, the record is NULL\n");
    expect_nothing_sent();
}

TEST_F(RefusedInput, OrbitStatusThatIsNull) {
    EXPECT_EQ(send_message_orbit_status(nullptr), -1);
    expect_one_error("send_message_orbit_status", "msg type 0x90f not sent, the record is NULL\n");
    expect_nothing_sent();
}

TEST_F(RefusedInput, OrbitAreaThatIsNull) {
    EXPECT_EQ(send_message_orbit_area(nullptr), -1);
    expect_one_error("send_message_orbit_area", "msg type 0x910 not sent, the record is NULL\n");
    expect_nothing_sent();
}

TEST_F(RefusedInput, GeneralMessageThatIsNull) {
    EXPECT_EQ(send_general_message(0x0907, nullptr), -1);
    expect_one_error("send_general_message", "msg type 0x907 not sent, pMav is NULL\n");
    expect_nothing_sent();
}

TEST_F(RefusedInput, CameraMessageThatIsNull) {
    EXPECT_EQ(send_general_message_cam(0x0900, nullptr), -1);
    expect_one_error("send_general_message_cam", "msg type 0x900 not sent, pMav is NULL\n");
    expect_nothing_sent();
}

TEST_F(RefusedInput, GeneralMessageLongerThanARecordHolds) {
    vxlink_message_head_t frame = frame_of_length(521);
    EXPECT_EQ(send_general_message(0x0901, &frame), -1);
    expect_one_error("send_general_message", "msg type 0x901 not sent, len 521 is above 520\n");
    expect_nothing_sent();
}

TEST_F(RefusedInput, CameraMessageLongerThanARecordHolds) {
    vxlink_message_head_t frame = frame_of_length(65535);
    EXPECT_EQ(send_general_message_cam(0x0900, &frame), -1);
    expect_one_error("send_general_message_cam", "msg type 0x900 not sent, len 65535 is above 520\n");
    expect_nothing_sent();
}

TEST_F(RefusedInput, CameraCommandThatIsTooLongIsRefusedSilently) {
    unsigned char data[64] = {};
    EXPECT_EQ(send_ifly_command_cam(1, data, 32), -1);
    EXPECT_EQ(send_ifly_command_cam(1, nullptr, 65535), -1);
    EXPECT_TRUE(logs::all().empty());
    expect_nothing_sent();
}

TEST_F(RefusedInput, CameraCommandWithALengthButNoData) {
    EXPECT_EQ(send_ifly_command_cam(0x11, nullptr, 3), -1);
    expect_one_error("send_ifly_command_cam", "command 0x11 not sent, pData is NULL, length 3\n");
    expect_nothing_sent();
}

TEST_F(RefusedInput, DatagramWithALengthButNoBytes) {
    char ip[] = "192.168.1.5";
    EXPECT_EQ(vision_udp_send(nullptr, 4, ip, 5673), -1);
    const auto lines = logs::with_format("not sent, sData %p, dwLen %d, sIpAddr %s\n");
    ASSERT_EQ(lines.size(), 1U);
    expect_one_error("vision_udp_send", "not sent, sData (nil), dwLen 4, sIpAddr 192.168.1.5\n");
    expect_nothing_sent();
}

TEST_F(RefusedInput, DatagramOfANegativeLength) {
    char ip[] = "192.168.1.5";
    EXPECT_EQ(vision_udp_send(nullptr, -1, ip, 5673), -1);
    expect_one_error("vision_udp_send", "not sent, sData (nil), dwLen -1, sIpAddr 192.168.1.5\n");
    expect_nothing_sent();
}

TEST_F(RefusedInput, DatagramWithoutAnAddress) {
    EXPECT_EQ(vision_udp_send(nullptr, 0, nullptr, 5673), -1);
    expect_one_error("vision_udp_send", "not sent, sData (nil), dwLen 0, sIpAddr NULL\n");
    expect_nothing_sent();
}
