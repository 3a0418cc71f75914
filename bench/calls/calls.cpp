// The tables of calls. See calls.h.
#include "calls.h"

#include "bus_table.h"
#include "hb_mgr.h"
#include "io_pool.h"
#include "node_mapping.h"
#include "thread_io.h"
#include "utils/netapi.h"
#include "utils/ut_list.h"
#include "vision_protocol.h"
#include "vision_service_route_funcs.h"
#include "vx_msg_def.h"

#include <array>
#include <stdexcept>

namespace bench {
namespace {

constexpr auto k_own = static_cast<NodeID>(100);
constexpr auto k_other = static_cast<NodeID>(5);
constexpr uint16_t k_last_known = 9; // of the nodes in the table
constexpr int k_payload = 64;        // [bytes]
constexpr MsgType k_type = MSG_VIO_CFG;

alignas(8) std::array<char, VX_MSG_MAX_PAYLOAD> buffer{};
alignas(8) std::array<uint8_t, VX_MSG_BUFFER_SIZE> datagram{};
MsgExtra extra{};
VPHeartbeatFrame frame{};
vexa_node_t record{};
const HeartBeatPair k_pair{WORK_MODE, 3};
list_t *const numbers = list_create(nullptr);

/// A message to this node. It is made anew for each call, since the receiver writes into it.
void arrive(vx_msg_type kind, uint16_t key, uint16_t length) {
    const vx_msg_head_t head = vx_msg_head_make(static_cast<uint8_t>(kind), length, k_other, k_own);
    vx_msg_head_store(datagram.data(), &head);
    ut_put_le16(datagram.data() + VX_MSG_HEAD_SIZE, key);
    thrio_proc_message(nullptr, datagram.data(), VX_MSG_HEAD_SIZE + length);
}

const vx_msg_head_t *message() {
    const vx_msg_head_t head = vx_msg_head_make(MSTP_USER_DATA_OVER_WRITE, k_payload, k_other, k_own);
    memcpy(datagram.data(), &head, sizeof head);
    return reinterpret_cast<const vx_msg_head_t *>(datagram.data());
}

void put_and_take() {
    int len = 0;
    (void)io_pool_tx_put(message());
    (void)io_pool_tx_get(buffer.data(), &len);
}

void ask_pool() {
    int len = 0;
    vx_msg_head_t head{};
    const auto key = static_cast<uint16_t>(k_type);
    (void)io_pool_rx_get(&key, buffer.data(), &len, &head);
}

void operate() {
    arrive(MSTP_OPERATION_ON_HB, static_cast<uint16_t>(WORK_MODE), VX_HB_PAIR_SIZE);
}

void link_area() {
    vxlink_movidus_report_goal_area_t area{};
    (void)send_message_track_area_array(&area);
}

void link_status() {
    vxlink_movidus_report_track_status_t status{};
    (void)send_message_track_status(&status);
}

void append_and_pop() {
    (void)list_add_node_tail(numbers, &record);
    list_pop_head(numbers);
}

constexpr int k_slow = 50; // calls of what waits a millisecond each

constexpr auto k_counted = std::to_array<counted_call>({
    {"vision_send_msg", [] { (void)vision_send_msg(k_other, buffer.data(), k_payload); }},
    {"vision_send_status", [] { (void)vision_send_status(k_other, buffer.data(), k_payload); }},
    {"vxmsg_send_general", [] { (void)vxmsg_send_general(k_other, 1, buffer.data(), k_payload); }},
    {"vision_broadcast_status", [] { (void)vision_broadcast_status(buffer.data(), k_payload); }},
    {"vision_brocast_msg", [] { (void)vision_brocast_msg(buffer.data(), k_payload); }},
    {"vision_recv_status",
     [] { (void)vision_recv_status(k_type, buffer.data(), VX_MSG_MAX_PAYLOAD, &extra); }},
    {"vision_send_heartbeat", [] { vision_send_heartbeat(); }},
    {"vision_get_hearbeat", [] { (void)vision_get_hearbeat(&frame); }},
    {"vision_set_hearbeat", [] { (void)vision_set_hearbeat(&k_pair, 1); }},
    {"thrio_proc_message:status", [] { arrive(MSTP_USER_DATA_OVER_WRITE, k_type, k_payload); }},
    {"thrio_proc_message:callback", [] { arrive(MSTP_USER_DATA_PROC_BY_CALLBACK, k_type, k_payload); }},
    {"thrio_proc_message:heartbeat", operate},
    {"node_check", [] { (void)node_check(message()); }},
    {"hbmgr_get_hb", [] { (void)hbmgr_get_hb(&frame); }},
    {"hbmgr_set_hb", [] { (void)hbmgr_set_hb(&k_pair, 1); }},
    {"io_pool_rx_put", [] { (void)io_pool_rx_put(message()); }},
    {"io_pool_rx_get", ask_pool},
    {"io_pool_tx_put", put_and_take},
    {"io_pool_tx_get", put_and_take},
    {"nmapping_get", [] { (void)nmapping_get(k_other, &record); }},
    {"nmapping_set", [] { (void)nmapping_set(k_last_known, &record); }},
    {"nmapping_get_stat", [] { (void)nmapping_get_stat(k_other); }},
    {"nmapping_get_next_hop", [] { (void)nmapping_get_next_hop(k_other); }},
    {"nmapping_self_node_id", [] { (void)nmapping_self_node_id(); }},
    {"net_sendto_fd",
     [] { (void)net_sendto_fd(1, buffer.data(), 1, k_bus_ip, 1); }}, // no socket: the system refuses
    {"list_add_node_tail", append_and_pop},
    {"list_pop_head", append_and_pop},
    {"send_message_track_status", link_status, k_slow},
    {"send_message_track_area_array", link_area, k_slow},
    {"send_ifly_command_ack", [] { (void)send_ifly_command_ack(1, 0); }, k_slow},
    {"send_ifly_command_cam", [] { (void)send_ifly_command_cam(1, nullptr, 0); }, k_slow},
});

/// Statuses of so many types, all told.
template <int Keys>
void queue_statuses() {
    static_assert(Keys <= 1025, "more are never queued");
    for (int i = 0; i < Keys; ++i) {
        arrive(MSTP_USER_DATA_OVER_WRITE, static_cast<uint16_t>(static_cast<int>(k_type) + i), k_payload);
    }
}

/// Asks for the last of so many types, which lies behind all others.
template <int Keys>
void ask_last() {
    const auto type = static_cast<MsgType>(static_cast<int>(k_type) + Keys - 1);
    (void)vision_recv_status(type, buffer.data(), VX_MSG_MAX_PAYLOAD, &extra);
}

void nothing() {
}

// The queue only grows, so the works that ask it stand in this order.
constexpr auto k_timed = std::to_array<timed_call>({
    {"vision_recv_status, 1 key queued", queue_statuses<1>, ask_last<1>},
    {"hbmgr_set_hb, one pair", nothing, [] { (void)hbmgr_set_hb(&k_pair, 1); }},
    {"a heartbeat operation that arrives, one pair", nothing, operate},
    {"vision_get_hearbeat", nothing, [] { (void)vision_get_hearbeat(&frame); }},
    {"a message for the callback that arrives", nothing,
     [] { arrive(MSTP_USER_DATA_PROC_BY_CALLBACK, k_type, k_payload); }},
    {"a status that arrives and overwrites", nothing,
     [] { arrive(MSTP_USER_DATA_OVER_WRITE, k_type, k_payload); }},
    {"vision_recv_status, 100 keys queued", queue_statuses<100>, ask_last<100>},
    {"vision_recv_status, 1025 keys queued", queue_statuses<1025>, ask_last<1025>},
});

} // namespace

std::span<const counted_call> counted_calls() {
    return k_counted;
}

std::span<const timed_call> timed_calls() {
    return k_timed;
}

void start_called_node() {
    if (vision_msg_component_init(k_own, "calls", k_bus_ip, [](void *, MsgExtra *) {}) != 0) {
        throw std::runtime_error("the node does not start");
    }
    learn_nodes(static_cast<uint16_t>(k_own), 1, k_last_known);
    learn_nodes(static_cast<uint16_t>(k_own), PROXY_NODE_ID, PROXY_NODE_ID);
    arrive(MSTP_USER_DATA_OVER_WRITE, k_type, k_payload);
    (void)nmapping_get(k_last_known, &record);
}

} // namespace bench
