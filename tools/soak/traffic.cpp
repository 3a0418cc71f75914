// The soak's messages. See traffic.h.
#include "traffic.h"

#include <algorithm>

namespace soak {
namespace {

constexpr size_t k_check_bytes = 8;
constexpr size_t k_stamp_bytes = 16;
constexpr uint32_t k_marker = 0x40000000; // over every field that exists
constexpr size_t k_heartbeat_bytes = size_t{2} * VX_HB_PAIR_SIZE;

constexpr auto k_ways = std::to_array<way_info>({
    {way::none, "garbage", "", 0},
    {way::direct, "direct", "vision_send_msg", 15},
    {way::queued, "queued", "vxmsg_send_general", 15},
    {way::app_direct, "to the app, direct", "vision_send_msg", 2},
    {way::app_queued, "to the app, queued", "vxmsg_send_general", 2},
    {way::status, "status, polled", "vision_send_status", 10},
    {way::broadcast, "broadcast", "vision_brocast_msg", 2},
    {way::status_broadcast, "status broadcast, polled", "vision_broadcast_status", 2},
    {way::heartbeat, "heartbeat to the proxy", "vision_set_hearbeat", 0.5},
    {way::heartbeat_on, "heartbeat from the proxy", "", 0},
    {way::registration, "registrations", "", 0},
    {way::table, "node tables", "", 0},
});
static_assert(k_ways.size() == static_cast<size_t>(way::number_of_ways));
static_assert(std::ranges::all_of(k_ways, [](const way_info &row) {
    return static_cast<size_t>(row.by) == static_cast<size_t>(&row - k_ways.data());
}));

uint8_t filling(uint32_t number, size_t at) {
    return static_cast<uint8_t>(size_t{number} * 31 + at * 7);
}

uint32_t marker_check(uint32_t sender, uint32_t number) {
    return static_cast<uint32_t>(mixed(uint64_t{sender} << 32 | number)) & 0x7FU;
}

/// The check that goes with a heartbeat change's first pair and its marker.
uint32_t pairs_check(uint32_t field, uint32_t value, uint32_t marker) {
    return static_cast<uint32_t>(mixed(mixed(uint64_t{field} << 32 | value) ^ marker));
}

tally_key key_of(way by, const vx_msg_head_t &head) {
    return {
        .what = {}, .by = by, .result = outcome::none, .place = 0, .sender = head.src, .target = head.dst};
}

tally_key user_stream(const vx_msg_head_t &head, std::span<const uint8_t> payload) {
    const auto note = read_payload(payload);
    return key_of(note && note->sender == head.src ? note->by : way::none, head);
}

} // namespace

const way_info &info_of(way by) {
    return k_ways.at(static_cast<size_t>(by));
}

uint64_t mixed(uint64_t value) {
    value += 0x9E3779B97F4A7C15U;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9U;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBU;
    return value ^ (value >> 31);
}

uint64_t check_of(std::span<const uint8_t> bytes) {
    uint64_t check = 0xCBF29CE484222325U;
    for (const uint8_t byte : bytes) {
        check = (check ^ byte) * 0x100000001B3U; // each step can be undone, so no one byte's change is lost
    }
    return check;
}

void write_payload(std::span<uint8_t> payload, const message_note &note) {
    const size_t checked = payload.size() - k_check_bytes;
    ut_put_le16(payload.data(), is_status(note.by) ? status_key(note.by, note.sender) : 0);
    ut_put_le16(&payload[2], static_cast<uint16_t>(payload.size()));
    ut_put_le16(&payload[4], note.sender);
    ut_put_le16(&payload[6], note.target);
    ut_put_le32(&payload[8], note.number);
    ut_put_le32(&payload[12], static_cast<uint32_t>(note.by));
    for (size_t at = k_stamp_bytes; at < checked; ++at) {
        payload[at] = filling(note.number, at);
    }
    ut_put_le64(&payload[checked], check_of(payload.first(checked)));
}

std::optional<message_note> read_payload(std::span<const uint8_t> payload) {
    if (payload.size() < k_least_payload) {
        return std::nullopt;
    }
    const size_t checked = payload.size() - k_check_bytes;
    const uint32_t by = ut_get_le32(&payload[12]);
    if (ut_get_le16(&payload[2]) != payload.size() || by >= static_cast<uint32_t>(way::number_of_ways) ||
        ut_get_le64(&payload[checked]) != check_of(payload.first(checked))) {
        return std::nullopt;
    }
    return message_note{static_cast<way>(by), ut_get_le16(&payload[4]), ut_get_le16(&payload[6]),
                        ut_get_le32(&payload[8])};
}

std::array<HeartBeatPair, 2> heartbeat_pairs(uint16_t sender, uint32_t number) {
    const uint32_t low = number & 0xFFFFU;
    const uint32_t marker =
        k_marker | (uint32_t{sender} & 0x7FU) << 23 | low << 7 | marker_check(sender & 0x7FU, low);
    const uint32_t field = number % 73;
    const uint32_t value = number * 7;
    return {HeartBeatPair{static_cast<HeartBeatField>(field), static_cast<int32_t>(value)},
            HeartBeatPair{static_cast<HeartBeatField>(marker),
                          static_cast<int32_t>(pairs_check(field, value, marker))}};
}

std::optional<uint16_t> heartbeat_sender(int32_t field) {
    const auto marker = static_cast<uint32_t>(field);
    const uint32_t sender = marker >> 23 & 0x7FU;
    const uint32_t number = marker >> 7 & 0xFFFFU;
    if ((marker & 0xC0000000U) != k_marker || (marker & 0x7FU) != marker_check(sender, number)) {
        return std::nullopt;
    }
    return static_cast<uint16_t>(sender);
}

std::optional<uint16_t> read_heartbeat(std::span<const uint8_t> payload) {
    if (payload.size() != k_heartbeat_bytes) {
        return std::nullopt;
    }
    const uint32_t marker = ut_get_le32(&payload[8]);
    if (ut_get_le32(&payload[12]) !=
        pairs_check(ut_get_le32(payload.data()), ut_get_le32(&payload[4]), marker)) {
        return std::nullopt;
    }
    return heartbeat_sender(static_cast<int32_t>(marker));
}

tally_key stream_of(std::span<const uint8_t> datagram) {
    if (datagram.size() < VX_MSG_HEAD_SIZE) {
        return {};
    }
    const vx_msg_head_t head = vx_msg_head_load(datagram.data());
    switch (head.msg_type) {
    case MSTP_USER_DATA_OVER_WRITE:
    case MSTP_USER_DATA_PROC_BY_CALLBACK:
        return user_stream(head, datagram.subspan(VX_MSG_HEAD_SIZE));
    case MSTP_NODE_MGR:
        return key_of(head.src == VX_NODE_MANAGER_ID ? way::table : way::registration, head);
    case MSTP_OPERATION_ON_HB:
        return key_of(head.dst == PROXY_NODE_ID ? way::heartbeat : way::heartbeat_on, head);
    default:
        return {};
    }
}

} // namespace soak
