// The registration worker: the node's keep-alive towards the node manager.
//
// It sends on the I/O thread's socket, from a thread of its own that mostly sleeps. It never sends any more
// once the node has begun to leave: a REGISTER behind the UNREGISTER would bring the node back.
#include "node_mapping.h"
#include "stop_signal.h"
#include "thread_io_impl.h"
#include "usage_gate.h"
#include "utils/netapi.h"
#include "vx_log.h"

#include <array>
#include <atomic>
#include <new>

using thread_io::g_sio;
using thread_io::k_unit;

namespace {

constexpr int k_first_period_s = 1;     // between REGISTERs until the manager has accepted
constexpr int k_accepted_period_s = 10; // and from then on
constexpr int k_register_log_every = 10;

// [s] Written by each start and on acceptance, read by the worker.
constinit std::atomic<int> gn_node_reg_time{k_first_period_s};
constinit std::atomic<uint8_t> g_register_sends{0}; // thins out the worker's log; wraps
constinit usage_gate g_register_gate;               // open while REGISTERs may leave
stop_signal g_register_stop;
pthread_t g_register_worker{};                    // valid while the flag is set
constinit bool g_register_worker_started = false; // written by the I/O thread, read after it was joined

vexa_node_t own_record(const thr_in_data_t &context) {
    vexa_node_t node{};
    memcpy(node.name, context.name, sizeof node.name);
    memcpy(node.ip, context.ip, sizeof node.ip);
    vexa_node_end_texts(&node);
    node.node_id = nmapping_self_node_id();
    node.port = static_cast<uint16_t>(VX_NODE_PORT_BASE + node.node_id);
    node.stat = NODE_STAT_ACTIVED;
    return node;
}

constexpr size_t k_register_size = VX_MSG_HEAD_SIZE + VX_MGR_HEAD_SIZE + VX_NODE_RECORD_SIZE;
using register_bytes = std::array<uint8_t, k_register_size>;

register_bytes build_register(const vexa_node_t &own) {
    register_bytes datagram{};
    const vx_msg_head_t head = vx_msg_head_make(MSTP_NODE_MGR, VX_MGR_HEAD_SIZE + VX_NODE_RECORD_SIZE,
                                                own.node_id, VX_NODE_MANAGER_ID);
    vx_msg_head_store(datagram.data(), &head);
    uint8_t *payload = datagram.data() + VX_MSG_HEAD_SIZE;
    ut_put_le16(payload, MGR_CMD_REGISTER);
    ut_put_le16(payload + 2, 1);
    vexa_node_store(payload + VX_MGR_HEAD_SIZE, &own);
    return datagram;
}

void send_register(const register_bytes &datagram, const vexa_node_t &manager) {
    if (g_register_sends.fetch_add(1, std::memory_order_relaxed) % k_register_log_every == 0) {
        VX_LOG_AS("send_register_req", INFO,
                  "\n\r send_register_req , node_id=%d,mgr_node.ip=%s, mgr_node.port=%d \n\r",
                  nmapping_self_node_id(), manager.ip, manager.port);
    }
    // A lost REGISTER is made up for by the next.
    (void)net_sendto_fd(g_sio.sockfd, datagram.data(), static_cast<int>(datagram.size()), manager.ip,
                        manager.port);
}

} // namespace

namespace thread_io {

void prepare_registering() {
    gn_node_reg_time.store(k_first_period_s, std::memory_order_relaxed);
    g_register_stop.reset();
    g_register_gate.open();
}

void start_register_worker(thr_in_data_t &context) {
    g_register_worker_started = pthread_create(&g_register_worker, nullptr, send_register_req, &context) == 0;
    if (!g_register_worker_started) {
        VX_LOG_AS("msg_io_thread", ERROR, "failed to create thread\n");
    }
}

void registration_accepted() {
    gn_node_reg_time.store(k_accepted_period_s, std::memory_order_relaxed);
}

bool register_worker_joined_by(deadline_t end) {
    return join_by(g_register_worker, g_register_worker_started, end);
}

void forget_register_worker() {
    g_register_worker_started = false;
    new (&g_register_stop) stop_signal;
    new (&g_register_gate) usage_gate;
}

} // namespace thread_io

void *send_register_req(void *data) {
    thrio_mark_own_thread();
    const vexa_node_t own = own_record(*static_cast<thr_in_data_t *>(data));
    const register_bytes datagram = build_register(own);
    VX_LOG(INFO, "ip %s, port %u\n", own.ip, own.port);
    (void)nmapping_set(own.node_id, &own); // the own entry is active from here on
    vexa_node_t manager{};
    (void)nmapping_get(VX_NODE_MANAGER_ID, &manager); // once: where REGISTERs go never changes
    vexa_node_end_texts(&manager);
    for (;;) {
        // Asked before the send: an answer that is faster than this thread slows down the REGISTER after the
        // next, not the next.
        const int period_s = gn_node_reg_time.load(std::memory_order_relaxed);
        if (const gate_pass may_send{g_register_gate}) {
            send_register(datagram, manager);
        } else {
            return nullptr;
        }
        (void)g_register_stop.wait_for(period_s); // the gate says why it is over
    }
}

void thrio_stop_registering(deadline_t end) {
    g_register_gate.shut(); // before the worker wakes
    g_register_stop.request();
    (void)g_register_gate.close_by(end);
}
