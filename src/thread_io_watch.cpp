// What the I/O thread watches: the node's socket and the wake-up pipe.
//
// When the system has no room for another watched descriptor, libev stops the watcher for good, and the node
// would be deaf, or never wake. So the watchers are looked after until the system has taken both.
#include "thread_io_impl.h"

#include "utils/ut_timer.h"

using thread_io::g_sio;

namespace {

constexpr double k_look_again_s = 0.001;

// All of it is the I/O thread's, and deinit's after it.
constinit bool g_socket_wanted = false; // there is one, and it is still to be read
ut_timer g_looks{};

/// False when it had to be started anew, which may fail again.
bool watched(ev_io &watcher) {
    if (ev_is_active(&watcher)) {
        return true;
    }
    const int fd = watcher.fd;
    ev_io_set(&watcher, fd, EV_READ); // else libev takes the system to know about it
    ev_io_start(ut_default_loop, &watcher);
    return false;
}

void look_after(ut_timer *timer, void *context) {
    const bool socket_watched = !g_socket_wanted || watched(g_sio.ev);
    if (!watched(static_cast<thr_in_data_t *>(context)->ev) || !socket_watched) {
        ut_timer_start(timer);
    }
}

} // namespace

void thread_io::start_watchers(thr_in_data_t &context) {
    g_sio.loop = ut_default_loop;
    context.loop = ut_default_loop;
    ev_io_init(&g_sio.ev, on_read, g_sio.sockfd, EV_READ);
    g_socket_wanted = g_sio.sockfd >= 0; // libev ends the process over a descriptor that is none
    if (g_socket_wanted) {
        ev_io_start(g_sio.loop, &g_sio.ev);
    }
    ev_io_init(&context.ev, on_write, context.pipefd[0], EV_READ);
    ev_io_start(context.loop, &context.ev);
    ut_timer_set(&g_looks, k_look_again_s, false, look_after, &context);
    ut_timer_start(&g_looks);
}

void thread_io::stop_reading() {
    g_socket_wanted = false;
    ev_io_stop(g_sio.loop, &g_sio.ev);
}

void thread_io::stop_watchers(thr_in_data_t &context) {
    ut_timer_stop(&g_looks);
    (void)ev_clear_pending(context.loop, &g_looks.ev);
    stop_reading();
    ev_io_stop(context.loop, &context.ev);
    context.loop = nullptr;
}

void thread_io::forget_watchers() {
    g_looks = {};
}
