// The members of the heartbeat frame lie where the compiler puts those of the library's record.
#include "heartbeat_frame.h"

#include <cstring>
#include <gtest/gtest.h>

using formats::frame_member;
using formats::k_frame_bytes;
using formats::k_frame_members;

namespace {

using frame_bytes = std::array<uint8_t, k_frame_bytes>;

struct clearing {
    const char *name;
    void (*clear)(VPHeartbeatFrame &frame);
};

#define ROW(group, member)                                                                                   \
    clearing {                                                                                               \
#member, [](VPHeartbeatFrame & frame) { frame.group.details.member = 0; }                            \
    }

constexpr auto k_clearings = std::to_array<clearing>({
    ROW(device, environment_light),
    ROW(device, stereo_camera_head1),
    ROW(device, stereo_camera_head2),
    ROW(device, stereo_camera_rear1),
    ROW(device, stereo_camera_rear2),
    ROW(device, stereo_camera_bottom1),
    ROW(device, stereo_camera_bottom2),
    ROW(device, stereo_camera_right1),
    ROW(device, stereo_camera_right2),
    ROW(device, stereo_camera_left1),
    ROW(device, stereo_camera_left2),
    ROW(device, stereo_camera_top1),
    ROW(device, stereo_camera_top2),
    ROW(device, gimbal_camera_prior),
    ROW(device, gimbal_camera_minor),
    ROW(device, gimbal_camera_therm),
    ROW(device, stereo_calib_head),
    ROW(device, stereo_calib_rear),
    ROW(device, stereo_calib_bottom),
    ROW(device, stereo_calib_right),
    ROW(device, stereo_calib_left),
    ROW(device, stereo_calib_top),
    ROW(device, gimbal_calib_prior),
    ROW(device, gimbal_calib_minor),
    ROW(device, gimbal_calib_therm),
    ROW(device, stereo_calib_imu_head),
    ROW(device, stereo_calib_imu_rear),
    ROW(device, stereo_calib_imu_bottom),
    ROW(device, stereo_calib_imu_right),
    ROW(device, stereo_calib_imu_left),
    ROW(device, stereo_calib_imu_top),
    ROW(device, bottom_flash_state),
    ROW(device, overheat),
    ROW(device, wifi_enable),
    ROW(device, wifi_status),
    ROW(device, stereo_calib_head_status),
    ROW(device, stereo_calib_rear_status),
    ROW(device, stereo_calib_bottom_status),
    ROW(core, vision_machine_mode),
    ROW(core, vision_machine_rate),
    ROW(core, calib_machine_mode),
    ROW(core, calib_machine_rate),
    ROW(core, vio_mode),
    ROW(core, vio_rate),
    ROW(core, dpu_mode),
    ROW(core, dpu_rate),
    ROW(core, soa_mode),
    ROW(core, soa_rate),
    ROW(core, self_calib_mode),
    ROW(core, self_calib_rate),
    ROW(core, secure_landing_mode),
    ROW(core, secure_landing_rate),
    ROW(core, precise_landing_mode),
    ROW(core, precise_landing_rate),
    ROW(core, detection_tracking_mode),
    ROW(core, detection_tracking_rate),
    ROW(core, mapping_pathplanning_mode),
    ROW(core, mapping_pathplanning_rate),
    ROW(task, show_head_radar),
    ROW(task, show_rear_radar),
    ROW(task, show_bottom_radar),
    ROW(task, show_right_radar),
    ROW(task, show_left_radar),
    ROW(task, show_top_radar),
    ROW(task, show_omni_radar),
    ROW(task, show_prior_radar),
    ROW(task, enable_head_soa),
    ROW(task, enable_rear_soa),
    ROW(task, enable_bottom_soa),
    ROW(task, enable_right_soa),
    ROW(task, enable_left_soa),
    ROW(task, enable_top_soa),
    ROW(task, enable_omni_soa),
    ROW(task, enable_prior_soa),
    ROW(task, enable_secure_landing),
    ROW(task, enable_precise_landing),
    ROW(task, enable_vio),
    ROW(task, enable_reserved_function),
    ROW(task, work_mode),
    ROW(task, work_status),
});

} // namespace

TEST(HeartbeatFrame, HasItsMembersWhereTheRecordHasThem) {
    ASSERT_EQ(k_clearings.size(), k_frame_members.size());
    for (const clearing &one : k_clearings) {
        VPHeartbeatFrame frame;
        memset(&frame, 0xFF, sizeof frame);
        one.clear(frame);
        frame_bytes bytes;
        memcpy(bytes.data(), &frame, sizeof frame);
        for (const frame_member &m : k_frame_members) {
            const unsigned all_ones = (1U << m.width) - 1;
            const bool cleared = strcmp(m.name, one.name) == 0;
            EXPECT_EQ(read_member(bytes, m), cleared ? 0 : all_ones) << one.name << " in " << m.name;
        }
    }
}

TEST(HeartbeatFrame, ReadsTheFrameThatEveryProcessBeginsWith) {
    constexpr frame_bytes k_first = {0x01, 0x00, 0x7E, 0x00, 0x08};
    for (const frame_member &m : k_frame_members) {
        const std::string_view name = m.name;
        const bool calibrated = name.starts_with("stereo_calib_") && m.first_bit >= 17 && m.first_bit <= 22;
        const bool set = name == "environment_light" || name == "overheat" || calibrated;
        EXPECT_EQ(read_member(k_first, m), set ? 1U : 0U) << name;
    }
}
