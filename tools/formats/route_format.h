/**
 * @file
 * The routing bus, described: header, user data, what nodes and the node manager say to each other, heartbeat
 * operations. Offsets are the ones of the library's own records.
 */
#ifndef FORMATS_ROUTE_FORMAT_H
#define FORMATS_ROUTE_FORMAT_H

#include "description.h"
#include "names.h"

#include "hb_fields.h"

namespace formats {

inline constexpr auto k_route_flag_bits = std::to_array<bit_field>({
    {"ack", 0, 1},
    {"qos", 1, 2},
    {"reserved", 3, 5},
    {"accepted", 7, 1}, // the top bit of `reserved`, by which the manager accepts a registration
});
inline constexpr uint8_t k_accepted_bit = 0x80;

#define AT(record, member) offsetof(record, member)
inline constexpr auto k_route_head_fields = std::to_array<field>({
    {.name = "magic",
     .type = field_type::u16,
     .offset = AT(vx_msg_head_t, magic),
     .about = "Marks a message of the routing bus",
     .base = number_base::hex,
     .must = VX_MSG_MAGIC},
    {.name = "flag",
     .type = field_type::u8,
     .offset = AT(vx_msg_head_t, flag),
     .about = "0 but for the manager's acceptance",
     .base = number_base::hex,
     .bits = k_route_flag_bits},
    {.name = "msg_type",
     .type = field_type::u8,
     .offset = AT(vx_msg_head_t, msg_type),
     .about = "What the message is for",
     .names = &k_kinds},
    {.name = "data_length",
     .type = field_type::u16,
     .offset = AT(vx_msg_head_t, data_length),
     .about = "Bytes of payload behind the header"},
    {.name = "src",
     .type = field_type::u16,
     .offset = AT(vx_msg_head_t, src),
     .about = "Sender's node id; the proxy's in what it sends on",
     .names = &k_node_ids},
    {.name = "dst",
     .type = field_type::u16,
     .offset = AT(vx_msg_head_t, dst),
     .about = "Receiver's node id",
     .names = &k_node_ids},
    {.name = "sequence", .type = field_type::u16, .offset = AT(vx_msg_head_t, sequence), .about = "Not used"},
    {.name = "recv_time",
     .type = field_type::u32,
     .offset = AT(vx_msg_head_t, recv_time),
     .about = "Written by the receiver; 0 on the wire"},
});

inline constexpr auto k_user_fields = std::to_array<field>({
    {.name = "key",
     .type = field_type::u16,
     .offset = 0,
     .about = "First word of the payload: a status' MsgType; a message may begin with anything",
     .names = &k_msg_types},
});
inline constexpr block k_user_block{"key", "vexamsg", 2, k_user_fields};

inline constexpr auto k_data_fields = std::to_array<field>({
    {.name = "data", .type = field_type::bytes, .offset = 0, .count = 0, .about = "The application's bytes"},
});
inline constexpr block k_data_block{"data", "vexamsg", 0, k_data_fields};

inline constexpr auto k_surplus_fields = std::to_array<field>({
    {.name = "surplus",
     .type = field_type::bytes,
     .offset = 0,
     .count = 0,
     .about = "Bytes of the payload that carry nothing"},
});
inline constexpr block k_surplus_block{"surplus", "vexamsg", 0, k_surplus_fields};

inline constexpr auto k_manager_fields = std::to_array<field>({
    {.name = "cmd",
     .type = field_type::i16,
     .offset = AT(node_mgr_msg_t, cmd),
     .about = "What a node asks or the manager tells; nodes do not look at it",
     .names = &k_commands},
    {.name = "cnt",
     .type = field_type::i16,
     .offset = AT(node_mgr_msg_t, cnt),
     .about = "Number of node records that follow"},
});
inline constexpr block k_manager_block{"command and count", "vexamsg.mgr", VX_MGR_HEAD_SIZE,
                                       k_manager_fields};

inline constexpr auto k_node_fields = std::to_array<field>({
    {.name = "name",
     .type = field_type::text,
     .offset = AT(vexa_node_t, name),
     .count = sizeof(vexa_node_t::name),
     .about = "The node's name"},
    {.name = "ip",
     .type = field_type::text,
     .offset = AT(vexa_node_t, ip),
     .count = sizeof(vexa_node_t::ip),
     .about = "Its IPv4 address"},
    {.name = "port", .type = field_type::u16, .offset = AT(vexa_node_t, port), .about = "Its UDP port"},
    {.name = "node_id",
     .type = field_type::u16,
     .offset = AT(vexa_node_t, node_id),
     .about = "Its id",
     .names = &k_node_ids},
    {.name = "stat",
     .type = field_type::u8,
     .offset = AT(vexa_node_t, stat),
     .about = "Whether it is active",
     .names = &k_stats},
    {.name = "unused", .type = field_type::u8, .offset = AT(vexa_node_t, stat) + 1, .about = "Means nothing"},
});
inline constexpr block k_node_block{"node", "vexamsg.node", VX_NODE_RECORD_SIZE, k_node_fields};

inline constexpr auto k_pair_fields = std::to_array<field>({
    {.name = "field",
     .type = field_type::i32,
     .offset = AT(HeartBeatPair, field),
     .about = "Field of the heartbeat frame that is written",
     .names = &k_heartbeat_fields},
    {.name = "value",
     .type = field_type::i32,
     .offset = AT(HeartBeatPair, value),
     .about = "Its new value; the field keeps as many low bits as it is wide"},
});
inline constexpr block k_pair_block{"pair", "vexamsg.pair", VX_HB_PAIR_SIZE, k_pair_fields};
#undef AT

inline constexpr part k_status_parts[] = {{&k_user_block}};
inline constexpr part k_message_parts[] = {{&k_user_block, repeat::if_room}};
inline constexpr part k_manager_parts[] = {{&k_manager_block}, {&k_node_block, repeat::counted, "cnt"}};
inline constexpr part k_node_info_parts[] = {{&k_node_block}};
inline constexpr part k_pair_parts[] = {{&k_pair_block, repeat::fill}};

// The first row that fits a message is the one that is meant.
inline constexpr auto k_route_forms = std::to_array<form>({
    {.selector = MSTP_USER_DATA_OVER_WRITE,
     .name = "status",
     .kin = family::user,
     .parts = k_status_parts,
     .rest = &k_data_block},
    {.selector = MSTP_USER_DATA_PROC_BY_CALLBACK,
     .name = "message",
     .kin = family::user,
     .parts = k_message_parts,
     .rest = &k_data_block},
    {.selector = MSTP_NODE_MGR, // what send_node_info makes: a record, without command and count
     .name = "node_info",
     .kin = family::manager,
     .parts = k_node_info_parts,
     .if_payload = VX_NODE_RECORD_SIZE},
    {.selector = MSTP_NODE_MGR,
     .name = "register",
     .kin = family::manager,
     .parts = k_manager_parts,
     .rest = &k_surplus_block,
     .rest_size = 0,
     .if_command = MGR_CMD_REGISTER},
    {.selector = MSTP_NODE_MGR,
     .name = "unregister",
     .kin = family::manager,
     .parts = k_manager_parts,
     .rest = &k_surplus_block,
     .rest_size = VX_UNREGISTER_SURPLUS,
     .if_command = MGR_CMD_UNREGISTER},
    {.selector = MSTP_NODE_MGR,
     .name = "notify",
     .kin = family::manager,
     .parts = k_manager_parts,
     .rest = &k_surplus_block,
     .rest_size = 0,
     .if_command = MGR_CMD_NOTIFY},
    {.selector = MSTP_NODE_MGR,
     .name = "manager",
     .kin = family::manager,
     .parts = k_manager_parts,
     .rest = &k_surplus_block,
     .rest_size = 0},
    {.selector = MSTP_HEART_BEAT,
     .name = "heartbeat",
     .kin = family::heartbeat,
     .rest = &k_data_block,
     .remark = "nodes ignore messages of kind 3"},
    {.selector = MSTP_OPERATION_ON_HB,
     .name = "heartbeat_set",
     .kin = family::heartbeat,
     .parts = k_pair_parts,
     .rest = &k_surplus_block,
     .rest_size = 0},
});

inline constexpr envelope k_route{.name = "routing message",
                                  .column = "VexaMsg",
                                  .head = {"header", "vexamsg", VX_MSG_HEAD_SIZE, k_route_head_fields},
                                  .length_field = "data_length",
                                  .length_bias = 0,
                                  .selector_field = "msg_type",
                                  .tail = nullptr,
                                  .most_read = VX_MSG_MAX_READ,
                                  .by_node_id = true,
                                  .forms = k_route_forms};

static_assert(well_laid(k_route.head) && well_named(k_route));
static_assert(well_laid(k_manager_block) && well_laid(k_node_block) && well_laid(k_pair_block));
static_assert((VX_NODE_RECORD_SIZE - VX_MGR_HEAD_SIZE) % VX_NODE_RECORD_SIZE != 0,
              "no whole manager message is as long as a bare record");
static_assert(k_heartbeat_rows.size() == k_hb_fields.size(),
              "every field that the library writes has a name");

} // namespace formats

#endif
