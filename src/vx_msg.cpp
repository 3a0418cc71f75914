// The component: how a node starts and stops, and what its application calls.
//
// Start and stop are serialised by a lock of their own. Everything else may be called from any thread at any
// time: what uses the pipe or the direct-send socket passes a gate, which deinit closes before it takes them
// away. Queued sends wake the I/O thread through the pipe; direct sends go out on the caller's thread, on a
// socket of their own.
#include "hb_mgr.h"
#include "io_pool.h"
#include "node_mapping.h"
#include "node_mgr_msg_helper.h"
#include "stop_signal.h"
#include "thread_io.h"
#include "usage_gate.h"
#include "utils/netapi.h"
#include "vision_service_route_funcs.h"
#include "vx_log.h"
#include "vx_msg_buf.h"

#include <atomic>
#include <mutex>
#include <pthread.h>
#include <unistd.h>

int gn_dbg_route = 0;

namespace {

constexpr char k_unit[] = "src/vx_msg";
constexpr int k_dump_period_s = 120;
constexpr int k_most_pairs = VX_MSG_MAX_PAYLOAD / VX_HB_PAIR_SIZE;

constinit std::mutex g_lifecycle;    // held by init and deinit, whose own state follows
constinit uint8_t g_initialized = 0; // 1 from the pipes' creation until deinit
constinit bool g_io_thread_started = false;
constinit bool g_debug_thread_started = false;
constinit bool g_pipe_blocks = false; // its read end could not be made non-blocking
pthread_t tid{};                      // the I/O thread, valid while its flag is set
pthread_t g_debug_thread{};           // valid while its flag is set
stop_signal g_debug_stop;

// Written by init; the pipe ends are used by senders and deinit, the rest by the I/O thread.
thr_in_data_t thread_data{};
constinit usage_gate g_running;            // open while the pipe and the direct-send socket may be used
constinit std::mutex g_direct_creation;    // so that two first sends make one socket
constinit std::atomic<int> g_direct_fd{0}; // the direct-send socket, not bound; 0: not made yet

bool msg_match(const void *a, const void *b) {
    return memcmp(a, b, sizeof(uint16_t)) == 0;
}

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

bool wake_io_thread(const char *function) {
    if (write(thread_data.pipefd[1], "g", 1) == 1) {
        return true;
    }
    VX_LOG_AS(function, ERROR, "write pipe failed\n");
    return false;
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

void dump_node_table() {
    VX_LOG_AS("msg_route_dbg_thread", INFO,
              "_________________client__node_mapping______________________________\n");
    VX_LOG_AS("msg_route_dbg_thread", INFO,
              "| node_id |       name       |      ip_addr     |   port   | stat |\n");
    nmapping_valid_item_show();
    VX_LOG_AS("msg_route_dbg_thread", INFO,
              "___________________________________________________________________\n");
}

void *msg_route_dbg_thread(void * /*unused*/) {
    thrio_mark_own_thread();
    const std::atomic_ref<int> request{gn_dbg_route};
    while (!g_debug_stop.wait_for(k_dump_period_s)) {
        if (request.load(std::memory_order_relaxed) == 0) {
            dump_node_table();
            request.store(1, std::memory_order_relaxed);
        }
    }
    return nullptr;
}

void copy_text(char (&to)[16], const char *from) {
    memset(to, 0, sizeof to);
    memcpy(to, from, strnlen(from, sizeof to - 1));
}

void fill_context(NodeID id, const char *name, const char *ip, msg_call_back cb) {
    thread_data.node_id = static_cast<uint16_t>(id);
    thread_data.msg_cb = cb;
    thread_data.match = msg_match;
    copy_text(thread_data.ip, ip);
    copy_text(thread_data.name, name);
}

void close_pipe(int (&fds)[2]) {
    for (int &fd : fds) {
        if (fd > 0) { // 0: there is none
            (void)close(fd);
        }
        fd = 0;
    }
}

int create_pipes() {
    if (pipe(thread_data.pipefd) == 0 && pipe(thread_data.thio2aumsg) == 0) {
        return 0;
    }
    VX_LOG_AS("vision_msg_component_init", ERROR, "pipe create err\n");
    close_pipe(thread_data.pipefd);
    return -1;
}

int start_thread(pthread_t &thread, bool &started, void *(*body)(void *), void *argument) {
    started = pthread_create(&thread, nullptr, body, argument) == 0;
    if (!started) {
        VX_LOG_AS("vision_msg_component_init", ERROR, "failed to create thread\n");
        return -1;
    }
    return 0;
}

int start_threads() {
    thrio_prepare();
    g_debug_stop.reset();
    if (start_thread(tid, g_io_thread_started, msg_io_thread, &thread_data) != 0) {
        return -1;
    }
    return start_thread(g_debug_thread, g_debug_thread_started, msg_route_dbg_thread, nullptr);
}

/// The queue takes nothing more behind the UNREGISTER. A pipe that cannot be written, or whose reader is
/// stuck in it, is closed, which wakes the reader just as well.
void vxmsg_ungregister() {
    alignas(k_cache_line) vx_msg_buf out;
    buid_unregist_msg(out.message());
    io_pool_tx_put_last(out.message());
    thrio_request_leave();
    if (!wake_io_thread(__func__) || g_pipe_blocks) {
        g_running.close();
        (void)close(thread_data.pipefd[1]);
        thread_data.pipefd[1] = 0;
    }
}

void join_thread(pthread_t thread, bool &started) {
    if (started) {
        (void)pthread_join(thread, nullptr); // it runs and is not this thread
    }
    started = false;
}

void close_direct_socket() {
    net_sockfd_t sock{};
    sock.sockfd = g_direct_fd.exchange(0, std::memory_order_relaxed);
    if (sock.sockfd > 0) {
        (void)net_close(&sock);
    }
}

} // namespace

int vision_msg_component_init(NodeID id, const char *name, const char *ip, msg_call_back cb) {
    if (thrio_is_own_thread()) { // its node runs, and may be stopping: no wait for the lock here
        VX_LOG(INFO, "can't init twice\n");
        return -1;
    }
    const std::lock_guard hold{g_lifecycle};
    if (g_initialized != 0) {
        VX_LOG(INFO, "can't init twice\n");
        return -1;
    }
    if (name == nullptr || ip == nullptr) {
        VX_LOG(ERROR, "refused: a node needs a name and an ip\n");
        return -1;
    }
    nmapping_set_self(static_cast<uint16_t>(id));
    if (const int pool = io_pool_init(msg_match); pool < 0) {
        return pool;
    }
    if (const int table = nmapping_create(); table < 0) {
        return table;
    }
    ControlLogInit(name);
    fill_context(id, name, ip, cb);
    if (create_pipes() != 0) {
        return -1;
    }
    g_initialized = 1;
    g_pipe_blocks = net_set_fd_noblock(thread_data.pipefd[0]) == 0;
    (void)net_set_fd_noblock(thread_data.pipefd[1]); // without it a sender waits when the pipe is full
    g_running.open();
    if (start_threads() != 0) {
        return -1;
    }
    VX_LOG(INFO, "my node id %u, adv pipe[%d]\n", id, thread_data.pipefd[1]);
    return 0;
}

void vision_msg_component_deinit(void) {
    if (thrio_is_own_thread()) {
        VX_LOG(ERROR, "refused on a thread of the library, which would wait for itself\n");
        return;
    }
    const std::lock_guard hold{g_lifecycle};
    if (g_initialized == 0) {
        return;
    }
    thrio_stop_registering(); // a REGISTER behind the UNREGISTER would bring the node back
    vxmsg_ungregister();
    join_thread(tid, g_io_thread_started);
    VX_LOG(INFO, "thrio thread exit\n");
    g_debug_stop.request();
    join_thread(g_debug_thread, g_debug_thread_started);
    g_running.close();
    g_initialized = 0;
    thrio_cleanup(&thread_data);
    io_pool_deinit();
    nmapping_destroy();
    close_pipe(thread_data.pipefd);
    close_pipe(thread_data.thio2aumsg);
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
