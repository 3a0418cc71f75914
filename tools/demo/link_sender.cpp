// Datagrams of the vision link for the demo. See link_sender.h.
#include "link_sender.h"

#include "demo_payload.h"
#include "vision_protocol.h"

#include <array>
#include <map>

namespace demo {
namespace {

int send_track_status(uint8_t number) {
    vxlink_movidus_report_track_status_t report{};
    report.timestamp = now_ns();
    report.start_x = 0.2F;
    report.start_y = 0.25F;
    report.width = 0.18F;
    report.height = 0.16F;
    report.confidence = 0.9F;
    report.distance = 10.0F;
    report.status = 1;
    report.resolution_width = 1280;
    report.resolution_height = 720;
    report.id = number;
    return send_message_track_status(&report);
}

int send_goal_area(uint8_t number) {
    vxlink_movidus_report_goal_area_t report{};
    report.timestamp = now_ns();
    report.number = 2;
    report.total = 2;
    report.start_x[0] = 0.1F;
    report.start_x[1] = 0.6F;
    report.distance[0] = 12.5F;
    report.distance[1] = 14.0F;
    report.id = number;
    return send_message_track_area_array(&report);
}

int send_orbit_status(uint8_t number) {
    vxlink_movidus_report_orbit_status_t report{};
    report.timestamp = now_ns();
    report.expect_radius = 15.0F;
    report.actual_radius = 14.8F;
    report.rotate = 1;
    report.flag = number;
    return send_message_orbit_status(&report);
}

int send_orbit_area(uint8_t number) {
    vxlink_movidus_report_orbit_area_t report{};
    report.timestamp = now_ns();
    report.start_x = 0.4F;
    report.start_y = 0.4F;
    report.width = 0.2F;
    report.height = 0.2F;
    report.status = number;
    return send_message_orbit_area(&report);
}

int send_command_ack(uint8_t number) {
    return send_ifly_command_ack(number, 1);
}

int send_command_ack_rc(uint8_t number) {
    return send_ifly_command_ack_rc(number, 1, 4711);
}

int send_camera_command(uint8_t number) {
    std::array<uint8_t, 3> data = {0xA0, 0xA1, 0xA2};
    return send_ifly_command_cam(number, data.data(), static_cast<uint16_t>(data.size()));
}

} // namespace

int send_link(const std::string &kind, uint8_t number) {
    static const std::map<std::string, int (*)(uint8_t)> senders = {
        {"track_status", send_track_status},    {"goal_area", send_goal_area},
        {"orbit_status", send_orbit_status},    {"orbit_area", send_orbit_area},
        {"command_ack", send_command_ack},      {"command_ack_rc", send_command_ack_rc},
        {"camera_command", send_camera_command}};
    const auto found = senders.find(kind);
    return found == senders.end() ? -1 : found->second(number);
}

} // namespace demo
