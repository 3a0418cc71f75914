// What the senders of the vision link put on the network.
#include "vision_protocol.h"

#include "link_samples.h"
#include "log_capture.h"
#include "udp_peer.h"
#include "vectors.h"
#include "vision_log.h"

#include <bit>
#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/time.h>

using namespace std::chrono_literals;

namespace {

using bytes_t = std::vector<uint8_t>;

class VisionMsg : public testing::Test {
protected:
    udp_peer flight{"192.168.1.5", 5673};
    udp_peer camera{"192.168.1.11", 5685};
};

uint16_t word_at(const bytes_t &datagram, size_t offset) {
    return ut_get_le16(datagram.data() + offset);
}

uint16_t sequence_of(const bytes_t &datagram) {
    return word_at(datagram, 12);
}

float float_at(const bytes_t &datagram, size_t offset) {
    return std::bit_cast<float>(ut_get_le32(datagram.data() + offset));
}

vxlink_message_head_t frame_with_payload(uint16_t len) {
    vxlink_message_head_t frame{};
    frame.len = len;
    for (uint16_t i = 0; i < len; ++i) {
        vxlink_payload(&frame)[i] = static_cast<uint8_t>(i * 3);
    }
    return frame;
}

uint64_t now_ns() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_usec) * 1000;
}

} // namespace

TEST_F(VisionMsg, TrackStatusIsItsImage) {
    auto record = samples::movidus_report_track_status();
    EXPECT_EQ(send_message_track_status(&record), 72);
    EXPECT_EQ(flight.receive().value(), vectors::bytes("link_datagram_track_status"));
}

TEST_F(VisionMsg, GoalAreaIsItsImageWithAllEightSlots) {
    auto record = samples::movidus_report_goal_area();
    EXPECT_EQ(send_message_track_area_array(&record), 432);
    EXPECT_EQ(flight.receive().value(), vectors::bytes("link_datagram_goal_area"));
}

TEST_F(VisionMsg, OrbitStatusIsItsImage) {
    auto record = samples::movidus_report_orbit_status();
    EXPECT_EQ(send_message_orbit_status(&record), 64);
    EXPECT_EQ(flight.receive().value(), vectors::bytes("link_datagram_orbit_status"));
}

TEST_F(VisionMsg, OrbitAreaIsItsImage) {
    auto record = samples::movidus_report_orbit_area();
    EXPECT_EQ(send_message_orbit_area(&record), 52);
    EXPECT_EQ(flight.receive().value(), vectors::bytes("link_datagram_orbit_area"));
}

TEST_F(VisionMsg, AcknowledgementIsItsImage) {
    EXPECT_EQ(send_ifly_command_ack(0x2A, 0x07), 48);
    EXPECT_EQ(flight.receive().value(), vectors::bytes("link_datagram_command_ack"));
}

TEST_F(VisionMsg, AcknowledgementWithMoreIsItsImage) {
    EXPECT_EQ(send_ifly_command_ack_rc(0x2A, 0x07, 0xDEADBEEF), 48);
    EXPECT_EQ(flight.receive().value(), vectors::bytes("link_datagram_command_ack_rc"));
}

TEST_F(VisionMsg, Type0907GoesToPhoneAndRemoteControl) {
    const auto record = samples::movidus_command();
    vxlink_message_head_t frame;
    vxlink_msg_movidus_command_encode(DEV_APP, DEV_MOVIDIUS_1, &frame, &record);
    EXPECT_EQ(send_general_message(0x0907, &frame), 48);
    EXPECT_EQ(flight.receive().value(), vectors::bytes("link_datagram_general_0907"));
}

TEST_F(VisionMsg, EveryOtherTypeGoesToThePhone) {
    vxlink_message_head_t frame = frame_with_payload(1);
    for (const int type : {0x0000, 0x0906, 0x0908, 0x0901, 0x0709, 0xFFFF}) {
        EXPECT_EQ(send_general_message(static_cast<unsigned short>(type), &frame), 17);
        const bytes_t datagram = flight.receive().value();
        EXPECT_EQ(word_at(datagram, 8), 0x1000) << type;
        EXPECT_EQ(word_at(datagram, 10), type);
    }
}

TEST_F(VisionMsg, CameraCommandIsItsImage) {
    unsigned char data[] = {0xA0, 0xA1, 0xA2};
    EXPECT_EQ(send_ifly_command_cam(0x11, data, 3), 0);
    EXPECT_EQ(camera.receive().value(), vectors::bytes("link_datagram_camera_command"));
    EXPECT_EQ(flight.receive(0ms), std::nullopt);
}

TEST_F(VisionMsg, CameraCommandIsLoggedAsASuccess) {
    unsigned char data[] = {0xA0};
    EXPECT_EQ(send_ifly_command_cam(0x11, data, 1), 0);
    const auto lines = logs::all();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, VISION_LOG_LEVEL_INFO);
    EXPECT_EQ(lines[0].module, MODULE_MSG_ROUTE);
    EXPECT_EQ(lines[0].unit, "src/vision_msg");
    EXPECT_EQ(lines[0].function, "send_general_message_cam");
    EXPECT_EQ(lines[0].format, "send msg type 0x%x to camera success\n");
    EXPECT_EQ(lines[0].text, "send msg type 0x900 to camera success\n");
}

TEST_F(VisionMsg, CameraCommandTakes31Bytes) {
    unsigned char data[31];
    memset(data, 0x77, sizeof data);
    EXPECT_EQ(send_ifly_command_cam(0x11, data, 31), 0);
    const bytes_t datagram = camera.receive().value();
    ASSERT_EQ(datagram.size(), 48U);
    EXPECT_EQ(bytes_t(datagram.begin() + 17, datagram.end()), bytes_t(31, 0x77));
}

TEST_F(VisionMsg, CameraCommandWithoutDataIsAllZeros) {
    unsigned char unused[] = {0x77};
    EXPECT_EQ(send_ifly_command_cam(0x11, unused, 0), 0);
    EXPECT_EQ(send_ifly_command_cam(0x12, nullptr, 0), 0);
    for (const uint8_t cmd : {uint8_t{0x11}, uint8_t{0x12}}) {
        const bytes_t datagram = camera.receive().value();
        ASSERT_EQ(datagram.size(), 48U);
        EXPECT_EQ(datagram[16], cmd);
        EXPECT_EQ(bytes_t(datagram.begin() + 17, datagram.end()), bytes_t(31, 0));
    }
}

TEST_F(VisionMsg, EveryTypeToTheCameraGoesToTheCamera) {
    vxlink_message_head_t frame = frame_with_payload(4);
    EXPECT_EQ(send_general_message_cam(0x0907, &frame), 0);
    EXPECT_EQ(camera.receive().value(),
              (bytes_t{0x00, 0x56, 0x01, 0xE0, 20, 0, 0x20, 0, 0x02, 0, 0x07, 0x09, 0, 0, 0, 0, 0, 3, 6, 9}));
}

TEST_F(VisionMsg, PayloadsOfEveryLengthTravelAlone) {
    for (const int len : {0, 1, 31, 255, 256, 416, 518, 520}) {
        vxlink_message_head_t frame = frame_with_payload(static_cast<uint16_t>(len));
        EXPECT_EQ(send_general_message(0x0901, &frame), len + 16);
        const bytes_t datagram = flight.receive().value();
        EXPECT_EQ(word_at(datagram, 4), len + 16);
        const uint8_t *payload = vxlink_payload(&frame);
        EXPECT_EQ(bytes_t(datagram.begin() + 16, datagram.end()), bytes_t(payload, payload + len));
    }
}

TEST_F(VisionMsg, TheSenderDoesNotChangeTheRecord) {
    vxlink_message_head_t frame = frame_with_payload(40);
    const vxlink_message_head_t before = frame;
    send_general_message(0x0901, &frame);
    send_general_message_cam(0x0901, &frame);
    EXPECT_EQ(memcmp(&frame, &before, sizeof frame), 0);
}

TEST_F(VisionMsg, DatagramsAreNumberedOneByOne) {
    for (uint16_t i = 0; i < 3; ++i) {
        send_ifly_command_ack(1, 1);
        EXPECT_EQ(sequence_of(flight.receive().value()), i);
    }
}

TEST_F(VisionMsg, FlightSideAndCameraShareTheNumbers) {
    auto area = samples::movidus_report_orbit_area();
    send_message_orbit_area(&area);
    send_ifly_command_cam(1, nullptr, 0);
    send_ifly_command_cam(2, nullptr, 0);
    send_ifly_command_ack(1, 1);
    EXPECT_EQ(sequence_of(flight.receive().value()), 0);
    EXPECT_EQ(sequence_of(camera.receive().value()), 1);
    EXPECT_EQ(sequence_of(camera.receive().value()), 2);
    EXPECT_EQ(sequence_of(flight.receive().value()), 3);
}

TEST_F(VisionMsg, NumbersRunBeyondOneByte) {
    for (unsigned i = 0; i < 300; ++i) {
        send_ifly_command_ack(1, 1);
        ASSERT_EQ(sequence_of(flight.receive().value()), i);
    }
}

TEST_F(VisionMsg, TheTestReportHasFixedValuesAndCountsItsCalls) {
    for (uint32_t id = 0; id < 3; ++id) {
        const uint64_t before = now_ns();
        EXPECT_EQ(vision_test_send_track_status(), 72);
        const uint64_t after = now_ns();
        const bytes_t datagram = flight.receive().value();
        ASSERT_EQ(datagram.size(), 72U);
        EXPECT_EQ(word_at(datagram, 10), 0x090D);
        const uint64_t timestamp = ut_get_le64(datagram.data() + 16);
        EXPECT_GE(timestamp, before);
        EXPECT_LE(timestamp, after);
        EXPECT_EQ(timestamp % 1000, 0U);
        const float floats[] = {0.2F, 0.25F, 0.18F, 0.16F, 0.9F, 10.0F};
        for (size_t i = 0; i < std::size(floats); ++i) {
            EXPECT_EQ(float_at(datagram, 24 + 4 * i), floats[i]) << i;
        }
        const uint32_t numbers[] = {1, 1, 1280, 720, id, 0}; // the last one is object_id
        for (size_t i = 0; i < std::size(numbers); ++i) {
            EXPECT_EQ(ut_get_le32(datagram.data() + 48 + 4 * i), numbers[i]) << i;
        }
    }
}

TEST_F(VisionMsg, ReportsThatAreSentAreNotLogged) {
    send_ifly_command_ack(1, 1);
    vision_test_send_track_status();
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(VisionMsg, SendingTakesAtLeastAMillisecond) {
    const auto start = std::chrono::steady_clock::now();
    send_ifly_command_ack(1, 1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1));
}

TEST(VisionUdpSend, SendsTheBytesAsTheyAre) {
    udp_peer elsewhere("192.168.1.77", 12345);
    char bytes[] = {1, 0, 2, '\xFF'};
    char ip[] = "192.168.1.77";
    EXPECT_EQ(vision_udp_send(bytes, 4, ip, 12345), 4);
    EXPECT_EQ(elsewhere.receive(), (bytes_t{1, 0, 2, 0xFF}));
}

TEST(VisionUdpSend, DoesNotExamineTheAddress) {
    udp_peer any_local("127.0.0.1", 12345);
    char bytes[] = {7};
    char ip[] = "no address";
    EXPECT_EQ(vision_udp_send(bytes, 1, ip, 12345), 1) << "0.0.0.0 is this host";
    EXPECT_EQ(any_local.receive(), (bytes_t{7}));
}
