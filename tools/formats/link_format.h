/**
 * @file
 * The vision link, described: the camera-protocol header with the reports to the flight side and the commands
 * to the camera, and the link's frames, which carry the same messages with checksum and CRC. The messages'
 * fields come from the lists by which the library packs them.
 */
#ifndef FORMATS_LINK_FORMAT_H
#define FORMATS_LINK_FORMAT_H

#include "description.h"
#include "names.h"

#include <type_traits>

namespace formats {

template <class Value>
constexpr field_type type_of() {
    if constexpr (std::is_same_v<Value, uint8_t>) {
        return field_type::u8;
    } else if constexpr (std::is_same_v<Value, uint32_t>) {
        return field_type::u32;
    } else if constexpr (std::is_same_v<Value, uint64_t>) {
        return field_type::u64;
    } else {
        static_assert(std::is_same_v<Value, float>);
        return field_type::f32;
    }
}

/** An array of bytes is a run of bytes; of anything else it has elements. */
template <class Value>
constexpr field_type array_of() {
    return std::is_same_v<Value, uint8_t> ? field_type::bytes : type_of<Value>();
}

// One block per message: k_movidus_command_block and so on.
#define VALUE(value_type, member, at) field{.name = #member, .type = type_of<value_type>(), .offset = at},
#define ARRAY(value_type, member, elements, at)                                                              \
    field{.name = #member, .type = array_of<value_type>(), .offset = at, .count = elements},
#define MESSAGE(member, MEMBER)                                                                              \
    inline constexpr field k_##member##_fields[] = {VXLINK_##MEMBER##_FIELDS(VALUE, ARRAY)};                 \
    inline constexpr block k_##member##_block{#member, "vexamsg." #member, VXLINK_MSG_ID_##MEMBER##_LEN,     \
                                              k_##member##_fields};                                          \
    static_assert(well_laid(k_##member##_block));                                                            \
    inline constexpr part k_##member##_parts[] = {{&k_##member##_block}};
VXLINK_MESSAGES(MESSAGE)
#undef MESSAGE
#undef ARRAY
#undef VALUE

// An acknowledgement is a command whose data begin with a status and, behind one byte, a second one. The data
// are given as a whole too.
inline constexpr auto k_ack_fields = std::to_array<field>({
    {.name = "command", .type = field_type::u8, .offset = 0, .about = "Command that is answered"},
    {.name = "status", .type = field_type::u8, .offset = 1, .about = "How it went"},
    {.name = "status1", .type = field_type::u32, .offset = 3, .about = "The rest of the answer"},
    {.name = "data", .type = field_type::bytes, .offset = 1, .count = VXLINK_MSG_ID_MOVIDUS_COMMAND_LEN - 1},
});
inline constexpr block k_ack_block{"command_ack", "vexamsg.command_ack", VXLINK_MSG_ID_MOVIDUS_COMMAND_LEN,
                                   k_ack_fields};
static_assert(inside(k_ack_block));
inline constexpr part k_ack_parts[] = {{&k_ack_block}};

inline constexpr auto k_link_data_fields = std::to_array<field>({
    {.name = "payload", .type = field_type::bytes, .offset = 0, .count = 0, .about = "Its bytes"},
});
inline constexpr block k_link_data_block{"payload", "vexamsg.link", 0, k_link_data_fields};

inline constexpr auto k_link_flag_bits = std::to_array<bit_field>(
    {{"res", 0, 3}, {"debug", 3, 1}, {"reply", 4, 1}, {"form", 5, 1}, {"final", 6, 1}, {"start", 7, 1}});
inline constexpr uint8_t k_link_flags = 0xE0; // start, final, form: what every sender here sets

inline constexpr auto k_link_forms = std::to_array<form>({
    {.selector = 0x0900,
     .name = "camera_command",
     .kin = family::camera,
     .parts = k_movidus_command_parts,
     .payload_size = VXLINK_MSG_ID_MOVIDUS_COMMAND_LEN,
     .dst_field = "msg_dst",
     .dst_must = CARMERA_NODE,
     .port = VISION_CAMERA_PORT,
     .end = "camera"},
    {.selector = 0x0901,
     .name = "command_ack",
     .kin = family::report,
     .parts = k_ack_parts,
     .payload_size = VXLINK_MSG_ID_MOVIDUS_COMMAND_LEN,
     .dst_field = "msg_dst",
     .dst_must = PHONE_NODE,
     .port = VISION_FLIGHT_PORT,
     .end = "flight side"},
    {.selector = 0x0907,
     .name = "to_remote_control",
     .kin = family::report,
     .rest = &k_link_data_block,
     .dst_field = "msg_dst",
     .dst_must = PHONE_NODE | TELE_CTRL_NODE,
     .port = VISION_FLIGHT_PORT,
     .end = "flight side"},
    {.selector = 0x090C,
     .name = "goal_area",
     .kin = family::report,
     .parts = k_movidus_report_goal_area_parts,
     .payload_size = VXLINK_MSG_ID_MOVIDUS_REPORT_GOAL_AREA_LEN,
     .dst_field = "msg_dst",
     .dst_must = PHONE_NODE,
     .port = VISION_FLIGHT_PORT,
     .end = "flight side"},
    {.selector = 0x090D,
     .name = "track_status",
     .kin = family::report,
     .parts = k_movidus_report_track_status_parts,
     .payload_size = VXLINK_MSG_ID_MOVIDUS_REPORT_TRACK_STATUS_LEN,
     .dst_field = "msg_dst",
     .dst_must = PHONE_NODE,
     .port = VISION_FLIGHT_PORT,
     .end = "flight side"},
    {.selector = 0x090F,
     .name = "orbit_status",
     .kin = family::report,
     .parts = k_movidus_report_orbit_status_parts,
     .payload_size = VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_STATUS_LEN,
     .dst_field = "msg_dst",
     .dst_must = PHONE_NODE,
     .port = VISION_FLIGHT_PORT,
     .end = "flight side"},
    {.selector = 0x0910,
     .name = "orbit_area",
     .kin = family::report,
     .parts = k_movidus_report_orbit_area_parts,
     .payload_size = VXLINK_MSG_ID_MOVIDUS_REPORT_ORBIT_AREA_LEN,
     .dst_field = "msg_dst",
     .dst_must = PHONE_NODE,
     .port = VISION_FLIGHT_PORT,
     .end = "flight side"},
});

inline constexpr auto k_link_type_rows = std::to_array<value_name>({
    {0x0900, "camera_command"},
    {0x0901, "command_ack"},
    {0x0907, "to_remote_control"},
    {0x090C, "goal_area"},
    {0x090D, "track_status"},
    {0x090F, "orbit_status"},
    {0x0910, "orbit_area"},
});
inline constexpr name_table k_link_types{.id = "link_type", .rows = k_link_type_rows, .complete = true};

inline constexpr uint16_t k_link_magic = VISION_MSG_MAGIC_0 | (VISION_MSG_MAGIC_1 << 8);

#define AT(member) offsetof(msg_head_t, member)
inline constexpr auto k_link_head_fields = std::to_array<field>({
    {.name = "magic",
     .type = field_type::u16,
     .offset = AT(magic),
     .about = "Marks a camera-protocol header; on the wire the bytes 00 56",
     .base = number_base::hex,
     .must = k_link_magic},
    {.name = "version", .type = field_type::u8, .offset = AT(version), .must = VISION_MSG_VERSION},
    {.name = "flag",
     .type = field_type::u8,
     .offset = AT(flag),
     .base = number_base::hex,
     .bits = k_link_flag_bits,
     .must = k_link_flags},
    {.name = "length",
     .type = field_type::u16,
     .offset = AT(length),
     .about = "Bytes of the datagram, header included"},
    {.name = "msg_src",
     .type = field_type::u16,
     .offset = AT(msg_src),
     .about = "Sender",
     .base = number_base::hex,
     .names = &k_link_nodes,
     .must = MOVIDIUS_NODE},
    {.name = "msg_dst",
     .type = field_type::u16,
     .offset = AT(msg_dst),
     .about = "Receiver or receivers",
     .base = number_base::hex,
     .names = &k_link_nodes},
    {.name = "msg_type",
     .type = field_type::u16,
     .offset = AT(msg_type),
     .about = "Which message the payload is",
     .base = number_base::hex,
     .names = &k_link_types},
    {.name = "sequence",
     .type = field_type::u16,
     .offset = AT(sequence),
     .about = "Counts a sender's datagrams to both ends"},
    {.name = "package_id",
     .type = field_type::u16,
     .offset = AT(package_id),
     .base = number_base::hex,
     .must = 0},
});
#undef AT

inline constexpr envelope k_link{.name = "vision link datagram",
                                 .column = "VexaLink",
                                 .head = {"header", "vexamsg.link", VISION_MSG_HEAD_SIZE, k_link_head_fields},
                                 .length_field = "length",
                                 .length_bias = VISION_MSG_HEAD_SIZE,
                                 .selector_field = "msg_type",
                                 .tail = nullptr,
                                 .most_read = 0,
                                 .by_node_id = false,
                                 .forms = k_link_forms};
static_assert(well_laid(k_link.head) && well_named(k_link));

// A frame as it would go over a line. Its image begins with `magic`; the record has fields before it.
#define FORM(member, MEMBER)                                                                                 \
    form{.selector = VXLINK_MSG_ID_##MEMBER,                                                                 \
         .name = #member,                                                                                    \
         .kin = family::frame,                                                                               \
         .parts = k_##member##_parts,                                                                        \
         .payload_size = VXLINK_MSG_ID_##MEMBER##_LEN},
inline constexpr form k_frame_forms[] = {VXLINK_MESSAGES(FORM)};
#undef FORM
#define ROW(member, MEMBER) value_name{VXLINK_MSG_ID_##MEMBER, #member},
inline constexpr value_name k_frame_id_rows[] = {VXLINK_MESSAGES(ROW)};
#undef ROW
inline constexpr name_table k_frame_ids{.id = "msgid", .rows = k_frame_id_rows, .complete = true};

#define AT(member) (offsetof(vxlink_message_head_t, member) - offsetof(vxlink_message_head_t, magic))
inline constexpr auto k_frame_head_fields = std::to_array<field>({
    {.name = "magic",
     .type = field_type::u8,
     .offset = AT(magic),
     .about = "Start of a frame",
     .base = number_base::hex,
     .must = VXLINK_STX},
    {.name = "len", .type = field_type::u16, .offset = AT(len_lo), .about = "Bytes of payload"},
    {.name = "seq", .type = field_type::u8, .offset = AT(seq), .about = "Counts the frames to destid"},
    {.name = "destid",
     .type = field_type::u8,
     .offset = AT(destid),
     .about = "Device that is meant",
     .names = &k_devices},
    {.name = "sourceid",
     .type = field_type::u8,
     .offset = AT(sourceid),
     .about = "Device that sends",
     .names = &k_devices},
    {.name = "msgid",
     .type = field_type::u8,
     .offset = AT(msgid),
     .about = "Which message the payload is",
     .names = &k_frame_ids},
    {.name = "checksum",
     .type = field_type::u8,
     .offset = AT(checksum),
     .about = "Sum of the seven bytes before it",
     .base = number_base::hex,
     .from = calculated::head_sum},
});
static_assert(AT(len_hi) == AT(len_lo) + 1, "both bytes of the length are one little-endian number");
#undef AT

inline constexpr auto k_frame_tail_fields = std::to_array<field>({
    {.name = "crc",
     .type = field_type::u16,
     .offset = 0,
     .about = "CRC-16 over everything behind the first byte, and the message's extra byte",
     .base = number_base::hex,
     .from = calculated::frame_crc},
});
inline constexpr block k_frame_tail{"CRC", "vexamsg.frame", VXLINK_CRC_LEN, k_frame_tail_fields};

inline constexpr envelope k_frame{
    .name = "link frame",
    .column = "VexaFrame",
    .head = {"header", "vexamsg.frame", VXLINK_FRAME_HEAD_LEN, k_frame_head_fields},
    .length_field = "len",
    .length_bias = 0,
    .selector_field = "msgid",
    .tail = &k_frame_tail,
    .most_read = 0,
    .by_node_id = false,
    .forms = k_frame_forms};
static_assert(well_laid(k_frame.head) && well_laid(k_frame_tail) && well_named(k_frame));

} // namespace formats

#endif
