// The I/O thread.
//
// It owns the node's socket and runs the loop: it receives, calls the application back, and sends what is
// queued. The registration worker sends on the same socket. Other threads come here only to start and stop,
// and, on the proxy, through thrio_proc_message's broadcast, for which a gate keeps the socket alive.
#include "thread_io_impl.h"

#include "after_fork.h"
#include "hb_mgr.h"
#include "log_throttle.h"
#include "node_mapping.h"
#include "node_mgr_msg_helper.h"
#include "usage_gate.h"
#include "utils/netapi_impl.h"
#include "utils/ut_timer.h"
#include "vx_fd.h"
#include "vx_log.h"
#include "vx_msg_buf.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <new>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

using thread_io::g_sio;
using thread_io::k_unit;

socket_io_t thread_io::g_sio{};

namespace {

constexpr char k_rule[] = "___________________________________________________________________\n";
constexpr int k_table_log_every = 60;
constexpr double k_end_delay_s = 0.03; // from the UNREGISTER to the end; a tenth of what the log line says
constexpr int k_farewell_reads = 300;  // datagrams still read while leaving; a socket holds fewer by default

// Written by the I/O thread at its start, cleared at the end.
constinit std::atomic<msg_call_back> user_msg_cb{nullptr};
ut_timer unreg_timer{};                               // the I/O thread's, and deinit's after it
constinit std::atomic<uint8_t> g_manager_messages{0}; // thins out the echo of the table; wraps
constinit std::atomic<uint8_t> g_broadcast_sends{0};  // for the debugger; wraps
constinit log_now_and_then g_accepted_throttle;
constinit std::atomic<bool> g_leaving{false};   // set once the UNREGISTER is queued
constinit std::atomic<bool> g_left{false};      // set once it has been dealt with
constinit std::atomic<bool> g_cut_off{false};   // set when the stop waits for this thread no longer
constinit std::atomic<int> g_farewell_reads{0}; // datagrams handled since
constinit usage_gate g_socket_gate;             // open while g_sio's socket may be used by other threads
constinit thread_local bool own_thread = false;
constinit thread_local bool runs_the_loop = false;

/// Turns a message into what goes on the wire, in place, and sends it. Takes a copy of the header, which in
/// host order may be the very bytes that are overwritten.
// cppcheck-suppress passedByValue
void send_datagram(const vx_msg_head_t head, uint8_t *bytes, vexa_node_t &to) {
    vx_msg_head_store(bytes, &head);
    vexa_node_end_texts(&to);
    // A datagram may always be lost; the socket layer has logged what there is to say.
    (void)net_sendto_fd(g_sio.sockfd, bytes, head.data_length + VX_MSG_HEAD_SIZE, to.ip, to.port);
}

void log_inactive(vexa_node_t &node) {
    vexa_node_end_texts(&node);
    VX_LOG_AS("on_write", WARN, "dst node (%s, %u), inactived\n", node.name, node.node_id);
}

void send_routed(vx_msg_buf &msg) {
    if (msg.head.dst == VX_MSG_BROADCAST) {
        thrio_send_brocast(msg.message());
        return;
    }
    vexa_node_t node{};
    (void)nmapping_get(nmapping_get_next_hop(msg.head.dst), &node);
    if (node.stat != NODE_STAT_ACTIVED) {
        log_inactive(node);
        return;
    }
    send_datagram(msg.head, msg.bytes(), node);
}

[[noreturn]] void wait_unreg_ack_timeout(ut_timer * /*timer*/, void * /*privdata*/) {
    VX_LOG(WARN, "mgr server not ack unregister msg in 300ms\n");
    pthread_exit(nullptr);
}

/// A timer that runs already is left alone: the first UNREGISTER decides when the thread ends.
void start_end_timer() {
    if (!ut_timer_active(&unreg_timer)) {
        ut_timer_set(&unreg_timer, k_end_delay_s, false, wait_unreg_ack_timeout, nullptr);
        ut_timer_start(&unreg_timer);
    }
}

void send_unregister(vx_msg_buf &msg) {
    vexa_node_t manager{};
    (void)nmapping_get(msg.head.dst, &manager);
    if (manager.stat == NODE_STAT_ACTIVED) {
        send_datagram(msg.head, msg.bytes(), manager);
        VX_LOG_AS("on_write", INFO, "send UNREG to [%s : %u]", manager.ip, manager.port);
    } else {
        log_inactive(manager);
    }
    g_left.store(true, std::memory_order_relaxed);
    start_end_timer();
}

void send_queued(vx_msg_buf &msg) {
    switch (msg.head.msg_type) {
    case MSTP_USER_DATA_OVER_WRITE:
    case MSTP_USER_DATA_PROC_BY_CALLBACK:
    case MSTP_OPERATION_ON_HB:
        send_routed(msg);
        break;
    case MSTP_NODE_MGR:
        send_unregister(msg);
        break;
    default:
        VX_LOG_AS("on_write", ERROR, "Unknown msgtype %u\n", msg.head.msg_type);
    }
}

/// Reads until the pipe is empty. Its end is no end of this loop, unless the node leaves: then the closed
/// pipe is what has woken it.
void drain_wakeups(int fd) {
    char byte = 0;
    ssize_t got = 0;
    do {
        got = read(fd, &byte, 1);
    } while (got > 0 || (got == 0 && !g_leaving.load(std::memory_order_acquire)));
}

/// One datagram, its header already checked and stamped. The payload view ends where the datagram ended.
struct datagram_t {
    vx_msg_head_t &head;
    uint8_t *bytes;    // header, in host order, and payload
    uint8_t *payload;  // bytes + 16
    int payload_bytes; // arrived behind the header
    MsgExtra &extra;
};

/// For a datagram that was cut at the read limit: what did not arrive is zero.
void keep_cut_status(const datagram_t &d) {
    alignas(k_cache_line) vx_msg_buf whole;
    memset(whole.payload, 0, sizeof whole.payload);
    memcpy(whole.bytes(), d.bytes, VX_MSG_MAX_READ);
    (void)io_pool_rx_put(whole.message());
}

void keep_status(const datagram_t &d) {
    const bool arrived = d.head.data_length <= d.payload_bytes;
    const bool cut = d.payload_bytes + VX_MSG_HEAD_SIZE == VX_MSG_MAX_READ;
    if (d.head.data_length > VX_MSG_MAX_PAYLOAD || (!arrived && !cut)) {
        VX_LOG_AS("thrio_proc_message", WARN, "drop msg of node %u, length %u, arrived %d\n", d.head.src,
                  d.head.data_length, d.payload_bytes);
    } else if (arrived) {
        (void)io_pool_rx_put(reinterpret_cast<vx_msg_head_t *>(d.bytes)); // says itself why it refuses
    } else {
        keep_cut_status(d);
    }
}

void call_back(const datagram_t &d) {
    const msg_call_back callback = user_msg_cb.load(std::memory_order_relaxed);
    if (callback != nullptr && !g_cut_off.load(std::memory_order_relaxed)) {
        callback(d.payload, &d.extra);
    }
}

void accept_registration() {
    if (g_accepted_throttle.passes(0)) {
        VX_LOG_AS("thrio_proc_message", INFO, "receive MSTP_NODE_MGR regist success \n\r");
    }
    nmapping_set_stat(VX_NODE_MANAGER_ID, NODE_STAT_ACTIVED);
    thread_io::registration_accepted();
}

void store_record(const uint8_t *record, bool echo) {
    vexa_node_t node = vexa_node_load(record);
    if (nmapping_set(node.node_id, &node) != 0) {
        VX_LOG_AS("thrio_proc_message", WARN, "skip record of node %u, not stored\n", node.node_id);
    } else if (echo) {
        vexa_node_end_texts(&node);
        VX_LOG_AS("thrio_proc_message", INFO, "| %7d | %16s | %16s | %8d | %4d |\n", node.node_id, node.name,
                  node.ip, node.port, node.stat);
    }
}

/// How many records to take: as many as the message says, if they have arrived whole.
int records_in(const datagram_t &d) {
    if (d.payload_bytes < VX_MGR_HEAD_SIZE) {
        return 0;
    }
    const int said = static_cast<int16_t>(ut_get_le16(d.payload + 2));
    return std::min(said, (d.payload_bytes - VX_MGR_HEAD_SIZE) / VX_NODE_RECORD_SIZE);
}

void update_table(const datagram_t &d) {
    if (static_cast<int8_t>(d.bytes[offsetof(vx_msg_head_t, flag)]) < 0) {
        accept_registration();
    }
    const auto count = static_cast<uint8_t>(g_manager_messages.fetch_add(1, std::memory_order_relaxed) + 1);
    const bool echo = count % k_table_log_every == 0;
    if (echo) {
        VX_LOG_AS("thrio_proc_message", INFO,
                  "___________________client_receive_MSTP_NODE_MGR____________________\n");
    }
    const int records = records_in(d);
    for (int i = 0; i < records; ++i) {
        store_record(d.payload + VX_MGR_HEAD_SIZE + static_cast<ptrdiff_t>(i) * VX_NODE_RECORD_SIZE, echo);
    }
    if (echo) {
        VX_LOG_AS("thrio_proc_message", INFO, k_rule);
    }
}

void operate_on_heartbeat(const datagram_t &d) {
    const int pairs = std::min<int>(d.head.data_length, d.payload_bytes) / VX_HB_PAIR_SIZE;
    hbmgr_set_hb_wire(d.payload, pairs);
    if (nmapping_self_node_id() != PROXY_NODE_ID) {
        return;
    }
    d.head.src = PROXY_NODE_ID;
    if (d.head.data_length > d.payload_bytes) {
        d.head.data_length = static_cast<uint16_t>(pairs * VX_HB_PAIR_SIZE); // pass on what has arrived
    }
    memcpy(d.bytes, &d.head, sizeof d.head);
    thrio_send_brocast(reinterpret_cast<vx_msg_head_t *>(d.bytes));
}

using handler_t = void (*)(const datagram_t &);
constexpr std::array<handler_t, 5> k_handlers = {keep_status, call_back, update_table, nullptr,
                                                 operate_on_heartbeat};

void dispatch(const datagram_t &d) {
    const handler_t handler = d.head.msg_type < k_handlers.size() ? k_handlers[d.head.msg_type] : nullptr;
    if (handler == nullptr) {
        VX_LOG_AS("thrio_proc_message", WARN, "mgr server receive irreletive msg\n");
        return;
    }
    handler(d);
}

/// The time of arrival within its second [ns]; not a whole time stamp, which receivers know.
uint32_t time_within_second() {
    timeval now{};
    (void)gettimeofday(&now, nullptr); // cannot fail
    return static_cast<uint32_t>(now.tv_usec) * 1000U;
}

/// The socket is read until it is empty, which a peer that never stops sending could put off for ever.
void leave_despite_flood(const socket_io_t *sio) {
    if (sio == &g_sio && g_leaving.load(std::memory_order_relaxed) &&
        g_farewell_reads.fetch_add(1, std::memory_order_relaxed) == k_farewell_reads) {
        thread_io::stop_reading();
    }
}

/// For a socket that cannot be made non-blocking: a short wait for nothing, instead of one without end.
void limit_waiting(const net_sockfd_t &sock) {
    const timeval a_moment{0, 1000};
    (void)setsockopt(sock.sockfd, SOL_SOCKET, SO_RCVTIMEO, &a_moment, sizeof a_moment);
}

void open_socket(const thr_in_data_t &context) {
    // None of the three is fatal; the socket layer logs why one failed.
    net_sockfd_t sock{};
    if (net_udp_client(&sock) == 0) {
        keep_from_other_programs(sock.sockfd);
    }
    (void)net_bind(&sock, nullptr, static_cast<uint16_t>(VX_NODE_PORT_BASE + context.node_id));
    if (net_set_socket_noblock(&sock) == 0) {
        limit_waiting(sock);
    }
    g_sio.sockfd = sock.sockfd;
    g_sio.pipefd_wr = context.thio2aumsg[1];
    g_sio.proc_msg = thrio_proc_message;
}

/// One try: whoever leaves for a thread that is stuck in the network must not get stuck there too.
void take_leave() {
    vx_msg_buf msg;
    buid_unregist_msg(msg.message());
    vexa_node_t manager{};
    (void)nmapping_get(VX_NODE_MANAGER_ID, &manager);
    if (manager.stat != NODE_STAT_ACTIVED) {
        return;
    }
    vexa_node_end_texts(&manager);
    const size_t size = VX_MSG_HEAD_SIZE + static_cast<size_t>(msg.head.data_length);
    vx_msg_head_store(msg.bytes(), &msg.head);
    const netapi::ipv4_addr to{manager.ip, manager.port};
    (void)sendto(g_sio.sockfd, msg.bytes(), size, MSG_DONTWAIT, to.get(), netapi::ipv4_addr::k_size);
}

void stop_loop(thr_in_data_t &context) {
    ut_timer_stop(&unreg_timer);
    (void)ev_clear_pending(context.loop,
                           &unreg_timer.ev); // due at the last moment, it would end the next start
    thread_io::stop_watchers(context);
}

} // namespace

static_assert(offsetof(thr_in_data_t, ev) == 0, "on_write takes the watcher's address for the record's");

void *msg_io_thread(void *data) {
    thr_in_data_t &context = *static_cast<thr_in_data_t *>(data);
    thrio_mark_own_thread();
    runs_the_loop = true;
    open_socket(context);
    user_msg_cb.store(context.msg_cb, std::memory_order_relaxed);
    ut_loop_init();
    if (ut_default_loop == nullptr) {
        VX_LOG(ERROR, "no event loop, the node neither sends nor receives\n");
        return nullptr;
    }
    thread_io::start_watchers(context);
    g_socket_gate.open();
    thread_io::start_register_worker(context);
    ut_loop_run();
    return nullptr;
}

void thrio_proc_message(socket_io_t *sio, void *msg_in, int len) {
    leave_despite_flood(sio); // first, for what is dropped below counts too
    auto *bytes = static_cast<uint8_t *>(msg_in);
    if (len < VX_MSG_HEAD_SIZE) {
        VX_LOG(WARN, "drop datagram of %d bytes, shorter than a header\n", len);
        return;
    }
    vx_msg_head_t head = vx_msg_head_load(bytes);
    if (msg_check(&head) != 0 || node_check(&head) != 0) {
        return;
    }
    head.recv_time = time_within_second();
    memcpy(bytes, &head, sizeof head);
    MsgExtra extra = {static_cast<NodeID>(head.src), static_cast<NodeID>(head.dst), head.recv_time, len};
    dispatch({head, bytes, bytes + VX_MSG_HEAD_SIZE, len - VX_MSG_HEAD_SIZE, extra});
}

int node_check(const vx_msg_head_t *msg) {
    const bool both_in_table = msg->src < VX_NODE_COUNT && msg->dst < VX_NODE_COUNT;
    if (nmapping_self_node_id() == PROXY_NODE_ID || both_in_table || msg->dst == VX_MSG_BROADCAST) {
        return 0;
    }
    VX_LOG(ERROR, "node check  error, src %u, dst %u\n", msg->src, msg->dst);
    return -1;
}

int msg_check(const vx_msg_head_t *msg) {
    if (msg->magic == VX_MSG_MAGIC) {
        return 0;
    }
    VX_LOG(ERROR, "mgic check error\n");
    return -1;
}

void on_write(struct ev_loop * /*loop*/, ev_io *watcher, int /*events*/) {
    const thr_in_data_t &context = *reinterpret_cast<thr_in_data_t *>(watcher);
    drain_wakeups(context.pipefd[0]);
    // Behind the last wake-up byte, which may be the farewell's, and before the queue is looked at.
    const bool leaving = g_leaving.load(std::memory_order_acquire);
    alignas(k_cache_line) vx_msg_buf msg;
    int len = 0;
    while (io_pool_tx_get(reinterpret_cast<char *>(&msg), &len) >= 1) {
        send_queued(msg);
    }
    if (leaving) {
        start_end_timer(); // for an UNREGISTER that got lost on the way here
    }
}

void thrio_send_brocast(vx_msg_head_t *msg) {
    const gate_pass pass{g_socket_gate};
    if (!pass) {
        return;
    }
    vx_msg_head_t head = *msg;
    auto *bytes = reinterpret_cast<uint8_t *>(msg);
    // Ends at the sender's own id on purpose; peers rely on it.
    for (int id = 1; id < nmapping_get_size() && id != head.src; ++id) {
        vexa_node_t node{};
        (void)nmapping_get(static_cast<uint16_t>(id), &node);
        if (node.stat == NODE_STAT_ACTIVED) {
            g_broadcast_sends.fetch_add(1, std::memory_order_relaxed);
            head.dst = static_cast<uint16_t>(id);
            send_datagram(head, bytes, node);
        }
    }
    memcpy(bytes, &head, sizeof head);
}

void thrio_prepare() {
    g_leaving.store(false, std::memory_order_relaxed);
    g_left.store(false, std::memory_order_relaxed);
    g_cut_off.store(false, std::memory_order_relaxed);
    g_farewell_reads.store(0, std::memory_order_relaxed);
    thread_io::prepare_registering();
}

void thrio_request_leave() {
    g_leaving.store(true, std::memory_order_release);
}

void thrio_cut_off() {
    g_cut_off.store(true, std::memory_order_relaxed);
    const gate_pass pass{g_socket_gate}; // closed: the thread has not come as far as to have a socket
    if (!pass) {
        return;
    }
    if (!g_left.load(std::memory_order_relaxed)) {
        take_leave();
    }
    // What still waits for room to send is told that there will be none: "again" has no end of its own.
    (void)shutdown(g_sio.sockfd, SHUT_WR); // says that the socket has no peer, and works all the same
}

bool thrio_unused_by(deadline_t end) {
    return thread_io::register_worker_joined_by(end) && g_socket_gate.close_by(end);
}

void thrio_cleanup(thr_in_data_t *context) {
    if (context->loop != nullptr) {
        stop_loop(*context);
    }
    user_msg_cb.store(nullptr, std::memory_order_relaxed);
    net_sockfd_t sock{};
    sock.sockfd = g_sio.sockfd;
    if (sock.sockfd > 0) { // 0 before the first start
        (void)net_close(&sock);
    }
    g_sio.sockfd = -1;
}

bool thrio_is_own_thread() {
    return own_thread;
}

void thrio_mark_own_thread() {
    own_thread = true;
}

bool thread_io::join_by(pthread_t thread, bool &started, deadline_t end) {
    if (started && true_by(end, [thread] { return pthread_tryjoin_np(thread, nullptr) == 0; })) {
        started = false;
    }
    return !started;
}

/// A child that was forked inside the callback has the loop beneath it, as it is. It ends with the callback.
void thrio_after_fork(thr_in_data_t &context) {
    if (runs_the_loop && context.loop != nullptr) {
        stop_loop(context);
    }
    context.loop = nullptr;
    unreg_timer = {};
    thread_io::forget_watchers();
    thread_io::forget_register_worker();
    new (&g_socket_gate) usage_gate;
    thrio_cleanup(&context);
}
