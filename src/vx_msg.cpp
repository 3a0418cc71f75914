// The component as its application calls it: sending, polling, the heartbeat. Start and stop are in
// vx_msg_life.cpp.
//
// Everything may be called from any thread at any time: what uses the pipe or the direct-send socket passes a
// gate, which deinit closes before it takes them away. Queued sends wake the I/O thread through the pipe;
// direct sends go out on the caller's thread, on a socket of their own.
#include "vx_msg_impl.h"

#include "hb_mgr.h"
#include "io_pool.h"
#include "node_mapping.h"
#include "utils/netapi.h"
#include "vision_service_route_funcs.h"
#include "vx_fd.h"
#include "vx_log.h"
#include "vx_msg_buf.h"

#include <atomic>
#include <mutex>
#include <new>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using vx_msg::g_running;
using vx_msg::k_unit;
using vx_msg::thread_data; // NOLINT(misc-unused-using-decls): used in the functions below
using vx_msg::wake_io_thread;

thr_in_data_t vx_msg::thread_data{};
constinit usage_gate vx_msg::g_running;
constinit bool vx_msg::g_writing_blocks = false;

namespace {

constexpr int k_most_pairs = VX_MSG_MAX_PAYLOAD / VX_HB_PAIR_SIZE;

constinit std::mutex g_direct_creation;    // so that two first sends make one socket
constinit std::atomic<int> g_direct_fd{0}; // the direct-send socket, not bound; 0: not made yet

vx_msg_head_t head_to(uint16_t dst, int kind, int len) {
    return vx_msg_head_make(static_cast<uint8_t>(kind), static_cast<uint16_t>(len), nmapping_self_node_id(),
                            dst);
}

/// The payload's buffer is left as it is behind the payload: nothing of it is sent.
void build(vx_msg_buf &out, uint16_t dst, int kind, const void *msg, int len) {
    out.head = head_to(dst, kind, len);
    if (len > 0) {
        memcpy(out.payload, msg, static_cast<size_t>(len));
    }
}

bool payload_accepted(const char *function, const void *msg, int len, int most = VX_MSG_MAX_PAYLOAD) {
    if (len > most) {
        VX_LOG_AS(function, ERROR, "max msg len %d\n", VX_MSG_MAX_PAYLOAD);
        return false;
    }
    if (len < 0 || (msg == nullptr && len > 0)) {
        VX_LOG_AS(function, ERROR, "refused: length %d, payload %p\n", len, msg);
        return false;
    }
    return true;
}

/// One look at the table tells whether the next hop is active and where it is.
bool next_hop_active(const char *function, uint32_t dst, vexa_node_t &hop) {
    const uint16_t hop_id = dst > UINT16_MAX ? static_cast<uint16_t>(PROXY_NODE_ID)
                                             : nmapping_get_next_hop(static_cast<uint16_t>(dst));
    (void)nmapping_get(hop_id, &hop); // what is not there is not active
    if (dst <= UINT16_MAX && hop.stat == NODE_STAT_ACTIVED) {
        return true;
    }
    VX_LOG_AS(function, ERROR, "dst node %u, route by next_hop node_id %u inactived, may be unreachable\n",
              dst, hop_id);
    return false;
}

int refuse_not_started(const char *function) {
    VX_LOG_AS(function, ERROR, "refused: the node is not started\n");
    return -1;
}

int queue_message(const char *function, uint16_t dst, int kind, const void *msg, int len) {
    if (!payload_accepted(function, msg, len)) {
        return -1;
    }
    const gate_pass running{g_running};
    alignas(k_cache_line) vx_msg_buf out;
    build(out, dst, kind, msg, len);
    if (!running) { // the queue may be ready while the node starts, but nothing is to be sent then
        return io_pool_tx_refuse(out.message());
    }
    const int queued = io_pool_tx_put(out.message()); // refuses, and says so, while the node leaves
    return queued == 0 && wake_io_thread(function) ? 0 : -1;
}

/// Two threads that send for the first time at once make one socket between them.
int direct_socket() {
    const int made = g_direct_fd.load(std::memory_order_acquire);
    if (made != 0) {
        return made;
    }
    const std::lock_guard hold{g_direct_creation};
    if (g_direct_fd.load(std::memory_order_relaxed) == 0) {
        net_sockfd_t sock{};
        if (net_udp_client(&sock) != 0) {
            return -1; // the next send tries again
        }
        keep_from_other_programs(sock.sockfd);
        g_direct_fd.store(sock.sockfd, std::memory_order_release);
    }
    return g_direct_fd.load(std::memory_order_relaxed);
}

/// Sends a message past queue and I/O thread. Whether the next hop is active is the caller's business.
void send_now(vx_msg_buf &out, vexa_node_t &hop) {
    const int bytes = out.head.data_length + VX_MSG_HEAD_SIZE;
    vexa_node_end_texts(&hop);
    vx_msg_head_store(out.bytes(), &out.head);
    // A datagram may always be lost; the socket layer has logged what there is to say.
    (void)net_sendto_fd(direct_socket(), out.bytes(), bytes, hop.ip, hop.port);
}

int write_directly_to_node(int id, int lv1_type, const void *msg_in, int len, vexa_node_t &hop) {
    alignas(k_cache_line) vx_msg_buf out;
    build(out, static_cast<uint16_t>(id), lv1_type, msg_in, len);
    send_now(out, hop);
    return 0;
}

int send_directly(const char *function, NodeID id, int kind, const void *msg, int len) {
    const gate_pass running{g_running};
    vexa_node_t hop{};
    if (!next_hop_active(function, id, hop) || !payload_accepted(function, msg, len)) {
        return -1;
    }
    if (!running) {
        return refuse_not_started(function);
    }
    return write_directly_to_node(static_cast<int>(id), kind, msg, len, hop);
}

} // namespace

bool vx_msg::msg_match(const void *a, const void *b) {
    return memcmp(a, b, sizeof(uint16_t)) == 0;
}

bool vx_msg::wake_io_thread(const char *function) {
    const int fd = thread_data.pipefd[1];
    pollfd room{fd, POLLOUT, 0};
    // A full pipe is woken up enough; nobody waits for room in it.
    if ((!g_writing_blocks || poll(&room, 1, 0) == 1) && write(fd, "g", 1) == 1) {
        return true;
    }
    VX_LOG_AS(function, ERROR, "write pipe failed\n");
    return false;
}

void vx_msg::cut_direct_socket() {
    if (const int fd = g_direct_fd.load(std::memory_order_acquire); fd > 0) {
        (void)shutdown(fd, SHUT_WR); // says that the socket has no peer, and works all the same
    }
}

void vx_msg::close_direct_socket() {
    net_sockfd_t sock{};
    sock.sockfd = g_direct_fd.exchange(0, std::memory_order_relaxed);
    if (sock.sockfd > 0) {
        (void)net_close(&sock);
    }
}

void vx_msg::forget_direct_socket() {
    new (&g_direct_creation) std::mutex;
    close_direct_socket();
}

int vxmsg_send_general(uint16_t dst_node, int level1_type, const void *msg, int msg_len) {
    vexa_node_t hop{};
    if (!next_hop_active(__func__, dst_node, hop)) {
        return -1;
    }
    return queue_message(__func__, dst_node, level1_type, msg, msg_len);
}

int vision_send_msg(NodeID id, const void *msg, int len) {
    return send_directly(__func__, id, MSTP_USER_DATA_PROC_BY_CALLBACK, msg, len);
}

int vision_send_status(NodeID id, const void *msg, int len) {
    return send_directly(__func__, id, MSTP_USER_DATA_OVER_WRITE, msg, len);
}

int vision_broadcast_status(const void *msg, int len) {
    return queue_message(__func__, VX_MSG_BROADCAST, MSTP_USER_DATA_OVER_WRITE, msg, len);
}

int vision_brocast_msg(const void *msg, int len) {
    return queue_message(__func__, VX_MSG_BROADCAST, MSTP_USER_DATA_PROC_BY_CALLBACK, msg, len);
}

int vision_recv_status(MsgType type, void *msg, int /*buf_len*/, MsgExtra *extra) {
    if (extra == nullptr || msg == nullptr) {
        return -1;
    }
    uint8_t key[sizeof(uint16_t)];
    ut_put_le16(key, static_cast<uint16_t>(type));
    vx_msg_head_t head{};
    const int len = io_pool_rx_get(key, static_cast<char *>(msg), &extra->len, &head);
    if (len >= 1) {
        extra->src = static_cast<NodeID>(head.src);
        extra->dst = static_cast<NodeID>(head.dst);
        extra->recv_time = head.recv_time;
    }
    return len;
}

void vision_send_heartbeat(void) {
}

int vision_get_hearbeat(struct VPHeartbeatFrame *frame) {
    return hbmgr_get_hb(frame);
}

int vision_set_hearbeat(const HeartBeatPair *pairs, int len) {
    if (!payload_accepted(__func__, pairs, len, k_most_pairs)) {
        return -1;
    }
    const gate_pass running{g_running};
    if (!running) {
        return refuse_not_started(__func__);
    }
    (void)hbmgr_set_hb(pairs, len); // always 0
    alignas(k_cache_line) vx_msg_buf out;
    out.head = head_to(PROXY_NODE_ID, MSTP_OPERATION_ON_HB, len * VX_HB_PAIR_SIZE);
    for (int i = 0; i < len; ++i) {
        uint8_t *pair = out.payload + static_cast<ptrdiff_t>(i) * VX_HB_PAIR_SIZE;
        ut_put_le32(pair, static_cast<uint32_t>(pairs[i].field));
        ut_put_le32(pair + 4, static_cast<uint32_t>(pairs[i].value));
    }
    vexa_node_t proxy{};
    (void)nmapping_get(PROXY_NODE_ID, &proxy); // one that is not there has no address to reach
    send_now(out, proxy);
    return 0;
}
