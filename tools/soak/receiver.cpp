// The rules of reception. See receiver.h.
#include "receiver.h"

#include <algorithm>
#include <vector>

namespace soak {
namespace {

bool ids_accepted(const vx_msg_head_t &head, uint16_t self) {
    return self == PROXY_NODE_ID || (head.src < VX_NODE_COUNT && head.dst < VX_NODE_COUNT) ||
           head.dst == VX_MSG_BROADCAST;
}

std::span<const uint8_t> as_read(std::span<const uint8_t> datagram) {
    return datagram.first(std::min(datagram.size(), k_most_read));
}

verdict judge_status(const vx_msg_head_t &head, std::span<const uint8_t> datagram, uint16_t self) {
    const size_t arrived = datagram.size() - VX_MSG_HEAD_SIZE;
    if (head.data_length > VX_MSG_MAX_PAYLOAD ||
        (head.data_length > arrived && datagram.size() != k_most_read)) {
        return {outcome::status_cut_short, way::none, 0};
    }
    if (head.src >= VX_NODE_COUNT) {
        return {outcome::status_foreign, way::none, 0};
    }
    if (head.data_length > arrived) {
        return {outcome::damaged_status, way::none, 0}; // its end, a check, was cut off
    }
    return judge_given(datagram.subspan(VX_MSG_HEAD_SIZE, head.data_length), MSTP_USER_DATA_OVER_WRITE,
                       head.src, head.dst, self);
}

verdict judge_heartbeat(std::span<const uint8_t> pairs, uint16_t self) {
    const auto sender = read_heartbeat(pairs);
    if (!sender) {
        return {outcome::damaged_heartbeat, way::none, 0};
    }
    return self == PROXY_NODE_ID ? verdict{outcome::whole, way::heartbeat, *sender}
                                 : verdict{outcome::whole, way::heartbeat_on, PROXY_NODE_ID};
}

} // namespace

verdict judge(std::span<const uint8_t> datagram, uint16_t self) {
    datagram = as_read(datagram);
    if (datagram.size() < VX_MSG_HEAD_SIZE) {
        return {outcome::too_short, way::none, 0};
    }
    const vx_msg_head_t head = vx_msg_head_load(datagram.data());
    if (head.magic != VX_MSG_MAGIC) {
        return {outcome::wrong_magic, way::none, 0};
    }
    if (!ids_accepted(head, self)) {
        return {outcome::wrong_ids, way::none, 0};
    }
    switch (head.msg_type) {
    case MSTP_USER_DATA_OVER_WRITE:
        return judge_status(head, datagram, self);
    case MSTP_USER_DATA_PROC_BY_CALLBACK:
        return judge_given(datagram.subspan(VX_MSG_HEAD_SIZE), head.msg_type, head.src, head.dst, self);
    case MSTP_NODE_MGR:
        return {outcome::table, way::none, 0};
    case MSTP_OPERATION_ON_HB:
        return judge_heartbeat(pairs_in(datagram), self);
    default:
        return {outcome::irrelevant_kind, way::none, 0};
    }
}

verdict judge_given(std::span<const uint8_t> payload, uint8_t kind, uint16_t src, uint16_t dst,
                    uint16_t self) {
    const bool status = kind == MSTP_USER_DATA_OVER_WRITE;
    const verdict damaged{status ? outcome::damaged_status : outcome::damaged_callback, way::none, 0};
    const auto note = read_payload(payload);
    if (!note || !is_user_data(note->by) || is_status(note->by) != status || note->sender != src) {
        return damaged;
    }
    const uint16_t wanted_dst = is_broadcast(note->by) ? self : note->target;
    const uint16_t wanted_node = std::min<uint16_t>(wanted_dst, PROXY_NODE_ID); // beyond it, by the proxy
    return dst == wanted_dst && self == wanted_node ? verdict{outcome::whole, note->by, note->sender}
                                                    : damaged;
}

kept_status status_in(std::span<const uint8_t> datagram) {
    datagram = as_read(datagram);
    const vx_msg_head_t head = vx_msg_head_load(datagram.data());
    const std::span<const uint8_t> arrived = datagram.subspan(VX_MSG_HEAD_SIZE);
    std::vector<uint8_t> payload(std::max<size_t>(head.data_length, sizeof(uint16_t)));
    std::copy_n(arrived.begin(), std::min<size_t>(head.data_length, arrived.size()), payload.begin());
    return {ut_get_le16(payload.data()), head.data_length,
            check_of(std::span{payload}.first(head.data_length))};
}

std::span<const uint8_t> records_in(std::span<const uint8_t> datagram) {
    const std::span<const uint8_t> payload = as_read(datagram).subspan(VX_MSG_HEAD_SIZE);
    if (payload.size() < VX_MGR_HEAD_SIZE) {
        return {};
    }
    const int said = static_cast<int16_t>(ut_get_le16(&payload[2]));
    const size_t room = (payload.size() - VX_MGR_HEAD_SIZE) / VX_NODE_RECORD_SIZE;
    const size_t count = std::min(room, static_cast<size_t>(std::max(said, 0)));
    return payload.subspan(VX_MGR_HEAD_SIZE, count * VX_NODE_RECORD_SIZE);
}

std::span<const uint8_t> pairs_in(std::span<const uint8_t> datagram) {
    const std::span<const uint8_t> payload = as_read(datagram).subspan(VX_MSG_HEAD_SIZE);
    const uint16_t said = vx_msg_head_load(datagram.data()).data_length;
    const size_t count = std::min<size_t>(said, payload.size()) / VX_HB_PAIR_SIZE;
    return payload.first(count * VX_HB_PAIR_SIZE);
}

} // namespace soak
