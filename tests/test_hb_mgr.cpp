// The heartbeat frame: what each field writes, and the frame as a whole. The log is in test_hb_mgr_log.cpp.
#include "hb_mgr.h"

#include "hb_rows.h"
#include "log_lines.h"

#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using hb_rows::frame_bytes;
using testing::IsEmpty;

namespace {

frame_bytes frame() {
    VPHeartbeatFrame now;
    EXPECT_EQ(hbmgr_get_hb(&now), 0);
    return hb_rows::to_bytes(now);
}

void set(HeartBeatField field, int value) {
    const HeartBeatPair pair = {field, value};
    ASSERT_EQ(hbmgr_set_hb(&pair, 1), 0);
}

void set_every_field(int value) {
    for (const hb_rows::row &row : hb_rows::all) {
        set(row.field, value);
    }
}

/// Bit `bit` of the frame, counted from the lowest bit of byte 0.
int bit_of_frame(unsigned bit) {
    return (frame()[bit / 8] >> (bit % 8)) & 1;
}

constexpr int k_values[] = {0,    1,     2,     3,          4,       5,       7,    8,
                            13,   0x15,  0x1F,  0x2A,       0x3F,    0x55,    0x80, 0xAA,
                            0xFF, 0x100, 0x1FF, 0x12345678, INT_MAX, INT_MIN, -1,   -2};

std::string printed(VPHeartbeatFrame &frame) {
    testing::internal::CaptureStdout();
    print_hb(&frame);
    return testing::internal::GetCapturedStdout();
}

} // namespace

TEST(HeartbeatFrame, StartsWithLightCalibrationsAndOverheat) {
    frame_bytes expected{};
    const uint8_t start[] = {0x01, 0x00, 0x7E, 0x00, 0x08, 0x00, 0x00, 0x00};
    memcpy(expected.data(), start, sizeof start);
    EXPECT_EQ(frame(), expected);
}

TEST(HeartbeatFrame, IsCopiedOutWhole) {
    VPHeartbeatFrame ours;
    memset(&ours, 0xEE, sizeof ours);
    EXPECT_EQ(hbmgr_get_hb(&ours), 0);
    EXPECT_EQ(hb_rows::to_bytes(ours), hb_rows::k_initial) << "padding and nameless bytes are copied too";
}

TEST(HeartbeatFrame, IsTheSameWhenReadTwice) {
    set(VIO_MODE, 3);
    EXPECT_EQ(frame(), frame());
}

TEST(HeartbeatFields, AreNumberedInTheirOrder) {
    int number = 0;
    for (const hb_rows::row &row : hb_rows::all) {
        EXPECT_EQ(row.number, number++);
        EXPECT_EQ(static_cast<int>(row.field), row.number) << row.format;
    }
    EXPECT_EQ(number, 73);
}

TEST(HeartbeatFields, WriteTheirBitsOfTheFreshFrameAndNoOthers) {
    for (const hb_rows::row &row : hb_rows::all) {
        for (const int value : k_values) {
            frame_bytes expected = frame();
            hb_rows::set(expected, row.where, value);
            set(row.field, value);
            EXPECT_EQ(frame(), expected) << row.number << ' ' << row.format << value;
        }
    }
}

TEST(HeartbeatFields, ClearTheirBitsOfAFullFrameAndNoOthers) {
    for (const hb_rows::row &row : hb_rows::all) {
        set_every_field(-1);
        frame_bytes expected = frame();
        hb_rows::set(expected, row.where, 0);
        set(row.field, 0);
        EXPECT_EQ(frame(), expected) << row.number << ' ' << row.format;
    }
}

TEST(HeartbeatFields, SetTheirBitsOfAClearedFrameAndNoOthers) {
    for (const hb_rows::row &row : hb_rows::all) {
        set_every_field(0);
        frame_bytes expected{};
        hb_rows::set(expected, row.where, -1);
        set(row.field, -1);
        EXPECT_EQ(frame(), expected) << row.number << ' ' << row.format;
    }
}

TEST(HeartbeatFields, AllTogetherLeaveTheNamelessBitsAlone) {
    set_every_field(-1);
    frame_bytes expected{};
    // Device word: all but the gimbal cameras' bits 14 to 16 and the unused ones from 44 on.
    const uint8_t device[] = {0xFF, 0x3F, 0xFE, 0xFF, 0xFF, 0x0F, 0x00, 0x00};
    memcpy(expected.data(), device, sizeof device);
    memset(expected.data() + 8, 0xFF, 20);
    expected[40] = 0xFF;
    expected[41] = 0xFF;
    expected[42] = 0xFB; // not enable_vio
    expected[48] = 0xFF;
    expected[49] = 0xFF;
    EXPECT_EQ(frame(), expected);
}

TEST(HeartbeatFields, LedIsTheFlashStateOfThreeBits) {
    set(LED, 5);
    EXPECT_EQ(frame()[4], 0x08 | 5);
    set(LED, 13);
    EXPECT_EQ(frame()[4], 0x08 | 5);
}

TEST(HeartbeatFields, StereoCameraHeadWritesBothCameras) {
    set(STEREO_CAMERA_HEAD, 3);
    set(STEREO_CAMERA_HEAD, 2);
    EXPECT_EQ(bit_of_frame(2), 0);
    EXPECT_EQ(bit_of_frame(3), 1);
}

TEST(HeartbeatFields, GimbalCameraWritesTheGimbalCalibration) {
    set(GIMBAL_CAMERA_PRIOR, 1);
    EXPECT_EQ(bit_of_frame(23), 1);
    EXPECT_EQ(bit_of_frame(14), 0);
    set(GIMBAL_CALIB_PRIOR, 0);
    EXPECT_EQ(bit_of_frame(23), 0);
}

TEST(HeartbeatFields, VioModeKeepsTheLowByte) {
    set(VIO_MODE, 0x1FF);
    EXPECT_EQ(frame()[12], 0xFF);
    EXPECT_EQ(frame()[13], 0);
}

TEST(HeartbeatFields, ReservedFunctionKeepsFiveBitsAndItsNeighbours) {
    set(ENABLE_SECURE_LANDING, 1);
    set(ENABLE_PRECISE_LANDING, 1);
    set(ENABLE_RESERVED_FUNCTION, 0x3F);
    EXPECT_EQ(frame()[42], 0xF8 | 0x03);
    set(ENABLE_RESERVED_FUNCTION, 0);
    EXPECT_EQ(frame()[42], 0x03);
}

TEST(HeartbeatPairs, AreAppliedInTheirOrder) {
    const HeartBeatPair pairs[] = {{WORK_MODE, 7}, {LED, 1}, {WORK_MODE, 9}};
    EXPECT_EQ(hbmgr_set_hb(pairs, 3), 0);
    EXPECT_EQ(frame()[48], 9);
    EXPECT_EQ(frame()[4] & 7, 1);
}

TEST(HeartbeatPairs, BehindTheLengthAreNotRead) {
    const HeartBeatPair pairs[] = {{WORK_MODE, 7}, {WORK_STATUS, 9}};
    EXPECT_EQ(hbmgr_set_hb(pairs, 1), 0);
    EXPECT_EQ(frame()[48], 7);
    EXPECT_EQ(frame()[49], 0);
}

TEST(HeartbeatPairs, WithAnUnknownFieldAreSkipped) {
    for (const int field : {73, -1, 1000, INT_MAX, INT_MIN}) {
        logs::clear();
        const HeartBeatPair pairs[] = {
            {WORK_MODE, field & 0x7F}, {static_cast<HeartBeatField>(field), 1}, {WORK_STATUS, field & 0x3F}};
        frame_bytes expected = frame();
        expected[48] = static_cast<uint8_t>(field & 0x7F);
        expected[49] = static_cast<uint8_t>(field & 0x3F);
        EXPECT_EQ(hbmgr_set_hb(pairs, 3), 0);
        EXPECT_EQ(frame(), expected);
    }
}

TEST(HeartbeatPairs, ThatAreNoneChangeAndLogNothing) {
    const HeartBeatPair pair = {WORK_MODE, 7};
    for (const int len : {0, -1, INT_MIN}) {
        EXPECT_EQ(hbmgr_set_hb(&pair, len), 0) << len;
    }
    EXPECT_EQ(frame(), hb_rows::k_initial);
    EXPECT_THAT(logs::lines(), IsEmpty());
}

TEST(HeartbeatPairs, ThatAreNullChangeAndLogNothing) {
    EXPECT_EQ(hbmgr_set_hb(nullptr, 0), 0);
    EXPECT_EQ(hbmgr_set_hb(nullptr, 3), 0);
    EXPECT_EQ(frame(), hb_rows::k_initial);
    EXPECT_THAT(logs::lines(), IsEmpty());
}

TEST(HeartbeatPairs, LeaveTheLockFree) {
    const HeartBeatPair pairs[] = {{WORK_MODE, 7}, {static_cast<HeartBeatField>(73), 9}};
    for (const int len : {2, 0, -1}) {
        (void)hbmgr_set_hb(pairs, len);
        ASSERT_EQ(pthread_mutex_trylock(&hb_mutex), 0);
        pthread_mutex_unlock(&hb_mutex);
    }
}

TEST(HeartbeatPrint, ShowsThreeFieldsOfTheFrameThatItIsGiven) {
    set(LED, 1);
    VPHeartbeatFrame given;
    memset(&given, 0, sizeof given);
    frame_bytes bytes{};
    bytes[4] = 0xF8 | 6;
    bytes[24] = 200;
    bytes[48] = 17;
    memcpy(&given, bytes.data(), sizeof given);
    EXPECT_EQ(printed(given), "HB INFO:\nbottom_flash_state:6\ndetec checking mode:200\nworkmode 17\n");
}

TEST(HeartbeatPrint, ShowsTheNodesOwnFlashState) {
    set(LED, 5);
    VPHeartbeatFrame own;
    hbmgr_get_hb(&own);
    EXPECT_EQ(printed(own), "HB INFO:\nbottom_flash_state:5\ndetec checking mode:0\nworkmode 0\n");
}

TEST(HeartbeatPrint, TakesNoLock) {
    VPHeartbeatFrame own;
    hbmgr_get_hb(&own);
    ASSERT_EQ(pthread_mutex_lock(&hb_mutex), 0);
    EXPECT_EQ(printed(own), "HB INFO:\nbottom_flash_state:0\ndetec checking mode:0\nworkmode 0\n");
    pthread_mutex_unlock(&hb_mutex);
}
