// The frame record, the step that finishes it, and the table of channels.
#include "vxlink/vxlink.h"

#include "link_reference.h"

#include <cstring>
#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <vector>

namespace {

constexpr uint8_t k_msgid = 200;

/// A record with a payload of `length` counting bytes, ready to be finished.
vxlink_message_head_t with_payload(uint16_t length) {
    vxlink_message_head_t frame{};
    frame.msgid = k_msgid;
    for (uint16_t i = 0; i < length; ++i) {
        vxlink_payload(&frame)[i] = static_cast<uint8_t>(i);
    }
    return frame;
}

reference::bytes_t counting_payload(uint16_t length) {
    reference::bytes_t bytes(length);
    for (uint16_t i = 0; i < length; ++i) {
        bytes[i] = static_cast<uint8_t>(i);
    }
    return bytes;
}

reference::bytes_t image_of(const vxlink_message_head_t &frame, uint16_t bytes) {
    const uint8_t *image = vxlink_frame_image(&frame);
    return {image, image + bytes};
}

uint8_t next_seq(uint8_t dest_id, uint8_t chan = VXLINK_COMM_0) {
    vxlink_message_head_t frame{};
    EXPECT_EQ(vxlink_finalize_message_chan(&frame, dest_id, DEV_MOVIDIUS_1, chan, 0, 0), 10);
    return frame.seq;
}

} // namespace

TEST(FrameRecord, IsPacked) {
    EXPECT_EQ(sizeof(vxlink_message_head_t), 532U);
    EXPECT_EQ(offsetof(vxlink_message_head_t, crc), 0U);
    EXPECT_EQ(offsetof(vxlink_message_head_t, len), 2U);
    EXPECT_EQ(offsetof(vxlink_message_head_t, magic), 4U);
    EXPECT_EQ(offsetof(vxlink_message_head_t, len_lo), 5U);
    EXPECT_EQ(offsetof(vxlink_message_head_t, len_hi), 6U);
    EXPECT_EQ(offsetof(vxlink_message_head_t, seq), 7U);
    EXPECT_EQ(offsetof(vxlink_message_head_t, destid), 8U);
    EXPECT_EQ(offsetof(vxlink_message_head_t, sourceid), 9U);
    EXPECT_EQ(offsetof(vxlink_message_head_t, msgid), 10U);
    EXPECT_EQ(offsetof(vxlink_message_head_t, checksum), 11U);
    EXPECT_EQ(offsetof(vxlink_message_head_t, payload64), 12U);
}

TEST(Finalize, FillsTheHeader) {
    vxlink_message_head_t frame = with_payload(5);
    EXPECT_EQ(vxlink_finalize_message(&frame, DEV_APP, DEV_MOVIDIUS_1, 5, 17), 15);
    EXPECT_EQ(frame.len, 5);
    EXPECT_EQ(frame.magic, 0xFD);
    EXPECT_EQ(frame.len_lo, 5);
    EXPECT_EQ(frame.len_hi, 0);
    EXPECT_EQ(frame.seq, 0);
    EXPECT_EQ(frame.destid, 32);
    EXPECT_EQ(frame.sourceid, 25);
    EXPECT_EQ(frame.msgid, k_msgid);
    EXPECT_EQ(frame.checksum, (0xFD + 5 + 32 + 25 + k_msgid) % 256);
}

TEST(Finalize, MakesTheSameImageAsTheReferenceAtEveryLength) {
    for (uint16_t length = 0; length <= 518; ++length) {
        vxlink_message_head_t frame = with_payload(length);
        const auto extra = static_cast<uint8_t>(length * 7);
        const uint16_t bytes = vxlink_finalize_message(&frame, DEV_APP, DEV_MOVIDIUS_1, length, extra);
        ASSERT_EQ(bytes, length + 10);
        ASSERT_EQ(image_of(frame, bytes),
                  reference::frame(counting_payload(length), k_msgid, extra, {32, 25, frame.seq}));
    }
}

TEST(Finalize, CountsTheHighLengthByteInTheChecksum) {
    vxlink_message_head_t frame = with_payload(256);
    EXPECT_EQ(vxlink_finalize_message(&frame, DEV_APP, DEV_MOVIDIUS_1, 256, 0), 266);
    EXPECT_EQ(frame.len_lo, 0);
    EXPECT_EQ(frame.len_hi, 1);
    EXPECT_EQ(frame.checksum, (0xFD + 1 + 32 + 25 + k_msgid) % 256);
}

TEST(Finalize, GivesTheChecksumsOfTheKnownMessages) {
    for (unsigned seq = 0; seq < 256; ++seq) {
        vxlink_movidus_report_track_status_t status{};
        vxlink_message_head_t frame;
        vxlink_msg_movidus_report_track_status_encode(DEV_APP, DEV_MOVIDIUS_1, &frame, &status);
        ASSERT_EQ(frame.seq, seq);
        EXPECT_EQ(frame.checksum, (seq + 234) % 256);
    }
    vxlink_movidus_report_goal_area_t area{};
    vxlink_message_head_t frame;
    vxlink_msg_movidus_report_goal_area_encode(DEV_APP, DEV_MOVIDIUS_1, &frame, &area);
    EXPECT_EQ(frame.seq, 0);
    EXPECT_EQ(frame.checksum, 82);
}

TEST(Finalize, KeepsTheCrcInTheRecordAndBehindThePayload) {
    vxlink_message_head_t frame = with_payload(3);
    vxlink_finalize_message(&frame, DEV_APP, DEV_MOVIDIUS_1, 3, 17);
    EXPECT_EQ(vxlink_payload(&frame)[3], frame.crc & 0xFF);
    EXPECT_EQ(vxlink_payload(&frame)[4], frame.crc >> 8);
    EXPECT_EQ(vxlink_payload(&frame)[5], 0) << "nothing behind the CRC is written";
}

TEST(Finalize, CoversTheChecksumAndTheExtraByteButNotTheMagic) {
    vxlink_message_head_t frame = with_payload(4);
    ASSERT_EQ(vxlink_finalize_message(&frame, DEV_APP, DEV_MOVIDIUS_1, 4, 99), 14);
    const uint8_t *image = vxlink_frame_image(&frame);
    reference::bytes_t with_magic(image, image + 12);
    with_magic.push_back(99);
    EXPECT_NE(reference::crc(with_magic), frame.crc);
    reference::bytes_t covered(image + 1, image + 12);
    EXPECT_NE(reference::crc(covered), frame.crc) << "without the extra byte";
    covered.push_back(99);
    EXPECT_EQ(reference::crc(covered), frame.crc);
    covered.erase(covered.begin() + 6);
    EXPECT_NE(reference::crc(covered), frame.crc) << "without the checksum";
}

TEST(Finalize, FoldsInTheExtraByteItIsGivenWhateverTheTableSays) {
    vxlink_message_head_t frame = with_payload(0);
    frame.msgid = VXLINK_MSG_ID_MOVIDUS_COMMAND;
    const uint16_t bytes = vxlink_finalize_message(&frame, DEV_APP, DEV_MOVIDIUS_1, 0, 1);
    EXPECT_EQ(image_of(frame, bytes), reference::frame({}, 117, 1, {32, 25, 0}));
}

TEST(Finalize, TakesTheLongestPayloadWhoseCrcStillFits) {
    vxlink_message_head_t frame = with_payload(518);
    EXPECT_EQ(vxlink_finalize_message(&frame, DEV_APP, DEV_MOVIDIUS_1, 518, 3), 528);
    EXPECT_EQ(vxlink_payload(&frame)[519], frame.crc >> 8) << "the last byte of the record";
}

TEST(Finalize, RefusesALongerPayloadAndTouchesNothing) {
    for (const uint16_t length : std::initializer_list<uint16_t>{519, 520, 521, 65535}) {
        vxlink_message_head_t frame;
        memset(&frame, 0x5A, sizeof frame);
        EXPECT_EQ(vxlink_finalize_message(&frame, DEV_APP, DEV_MOVIDIUS_1, length, 3), 0) << length;
        const reference::bytes_t untouched(sizeof frame, 0x5A);
        EXPECT_EQ(memcmp(&frame, untouched.data(), sizeof frame), 0) << length;
    }
    EXPECT_EQ(next_seq(DEV_APP), 0) << "a refused frame takes no number";
}

TEST(Finalize, RefusesARecordThatIsNull) {
    EXPECT_EQ(vxlink_finalize_message(nullptr, DEV_APP, DEV_MOVIDIUS_1, 0, 0), 0);
    EXPECT_EQ(next_seq(DEV_APP), 0);
}

TEST(Finalize, RefusesAChannelThatDoesNotExistAndTouchesNothing) {
    for (const uint8_t chan : std::initializer_list<uint8_t>{16, 17, 255}) {
        vxlink_message_head_t frame{};
        EXPECT_EQ(vxlink_finalize_message_chan(&frame, DEV_APP, DEV_MOVIDIUS_1, chan, 0, 0), 0);
        EXPECT_EQ(frame.magic, 0);
    }
    EXPECT_EQ(next_seq(DEV_APP), 0);
}

TEST(Finalize, WorksOnARecordAtAnyAddress) {
    std::vector<uint8_t> room(sizeof(vxlink_message_head_t) + 8);
    const reference::bytes_t expected = reference::frame(counting_payload(20), k_msgid, 9, {200, 25, 0});
    for (size_t shift = 0; shift < 8; ++shift) {
        auto *frame = new (room.data() + shift) vxlink_message_head_t(with_payload(20));
        vxlink_get_channel_status(VXLINK_COMM_0)->current_tx_seq[200] = 0;
        const uint16_t bytes = vxlink_finalize_message(frame, 200, DEV_MOVIDIUS_1, 20, 9);
        EXPECT_EQ(image_of(*frame, bytes), expected) << "shifted by " << shift;
    }
}

TEST(SequenceNumbers, RunFrom0To255AndStartAgain) {
    for (unsigned i = 0; i < 256; ++i) {
        ASSERT_EQ(next_seq(DEV_APP), i);
    }
    EXPECT_EQ(next_seq(DEV_APP), 0);
}

TEST(SequenceNumbers, AreCountedPerDestination) {
    for (unsigned i = 0; i < 5; ++i) {
        EXPECT_EQ(next_seq(DEV_APP), i);
    }
    for (unsigned i = 0; i < 300; ++i) {
        EXPECT_EQ(next_seq(DEV_CAMERA), i % 256);
    }
    EXPECT_EQ(next_seq(DEV_APP), 5);
    EXPECT_EQ(next_seq(DEV_BROADCAST), 0);
    EXPECT_EQ(next_seq(DEV_NONE), 0);
}

TEST(SequenceNumbers, AreCountedPerChannel) {
    EXPECT_EQ(next_seq(DEV_APP, VXLINK_COMM_0), 0);
    EXPECT_EQ(next_seq(DEV_APP, VXLINK_COMM_0), 1);
    EXPECT_EQ(next_seq(DEV_APP, VXLINK_COMM_3), 0);
    EXPECT_EQ(next_seq(DEV_APP, 15), 0);
    EXPECT_EQ(next_seq(DEV_APP, VXLINK_COMM_0), 2);
}

TEST(SequenceNumbers, AreHandedOutOnceEachToThreadsThatMeet) {
    std::vector<std::vector<uint8_t>> taken(4);
    std::vector<std::thread> threads;
    for (std::vector<uint8_t> &mine : taken) {
        threads.emplace_back([&mine] {
            for (int i = 0; i < 64; ++i) {
                mine.push_back(next_seq(DEV_APP));
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    std::set<uint8_t> all;
    for (const std::vector<uint8_t> &mine : taken) {
        all.insert(mine.begin(), mine.end());
    }
    EXPECT_EQ(all.size(), 256U);
}

TEST(ChannelTable, HasSixteenRecordsOfZeros) {
    const vxlink_status_t zero{};
    for (uint8_t chan = 0; chan < 16; ++chan) {
        const vxlink_status_t *status = vxlink_get_channel_status(chan);
        ASSERT_NE(status, nullptr);
        EXPECT_EQ(status->msg_received + status->buffer_overrun + status->parse_error + status->packet_idx,
                  0);
        EXPECT_EQ(status->parse_state, VXLINK_PARSE_STATE_UNINIT);
        EXPECT_EQ(memcmp(status->current_rx_seq, zero.current_rx_seq, 256), 0);
        EXPECT_EQ(memcmp(status->current_tx_seq, zero.current_tx_seq, 256), 0);
        EXPECT_EQ(memcmp(status->packet_rx_success_count, zero.packet_rx_success_count, 1024), 0);
        EXPECT_EQ(memcmp(status->packet_rx_drop_count, zero.packet_rx_drop_count, 1024), 0);
        EXPECT_EQ(memcmp(status->packet_tx_success_count, zero.packet_tx_success_count, 1024), 0);
        EXPECT_EQ(memcmp(status->packet_tx_fail_count, zero.packet_tx_fail_count, 1024), 0);
    }
}

TEST(ChannelTable, GivesEachChannelItsOwnRecordEveryTime) {
    std::set<const vxlink_status_t *> records;
    for (uint8_t chan = 0; chan < 16; ++chan) {
        records.insert(vxlink_get_channel_status(chan));
        EXPECT_EQ(vxlink_get_channel_status(chan), vxlink_get_channel_status(chan));
    }
    EXPECT_EQ(records.size(), 16U);
}

TEST(ChannelTable, EndsAfterSixteen) {
    EXPECT_EQ(vxlink_get_channel_status(16), nullptr);
    EXPECT_EQ(vxlink_get_channel_status(255), nullptr);
}

TEST(ChannelTable, OnlyTheSendNumbersAreEverWritten) {
    const vxlink_status_t *status = vxlink_get_channel_status(VXLINK_COMM_0);
    vxlink_status_t expected{};
    expected.current_tx_seq[DEV_APP] = 3;
    for (int i = 0; i < 3; ++i) {
        (void)next_seq(DEV_APP);
    }
    EXPECT_EQ(memcmp(status->current_tx_seq, expected.current_tx_seq, 256), 0);
    EXPECT_EQ(memcmp(status->current_rx_seq, expected.current_rx_seq, 256), 0);
    EXPECT_EQ(status->msg_received + status->buffer_overrun + status->parse_error + status->packet_idx, 0);
    EXPECT_EQ(memcmp(status->packet_tx_success_count, expected.packet_tx_success_count, 1024), 0);
    EXPECT_EQ(memcmp(status->packet_tx_fail_count, expected.packet_tx_fail_count, 1024), 0);
}
