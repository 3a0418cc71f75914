// Stands between the library and the system. See faults.h.
#include "faults.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <ctime>
#include <ev.h>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <random>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

using faults::call;

namespace {

struct rule {
    int times = 0; // calls still to fail; negative: all
    int skip = 0;  // calls to let pass first
    int error = 0;
    long result = -1;
    size_t limit = 0;
    long seen = 0;
    std::function<void()> hook;
};

std::mutex lock;
std::array<rule, static_cast<size_t>(call::number_of_calls)> rules;
std::vector<double> waits_asked_for;
std::vector<clockid_t> clocks_asked_for;
double longest_wait = 0;

double random_probability = 0;
std::mt19937_64 random_numbers;

/// The errors that a call is made to fail with at random. A kind that is not named never fails so.
struct likely {
    call which;
    std::vector<int> errors;
};
const std::vector<likely> k_likely = {
    {call::socket, {EMFILE, ENFILE, ENOBUFS, ENOMEM}},
    {call::bind, {EADDRINUSE, EACCES}},
    {call::sendto, {EINTR, EAGAIN, ENETUNREACH, EPERM, ENOBUFS, ECONNREFUSED, EMSGSIZE}},
    {call::recvfrom, {EINTR, EAGAIN, ECONNREFUSED, ENOMEM}},
    {call::read, {EINTR, EAGAIN, EIO}},
    {call::write, {EINTR, EAGAIN, EPIPE}},
    {call::close, {EINTR, EIO}},
    {call::shutdown, {ENOTCONN}},
    {call::pipe, {EMFILE, ENFILE}},
    {call::fcntl, {EINVAL}},
    {call::setsockopt, {ENOMEM}},
    {call::gettimeofday, {EFAULT}},
    {call::usleep, {EINTR}},
    {call::malloc, {ENOMEM}},
    {call::calloc, {ENOMEM}},
    {call::pthread_create, {EAGAIN}},
    {call::pthread_mutex_init, {EAGAIN, ENOMEM}},
    {call::pthread_mutex_destroy, {EBUSY}},
    {call::epoll_ctl, {ENOMEM, ENOSPC}},
    {call::epoll_wait, {EINTR}},
};

/// 0 when the call is to pass.
int random_error(call which) {
    const auto found =
        std::find_if(k_likely.begin(), k_likely.end(), [which](const likely &l) { return l.which == which; });
    if (random_probability == 0 || found == k_likely.end() ||
        std::uniform_real_distribution<>{}(random_numbers) >= random_probability) {
        return 0;
    }
    return found->errors[random_numbers() % found->errors.size()];
}

rule &rule_of(call which) {
    return rules[static_cast<size_t>(which)];
}

struct verdict {
    bool fails;
    int error;
    long result;
    size_t limit;
};

verdict ask(call which) {
    std::function<void()> hook;
    verdict v{};
    {
        const std::lock_guard hold{lock};
        rule &r = rule_of(which);
        ++r.seen;
        hook = r.hook;
        v = {false, r.error, r.result, r.limit};
        if (r.times != 0 && r.skip > 0) {
            --r.skip;
        } else if (r.times != 0) {
            r.times -= r.times > 0 ? 1 : 0;
            v.fails = true;
        } else if (const int error = random_error(which)) {
            v = {true, error, -1, r.limit};
        }
    }
    if (hook) {
        hook();
    }
    return v;
}

size_t at_most(const verdict &v, size_t bytes) {
    return v.limit == 0 ? bytes : std::min(v.limit, bytes);
}

template <class Result>
Result refused(const verdict &v) {
    errno = v.error;
    return static_cast<Result>(v.result);
}

} // namespace

namespace faults {

void fail(call which, int error, int times, int skip, long result) {
    const std::lock_guard hold{lock};
    rule &r = rule_of(which);
    r.error = error;
    r.times = times;
    r.skip = skip;
    r.result = result;
}

void limit_bytes(call which, size_t bytes) {
    const std::lock_guard hold{lock};
    rule_of(which).limit = bytes;
}

void before(call which, std::function<void()> hook) {
    const std::lock_guard hold{lock};
    rule_of(which).hook = std::move(hook);
}

long calls(call which) {
    const std::lock_guard hold{lock};
    return rule_of(which).seen;
}

void clear() {
    const std::lock_guard hold{lock};
    rules = {};
    waits_asked_for.clear();
    clocks_asked_for.clear();
    longest_wait = 0;
    random_probability = 0;
}

void fail_at_random(uint64_t seed, double probability) {
    const std::lock_guard hold{lock};
    random_numbers.seed(seed);
    random_probability = probability;
}

bool fails_now(call which, int &error) {
    const verdict v = ask(which);
    error = v.error;
    return v.fails;
}

std::vector<double> waits() {
    const std::lock_guard hold{lock};
    return waits_asked_for;
}

std::vector<clockid_t> wait_clocks() {
    const std::lock_guard hold{lock};
    return clocks_asked_for;
}

void shorten_waits(double seconds) {
    const std::lock_guard hold{lock};
    longest_wait = seconds;
}

} // namespace faults

// The names are the linker's: --wrap=socket sends the library's calls of socket to __wrap_socket.
// NOLINTBEGIN(bugprone-reserved-identifier)

#define WRAP(result, name, params, args)                                                                     \
    extern "C" result __wrap_##name params;                                                                  \
    extern "C" result __wrap_##name params {                                                                 \
        const verdict v = ask(call::name);                                                                   \
        return v.fails ? refused<result>(v) : name args;                                                     \
    }

WRAP(int, socket, (int domain, int type, int protocol), (domain, type, protocol))
WRAP(int, bind, (int fd, const sockaddr *addr, socklen_t len), (fd, addr, len))
WRAP(int, listen, (int fd, int backlog), (fd, backlog))
WRAP(int, accept, (int fd, sockaddr *addr, socklen_t *len), (fd, addr, len))
WRAP(int, connect, (int fd, const sockaddr *addr, socklen_t len), (fd, addr, len))
WRAP(ssize_t, send, (int fd, const void *buf, size_t n, int flags), (fd, buf, at_most(v, n), flags))
WRAP(ssize_t, sendto, (int fd, const void *buf, size_t n, int flags, const sockaddr *to, socklen_t len),
     (fd, buf, at_most(v, n), flags, to, len))
WRAP(ssize_t, recv, (int fd, void *buf, size_t n, int flags), (fd, buf, at_most(v, n), flags))
WRAP(ssize_t, recvfrom, (int fd, void *buf, size_t n, int flags, sockaddr *from, socklen_t *len),
     (fd, buf, at_most(v, n), flags, from, len))
WRAP(ssize_t, read, (int fd, void *buf, size_t n), (fd, buf, at_most(v, n)))
WRAP(ssize_t, write, (int fd, const void *buf, size_t n), (fd, buf, at_most(v, n)))
WRAP(int, shutdown, (int fd, int how), (fd, how))
WRAP(int, pipe, (int *fds), (fds))
WRAP(int, getsockopt, (int fd, int level, int name, void *value, socklen_t *len),
     (fd, level, name, value, len))
WRAP(int, setsockopt, (int fd, int level, int name, const void *value, socklen_t len),
     (fd, level, name, value, len))
WRAP(int, getpeername, (int fd, sockaddr *addr, socklen_t *len), (fd, addr, len))
WRAP(int, getsockname, (int fd, sockaddr *addr, socklen_t *len), (fd, addr, len))
WRAP(int, select, (int n, fd_set *r, fd_set *w, fd_set *e, timeval *t), (n, r, w, e, t))
WRAP(int, poll, (pollfd * fds, nfds_t n, int timeout_ms), (fds, n, timeout_ms))
WRAP(int, chmod, (const char *path, mode_t mode), (path, mode))
WRAP(ssize_t, readlink, (const char *path, char *buf, size_t n), (path, buf, n))
WRAP(int, gettimeofday, (timeval * tv, void *tz), (tv, static_cast<struct timezone *>(tz)))
WRAP(int, usleep, (useconds_t us), (us))

// The descriptor is gone whatever close says, as it is with the system's.
extern "C" int __wrap_close(int fd);
extern "C" int __wrap_close(int fd) {
    const verdict v = ask(call::close);
    const int result = close(fd);
    return v.fails ? refused<int>(v) : result;
}

extern "C" int __wrap_fcntl(int fd, int command, ...);
extern "C" int __wrap_fcntl(int fd, int command, ...) {
    va_list args;
    va_start(args, command);
    const int argument = va_arg(args, int); // the library only reads and writes flags
    va_end(args);
    const verdict v = ask(call::fcntl);
    return v.fails ? refused<int>(v) : fcntl(fd, command, argument);
}

extern "C" int __wrap_ioctl(int fd, unsigned long request, ...);
extern "C" int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list args;
    va_start(args, request);
    void *argument = va_arg(args, void *);
    va_end(args);
    const verdict v = ask(call::ioctl);
    return v.fails ? refused<int>(v) : ioctl(fd, request, argument);
}

extern "C" void *__wrap_malloc(size_t size);
extern "C" void *__wrap_malloc(size_t size) {
    return ask(call::malloc).fails ? nullptr : malloc(size);
}

extern "C" void __wrap_free(void *memory);
extern "C" void __wrap_free(void *memory) {
    free(memory);
    (void)ask(call::free);
}

extern "C" void *__wrap_calloc(size_t count, size_t size);
extern "C" void *__wrap_calloc(size_t count, size_t size) {
    return ask(call::calloc).fails ? nullptr : calloc(count, size);
}

extern "C" int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*body)(void *),
                                     void *arg);
extern "C" int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*body)(void *),
                                     void *arg) {
    const verdict v = ask(call::pthread_create);
    return v.fails ? v.error : pthread_create(thread, attr, body, arg);
}

extern "C" int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attr);
extern "C" int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attr) {
    const verdict v = ask(call::pthread_mutex_init);
    return v.fails ? v.error : pthread_mutex_init(mutex, attr);
}

extern "C" int __wrap_pthread_mutex_destroy(pthread_mutex_t *mutex);
extern "C" int __wrap_pthread_mutex_destroy(pthread_mutex_t *mutex) {
    const verdict v = ask(call::pthread_mutex_destroy);
    return v.fails ? v.error : pthread_mutex_destroy(mutex);
}

extern "C" struct ev_loop *__wrap_ev_loop_new(unsigned int flags);
extern "C" struct ev_loop *__wrap_ev_loop_new(unsigned int flags) {
    return ask(call::ev_loop_new).fails ? nullptr : ev_loop_new(flags);
}

extern "C" int __wrap_pthread_cond_clockwait(pthread_cond_t *cond, pthread_mutex_t *mutex, clockid_t clock,
                                             const timespec *until);
extern "C" int __wrap_pthread_cond_clockwait(pthread_cond_t *cond, pthread_mutex_t *mutex, clockid_t clock,
                                             const timespec *until) {
    if (const verdict v = ask(call::pthread_cond_clockwait); v.fails) {
        return v.error;
    }
    timespec now{};
    clock_gettime(clock, &now);
    const double asked_for = static_cast<double>(until->tv_sec - now.tv_sec) +
                             static_cast<double>(until->tv_nsec - now.tv_nsec) / 1e9;
    double longest = 0;
    {
        const std::lock_guard hold{lock};
        waits_asked_for.push_back(asked_for);
        clocks_asked_for.push_back(clock);
        longest = longest_wait;
    }
    if (longest == 0 || asked_for <= longest) {
        return pthread_cond_clockwait(cond, mutex, clock, until);
    }
    const long end_ns = now.tv_nsec + static_cast<long>(longest * 1e9);
    const timespec soon{now.tv_sec + end_ns / 1'000'000'000, end_ns % 1'000'000'000};
    return pthread_cond_clockwait(cond, mutex, clock, &soon);
}

// NOLINTEND(bugprone-reserved-identifier)
