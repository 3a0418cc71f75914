// The five link messages made of any record: each frame is the reference writer's. Then the payload goes
// behind a header to a reader of the link, which must find nothing wrong with it.
#include "link_decode.h"
#include "link_reference.h"
#include "support/check.h"
#include "support/input.h"
#include "vision_protocol.h"

namespace {

uint8_t numbers[256]; // of the frames to each destination, for the life of the process

struct message_kind {
    uint8_t msgid;
    uint8_t crc_extra;
    uint16_t msg_type; // of the datagram
};

template <class Record>
Record record_of(fuzz::input &in) {
    fuzz::bytes raw = in.take(sizeof(Record));
    raw.resize(sizeof(Record));
    Record record;
    memcpy(&record, raw.data(), sizeof record);
    return record;
}

void check_reader(const fuzz::bytes &payload, uint16_t msg_type) {
    fuzz::bytes datagram = {0x00, 0x56, 0x01, 0xE0};
    datagram.resize(VISION_MSG_HEAD_SIZE);
    ut_put_le16(&datagram[4], static_cast<uint16_t>(VISION_MSG_HEAD_SIZE + payload.size()));
    ut_put_le16(&datagram[6], 0x0020);
    ut_put_le16(&datagram[8], msg_type == 0x0900 ? 0x0002 : 0x1000);
    ut_put_le16(&datagram[10], msg_type);
    datagram.insert(datagram.end(), payload.begin(), payload.end());
    const vexa::link_end end = msg_type == 0x0900 ? vexa::link_end::camera : vexa::link_end::flight;
    const fuzz::exact_block block(datagram);
    const vexa::link_datagram read = vexa::decode_link(end, {block.data(), block.size()});
    FUZZ_CHECK(read.faults.empty() && read.msg_type == msg_type && read.fields.is_object());
}

template <class Record, class Encode>
void check_message(fuzz::input &in, const message_kind &kind, Encode encode) {
    const uint8_t dest = in.u8();
    const uint8_t source = in.u8();
    const Record record = record_of<Record>(in);
    fuzz::exact_block block(sizeof(vxlink_message_head_t));
    auto *frame = reinterpret_cast<vxlink_message_head_t *>(block.data());
    const uint16_t made = encode(dest, source, frame, &record);
    const reference::bytes_t payload = reference::payload(record);
    const reference::bytes_t expected =
        reference::frame(payload, kind.msgid, kind.crc_extra, {dest, source, numbers[dest]++});
    FUZZ_CHECK(made == expected.size());
    FUZZ_CHECK(std::equal(expected.begin(), expected.end(), vxlink_frame_image(frame)));
    FUZZ_CHECK(vxlink_message_crcs[kind.msgid] == kind.crc_extra);
    check_reader(payload, kind.msg_type);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    switch (in.u8() % 5) {
    case 0:
        check_message<vxlink_movidus_command_t>(in, {117, 23, 0x0900}, vxlink_msg_movidus_command_encode);
        break;
    case 1:
        check_message<vxlink_movidus_report_goal_area_t>(in, {123, 61, 0x090C},
                                                         vxlink_msg_movidus_report_goal_area_encode);
        break;
    case 2:
        check_message<vxlink_movidus_report_track_status_t>(in, {124, 58, 0x090D},
                                                            vxlink_msg_movidus_report_track_status_encode);
        break;
    case 3:
        check_message<vxlink_movidus_report_orbit_status_t>(in, {125, 135, 0x090F},
                                                            vxlink_msg_movidus_report_orbit_status_encode);
        break;
    default:
        check_message<vxlink_movidus_report_orbit_area_t>(in, {126, 177, 0x0910},
                                                          vxlink_msg_movidus_report_orbit_area_encode);
    }
    return 0;
}
