// The five messages: their images, their layouts, and many random ones against a second writer.
#include "vxlink/vxlink.h"

#include "link_reference.h"
#include "link_samples.h"
#include "vectors.h"

#include <cstring>
#include <gtest/gtest.h>
#include <random>

namespace {

reference::bytes_t image_of(const vxlink_message_head_t &frame, uint16_t bytes) {
    const uint8_t *image = vxlink_frame_image(&frame);
    return {image, image + bytes};
}

/// Every byte of every field at random, NaNs included: floats travel as bits.
template <class Record>
Record random_record(std::mt19937 &random) {
    Record record;
    auto *bytes = reinterpret_cast<uint8_t *>(&record);
    for (size_t i = 0; i < sizeof record; ++i) {
        bytes[i] = static_cast<uint8_t>(random());
    }
    return record;
}

template <class Record, class Encode>
void expect_the_reference_agrees(uint8_t msgid, uint8_t crc_extra, Encode encode) {
    std::mt19937 random(msgid);
    for (int round = 0; round < 500; ++round) {
        const auto record = random_record<Record>(random);
        const auto dest = static_cast<uint8_t>(random());
        const auto source = static_cast<uint8_t>(random());
        vxlink_message_head_t frame;
        memset(&frame, 0xEE, sizeof frame); // what lies in the record before must not show
        const uint16_t bytes = encode(dest, source, &frame, &record);
        ASSERT_EQ(image_of(frame, bytes),
                  reference::frame(reference::payload(record), msgid, crc_extra, {dest, source, frame.seq}))
            << "round " << round;
    }
}

} // namespace

#define IMAGE_CASE(name, vector)                                                                             \
    TEST(LinkMessage, name) {                                                                                \
        const auto record = samples::name();                                                                 \
        vxlink_message_head_t frame;                                                                         \
        const uint16_t bytes = vxlink_msg_##name##_encode(DEV_APP, DEV_MOVIDIUS_1, &frame, &record);         \
        EXPECT_EQ(image_of(frame, bytes), vectors::bytes(vector));                                           \
    }
IMAGE_CASE(movidus_command, "link_frame_command")
IMAGE_CASE(movidus_report_goal_area, "link_frame_goal_area")
IMAGE_CASE(movidus_report_track_status, "link_frame_track_status")
IMAGE_CASE(movidus_report_orbit_status, "link_frame_orbit_status")
IMAGE_CASE(movidus_report_orbit_area, "link_frame_orbit_area")
#undef IMAGE_CASE

TEST(LinkMessages, HaveTheirIdsLengthsAndExtraBytes) {
    struct row {
        const char *name;
        int id, len, crc;
    };
    constexpr row expected[] = {{"movidus_command", 117, 32, 23},
                                {"movidus_report_goal_area", 123, 416, 61},
                                {"movidus_report_track_status", 124, 56, 58},
                                {"movidus_report_orbit_status", 125, 48, 135},
                                {"movidus_report_orbit_area", 126, 36, 177}};
    const row *next = expected;
#define EXPECT_ROW(name_, NAME)                                                                              \
    EXPECT_STREQ(#name_, next->name);                                                                        \
    EXPECT_EQ(VXLINK_MSG_ID_##NAME, next->id) << #name_;                                                     \
    EXPECT_EQ(VXLINK_MSG_ID_##NAME##_LEN, next->len) << #name_;                                              \
    EXPECT_EQ(VXLINK_MSG_ID_##NAME##_CRC, next->crc) << #name_;                                              \
    ++next;
    VXLINK_MESSAGES(EXPECT_ROW)
#undef EXPECT_ROW
    EXPECT_EQ(next, std::end(expected));
}

TEST(LinkMessages, OfRandomContentAgreeWithASecondWriter) {
#define EXPECT_AGREEMENT(name, NAME)                                                                         \
    expect_the_reference_agrees<vxlink_##name##_t>(VXLINK_MSG_ID_##NAME, VXLINK_MSG_ID_##NAME##_CRC,         \
                                                   vxlink_msg_##name##_encode);
    VXLINK_MESSAGES(EXPECT_AGREEMENT)
#undef EXPECT_AGREEMENT
}

TEST(LinkMessages, ReturnTheLengthOfTheFrame){
#define EXPECT_LENGTH(name, NAME)                                                                            \
    {                                                                                                        \
        const auto record = samples::name();                                                                 \
        vxlink_message_head_t frame;                                                                         \
        EXPECT_EQ(vxlink_msg_##name##_encode(DEV_APP, DEV_MOVIDIUS_1, &frame, &record),                      \
                  VXLINK_MSG_ID_##NAME##_LEN + 10);                                                          \
        EXPECT_EQ(frame.len, VXLINK_MSG_ID_##NAME##_LEN);                                                    \
    }
    VXLINK_MESSAGES(EXPECT_LENGTH)
#undef EXPECT_LENGTH
}

TEST(LinkMessages, WithoutARecordOrAFrameAreRefusedAndTakeNoNumber) {
#define EXPECT_REFUSAL(name, NAME)                                                                           \
    {                                                                                                        \
        const auto record = samples::name();                                                                 \
        vxlink_message_head_t frame;                                                                         \
        memset(&frame, 0x5A, sizeof frame);                                                                  \
        EXPECT_EQ(vxlink_msg_##name##_encode(DEV_APP, DEV_MOVIDIUS_1, nullptr, &record), 0) << #NAME;        \
        EXPECT_EQ(vxlink_msg_##name##_encode(DEV_APP, DEV_MOVIDIUS_1, &frame, nullptr), 0) << #NAME;         \
        EXPECT_EQ(frame.magic, 0x5A) << #NAME;                                                               \
    }
    VXLINK_MESSAGES(EXPECT_REFUSAL)
#undef EXPECT_REFUSAL
    EXPECT_EQ(vxlink_get_channel_status(VXLINK_COMM_0)->current_tx_seq[DEV_APP], 0);
}

TEST(LinkPack, TakesTheFieldsOneByOneInTheirOrder) {
    const uint8_t data[31] = {0x41, 0x42};
    vxlink_message_head_t frame;
    const uint16_t bytes = vxlink_msg_movidus_command_pack(DEV_CAMERA, DEV_MOVIDIUS_1, &frame, 7, data);
    reference::bytes_t payload = {7, 0x41, 0x42};
    payload.resize(32);
    EXPECT_EQ(image_of(frame, bytes), reference::frame(payload, 117, 23, {33, 25, 0}));
}

TEST(LinkPack, OfAnOrbitAreaIsItsImage) {
    const auto r = samples::movidus_report_orbit_area();
    vxlink_message_head_t frame;
    const uint16_t bytes = vxlink_msg_movidus_report_orbit_area_pack(
        DEV_APP, DEV_MOVIDIUS_1, &frame, r.timestamp, r.start_x, r.start_y, r.width, r.height,
        r.resolution_width, r.resolution_height, r.status);
    EXPECT_EQ(image_of(frame, bytes), vectors::bytes("link_frame_orbit_area"));
}

TEST(LinkPack, TakesNullForAnArrayOfZeros) {
    vxlink_message_head_t frame;
    uint16_t bytes = vxlink_msg_movidus_command_pack(DEV_APP, DEV_MOVIDIUS_1, &frame, 7, nullptr);
    reference::bytes_t payload = {7};
    payload.resize(32);
    EXPECT_EQ(image_of(frame, bytes), reference::frame(payload, 117, 23, {32, 25, 0}));

    bytes = vxlink_msg_movidus_report_goal_area_pack(DEV_APP, DEV_MOVIDIUS_1, &frame, 0, 0, 0, nullptr,
                                                     nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                                     nullptr, 0, 0, 0, 0, nullptr);
    EXPECT_EQ(image_of(frame, bytes), reference::frame(reference::bytes_t(416), 123, 61, {32, 25, 1}));
}

TEST(LinkPack, ClearsTheWholeRecordFirst) {
    vxlink_message_head_t frame;
    memset(&frame, 0xEE, sizeof frame);
    vxlink_msg_movidus_command_pack(DEV_APP, DEV_MOVIDIUS_1, &frame, 7, nullptr);
    for (size_t i = 34; i < VXLINK_PAYLOAD_STORAGE; ++i) {
        ASSERT_EQ(vxlink_payload(&frame)[i], 0) << "payload storage, byte " << i;
    }
}

TEST(MavArrayMemcpy, CopiesOrClears) {
    uint8_t to[4] = {9, 9, 9, 9};
    const uint8_t from[3] = {1, 2, 3};
    mav_array_memcpy(to, from, 3);
    EXPECT_EQ(memcmp(to, "\1\2\3\11", 4), 0);
    mav_array_memcpy(to, nullptr, 2);
    EXPECT_EQ(memcmp(to, "\0\0\3\11", 4), 0);
}
