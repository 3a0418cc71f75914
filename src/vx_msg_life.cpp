// The component's start and stop.
//
// They are serialised by a lock of their own, and a stop depends on nobody: what the network or the callback
// keeps from ending is given up after a moment. Its descriptors then stay with it until it has ended, and
// until then there is no new start.
#include "after_fork.h"
#include "deadline.h"
#include "io_pool.h"
#include "node_mapping.h"
#include "node_mgr_msg_helper.h"
#include "stop_signal.h"
#include "thread_io_impl.h"
#include "utils/netapi.h"
#include "vision_service_route_funcs.h"
#include "vx_fd.h"
#include "vx_log.h"
#include "vx_msg_buf.h"
#include "vx_msg_impl.h"

#include <atomic>
#include <initializer_list>
#include <mutex>
#include <new>
#include <pthread.h>
#include <unistd.h>

using std::chrono::milliseconds;
using thread_io::join_by;
using vx_msg::g_running;
using vx_msg::k_unit;
using vx_msg::thread_data;
using vx_msg::wake_io_thread;

int gn_dbg_route = 0;

namespace {

constexpr int k_dump_period_s = 120;
constexpr milliseconds k_stop_time{700}; // a stop without hindrance takes 30 ms
constexpr milliseconds k_cut_time{100};  // and from when it has cut off what hinders it

constinit std::mutex g_lifecycle;     // held by init and deinit, whose own state follows
constinit uint8_t g_initialized = 0;  // 1 from the pipes' creation until deinit
constinit bool g_left_behind = false; // something of the last start has not ended yet
constinit bool g_exit_unsaid = false; // the I/O thread's end is yet to be logged
constinit bool g_io_thread_started = false;
constinit bool g_debug_thread_started = false;
constinit bool g_reading_blocks = false; // the pipe's read end could not be made non-blocking
constinit bool g_forks_watched = false;
pthread_t tid{};            // the I/O thread, valid while its flag is set
pthread_t g_debug_thread{}; // valid while its flag is set
stop_signal g_debug_stop;

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
    thread_data.match = vx_msg::msg_match;
    copy_text(thread_data.ip, ip);
    copy_text(thread_data.name, name);
}

void close_end(int &fd) {
    if (fd > 0) { // 0: there is none
        (void)close(fd);
    }
    fd = 0;
}

void close_pipe(int (&fds)[2]) {
    close_end(fds[0]);
    close_end(fds[1]);
}

int create_pipes() {
    if (pipe(thread_data.pipefd) == 0 && pipe(thread_data.thio2aumsg) == 0) {
        return 0;
    }
    VX_LOG_AS("vision_msg_component_init", ERROR, "pipe create err\n");
    close_pipe(thread_data.pipefd);
    return -1;
}

void prepare_pipes() {
    g_reading_blocks = net_set_fd_noblock(thread_data.pipefd[0]) == 0;
    vx_msg::g_writing_blocks = net_set_fd_noblock(thread_data.pipefd[1]) == 0;
    for (const auto &ends : {thread_data.pipefd, thread_data.thio2aumsg}) {
        keep_from_other_programs(ends[0]);
        keep_from_other_programs(ends[1]);
    }
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
void vxmsg_ungregister(deadline_t end) {
    alignas(k_cache_line) vx_msg_buf out;
    buid_unregist_msg(out.message());
    io_pool_tx_put_last(out.message());
    thrio_request_leave();
    if ((!wake_io_thread(__func__) || g_reading_blocks) && g_running.close_by(end)) {
        close_end(thread_data.pipefd[1]);
    }
}

bool io_thread_joined_by(deadline_t end) {
    if (!join_by(tid, g_io_thread_started, end)) {
        return false;
    }
    if (g_exit_unsaid) {
        VX_LOG_AS("vision_msg_component_deinit", INFO, "thrio thread exit\n");
        g_exit_unsaid = false;
    }
    return true;
}

/// Waits for everything that uses the loop, the sockets or the pipes. What has ended is not asked again.
bool all_ended_by(deadline_t end) {
    const bool io_ended = io_thread_joined_by(end) && thrio_unused_by(end);
    g_debug_stop.request();
    const bool debug_ended = join_by(g_debug_thread, g_debug_thread_started, end);
    return g_running.close_by(end) && io_ended && debug_ended;
}

/// Ends what waits for the network. The callback alone cannot be ended.
void cut_off() {
    thrio_cut_off();
    vx_msg::cut_direct_socket();
}

void release_descriptors() {
    thrio_cleanup(&thread_data);
    close_pipe(thread_data.pipefd);
    close_pipe(thread_data.thio2aumsg);
    vx_msg::close_direct_socket();
}

/// Finishes a stop that had to leave something behind. False when that has not ended yet.
bool last_stop_finished() {
    const deadline_t end = deadline_in(k_stop_time);
    if (g_left_behind && g_running.close_by(end)) {
        close_end(thread_data.pipefd[1]); // nobody writes any more; wakes a reader that is stuck in it
    }
    if (g_left_behind && all_ended_by(end)) {
        release_descriptors();
        g_left_behind = false;
    }
    return !g_left_behind;
}

/// A forked child has no node.
void after_fork() {
    new (&g_lifecycle) std::mutex;
    g_initialized = 0;
    g_left_behind = false;
    g_io_thread_started = false;
    g_debug_thread_started = false;
    new (&g_debug_stop) stop_signal;
    new (&g_running) usage_gate;
    thrio_after_fork(thread_data);
    close_pipe(thread_data.pipefd);
    close_pipe(thread_data.thio2aumsg);
    vx_msg::forget_direct_socket();
    io_pool_after_fork();
    nmapping_after_fork();
    hbmgr_after_fork();
    ut_loop_after_fork();
    vision_msg_after_fork();
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
    if (!last_stop_finished()) {
        VX_LOG(ERROR, "refused: a callback or a send of the last start has not returned yet\n");
        return -1;
    }
    g_forks_watched = g_forks_watched || pthread_atfork(nullptr, nullptr, after_fork) == 0;
    nmapping_set_self(static_cast<uint16_t>(id));
    if (const int pool = io_pool_init(vx_msg::msg_match); pool < 0) {
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
    prepare_pipes();
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
        (void)last_stop_finished();
        return;
    }
    const deadline_t end = deadline_in(k_stop_time);
    g_exit_unsaid = true;
    thrio_stop_registering(end); // a REGISTER behind the UNREGISTER would bring the node back
    vxmsg_ungregister(end);
    bool ended = all_ended_by(end);
    if (!ended) {
        cut_off();
        ended = all_ended_by(deadline_in(k_cut_time));
    }
    g_initialized = 0;
    io_pool_deinit();
    nmapping_destroy();
    if (ended) {
        release_descriptors();
    } else {
        g_left_behind = true;
        VX_LOG(ERROR, "a callback or a send does not return, left to end by itself\n");
    }
}
