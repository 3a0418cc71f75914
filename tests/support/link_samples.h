/**
 * @file
 * One record of each link message with a different value in every field: the records behind the images
 * link_frame_*.hex and link_datagram_*.hex.
 */
#ifndef TEST_LINK_SAMPLES_H
#define TEST_LINK_SAMPLES_H

#include "vxlink/vxlink.h"

#include <cstddef>

namespace samples {

inline vxlink_movidus_command_t movidus_command() {
    vxlink_movidus_command_t r{};
    r.command = 0x2A;
    for (size_t i = 0; i < 31; ++i) {
        r.data[i] = static_cast<uint8_t>(0x41 + i);
    }
    return r;
}

inline vxlink_movidus_report_track_status_t movidus_report_track_status() {
    return {0x0102030405060708, 0.2F,      0.25F, 0.18F, 0.16F, 0.9F, 10.0F, 1, 2, 1280, 720,
            0x11223344,         0xA1B2C3D4};
}

inline vxlink_movidus_report_goal_area_t movidus_report_goal_area() {
    vxlink_movidus_report_goal_area_t r{};
    r.timestamp = 0x1112131415161718;
    r.number = 3; // all eight slots are filled all the same
    r.total = 9;
    for (size_t i = 0; i < 8; ++i) {
        const float step = static_cast<float>(i) * 0.125F;
        r.start_x[i] = 1 + step;
        r.start_y[i] = 2 + step;
        r.width[i] = 3 + step;
        r.height[i] = 4 + step;
        r.distance[i] = 5 + step;
        r.status[i] = static_cast<uint32_t>(0x100 + i);
        r.confidence[i] = 6 + step;
        r.type[i] = static_cast<uint32_t>(0x200 + i);
    }
    r.id = 0x31323334;
    r.resolution_width = 1920;
    r.resolution_height = 1080;
    r.object_id = 0x41424344;
    for (size_t i = 0; i < 128; ++i) {
        r.info[i] = static_cast<uint8_t>(0x80 + i);
    }
    return r;
}

inline vxlink_movidus_report_orbit_status_t movidus_report_orbit_status() {
    return {0x2122232425262728, 15.5F, 14.25F, 30.0F, -29.5F, 8.5F, 1, 2, 3.5F, 0x51525354, 0x61626364};
}

inline vxlink_movidus_report_orbit_area_t movidus_report_orbit_area() {
    return {0x3132333435363738, 0.125F, 0.375F, 0.5F, 0.625F, 3840, 2160, 0x71727374};
}

} // namespace samples

#endif
