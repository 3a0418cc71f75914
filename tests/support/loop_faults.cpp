// Stands between libev and the system, for tests that are linked with it: these come before the C library's
// functions when the program is loaded, and pass their calls on. See faults.h.
#include "faults.h"

#include <cerrno>
#include <dlfcn.h>
#include <sys/epoll.h>

namespace {

template <class Function>
Function real(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

bool fails(faults::call which) {
    int error = 0;
    const bool failing = faults::fails_now(which, error);
    if (failing) {
        errno = error;
    }
    return failing;
}

} // namespace

extern "C" int epoll_create1(int flags) noexcept {
    return fails(faults::call::epoll_create1) ? -1 : real<decltype(&epoll_create1)>("epoll_create1")(flags);
}

extern "C" int epoll_ctl(int epfd, int op, int fd, struct epoll_event *event) noexcept {
    return fails(faults::call::epoll_ctl) ? -1 : real<decltype(&epoll_ctl)>("epoll_ctl")(epfd, op, fd, event);
}

extern "C" int epoll_wait(int epfd, struct epoll_event *events, int maxevents, int timeout) {
    return fails(faults::call::epoll_wait)
               ? -1
               : real<decltype(&epoll_wait)>("epoll_wait")(epfd, events, maxevents, timeout);
}
