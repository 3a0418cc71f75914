// The event loop of the library and its datagram reader.
//
// Everything here runs on the one thread that runs the loop; that thread may end inside a callback by
// pthread_exit, so nothing between ut_loop_run and a handler is noexcept or holds anything.
#include "utils/ut_evt.h"

#include "after_fork.h"
#include "vx_log.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <syslog.h>
#include <unistd.h>

constinit struct ev_loop *ut_default_loop = nullptr;

namespace {

constexpr char k_unit[] = "src/utils/ut_evt";

constexpr size_t k_most_read = 8192;     // [bytes] of one datagram; the rest is cut off
constexpr size_t k_path_size = 4096;     // [bytes] the program's path with its NUL
constexpr char k_nameless[] = "vexamsg"; // syslog identity when the program's path cannot be read

constinit std::atomic<int> initialized{0}; // 1: the loop is there; written by ut_loop_init
constinit std::atomic<struct ev_loop *> left_to_the_parent{nullptr}; // its thread may have been changing it
constinit std::atomic<int> running{0}; // 1: ut_loop_run entered the loop and nobody asked for its end since

static_assert(offsetof(socket_io_t, ev) == 0, "the watcher's address is taken for the record's");

/// Told by libev that a system call failed. It comes back on purpose: libev then repeats the call. (libev
/// asks for noexcept here; no callback runs below this one.)
void fatal_error(const char *msg) noexcept {
    char path[k_path_size];
    const ssize_t len = readlink("/proc/self/exe", path, sizeof path - 1);
    const char *identity = k_nameless;
    if (len >= 0) {
        path[len] = '\0';
        const char *slash = strrchr(path, '/');
        identity = slash == nullptr ? path : slash + 1;
    }
    openlog(identity, LOG_PID | LOG_PERROR,
            LOG_DAEMON); // keeps the pointer, so closelog comes before the end
    syslog(LOG_ERR, "%s", msg);
    closelog();
}

ssize_t receive(socket_io_t &sio, void *buf) {
    // The system sets the length of the whole address, also of one that did not fit. Offering that much room
    // to the next receive would let it write behind fromAddr.
    sio.addr_len = std::min(sio.addr_len, static_cast<socklen_t>(sizeof sio.fromAddr));
    return recvfrom(sio.sockfd, buf, k_most_read, 0, reinterpret_cast<sockaddr *>(&sio.fromAddr),
                    &sio.addr_len);
}

} // namespace

void ut_loop_init(void) {
    if (initialized.load(std::memory_order_relaxed) != 0) {
        return;
    }
    ut_default_loop = ev_loop_new(EVFLAG_NOENV | EVFLAG_FORKCHECK);
    ev_set_syserr_cb(fatal_error);
    if (ut_default_loop != nullptr) {
        initialized.store(1, std::memory_order_relaxed);
    }
}

void ut_loop_run(void) {
    if (initialized.load(std::memory_order_relaxed) == 0) {
        return;
    }
    running.store(1, std::memory_order_relaxed);
    (void)ev_run(ut_default_loop, 0); // says whether watchers are left, which is nobody's concern here
}

void ut_loop_break(void) {
    if (initialized.load(std::memory_order_relaxed) == 0 || running.load(std::memory_order_relaxed) == 0) {
        return;
    }
    ev_break(ut_default_loop, EVBREAK_ALL);
    running.store(0, std::memory_order_relaxed);
}

void on_read(struct ev_loop * /*loop*/, ev_io *watcher, int /*events*/) {
    socket_io_t &sio = *reinterpret_cast<socket_io_t *>(watcher);
    // A message starts with a header that holds a 32-bit number, and is copied best from a cache line on.
    alignas(64) uint8_t buf[k_most_read];
    const bool started = ev_is_active(&sio.ev);
    sio.addr_len = sizeof sio.fromAddr;
    for (;;) {
        const ssize_t len = receive(sio, buf);
        if (len >= 0) {
            sio.proc_msg(&sio, buf, static_cast<int>(len));
            if (started && !ev_is_active(&sio.ev)) {
                return; // a reader that is being stopped gets away from a peer that never stops sending
            }
        } else if (errno == EAGAIN) {
            return;
        } else if (errno != EINTR) {
            char text[100];
            (void)snprintf(text, sizeof text, "recvfrom error: %s", strerror(errno)); // cut when it is longer
            VX_LOG(INFO, "%s\n", text); // not an ERROR: the next readiness reads again
            return;
        }
    }
}

void ut_loop_after_fork() {
    left_to_the_parent.store(ut_default_loop, std::memory_order_relaxed);
    ut_default_loop = nullptr;
    initialized.store(0, std::memory_order_relaxed);
    running.store(0, std::memory_order_relaxed);
}
