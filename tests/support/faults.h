/**
 * @file
 * Makes the library's system calls and allocations fail at will. Tests that link VexaMsgFaults (the library's
 * own objects, linked with --wrap) get every call named here through this file first; nothing outside the
 * library is touched, so the test's own sockets and the sanitizers work as ever.
 *
 *     faults::fail(faults::call::sendto, EAGAIN, 3); // the next three fail, then it works again
 */
#ifndef FAULTS_H
#define FAULTS_H

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <vector>

namespace faults {

enum class call {
    socket,
    bind,
    listen,
    accept,
    connect,
    send,
    sendto,
    recv,
    recvfrom,
    read,
    write,
    close,
    shutdown,
    pipe,
    fcntl,
    ioctl,
    getsockopt,
    setsockopt,
    getpeername,
    getsockname,
    select,
    poll,
    chmod,
    readlink,
    gettimeofday,
    usleep,
    malloc,
    calloc,
    free, // never fails; its hook comes behind it
    pthread_create,
    pthread_mutex_init,
    pthread_mutex_destroy,
    pthread_cond_clockwait,
    ev_loop_new,
    epoll_create1, // libev's calls: only in tests that link loop_faults.cpp
    epoll_ctl,
    epoll_wait,
    number_of_calls
};

constexpr int k_forever = -1;

/**
 * From now on, lets `skip` calls pass, then makes `times` of them return without reaching the system.
 * @param error  errno, or the returned error number for the pthread functions; ignored by the allocators
 * @param result what the call returns instead; the pthread functions return `error`, the allocators null
 */
void fail(call which, int error, int times = k_forever, int skip = 0, long result = -1);

/**
 * From now on, every call fails with this probability, each kind with errors that the system gives for it. 0
 * ends it. What has been asked for by fail() comes first.
 */
void fail_at_random(uint64_t seed, double probability);

/** Whether to fail one call that is made elsewhere, and with what. For wrappers outside this library. */
bool fails_now(call which, int &error);

/** From now on, passes at most this many bytes to a read, write, send or receive (a short count). 0 ends it.
 */
void limit_bytes(call which, size_t bytes);

/** Calls `hook` on the calling thread before each call of this kind, failing or not. An empty one ends it. */
void before(call which, std::function<void()> hook);

/** How often the library made this call since the start or the last clear(). */
long calls(call which);

/** Ends every fault, limit and hook and forgets the counts. */
void clear();

/** Every wait the library asked for with a time-out, in seconds, oldest first. */
std::vector<double> waits();

/** The clock of each of these waits. */
std::vector<clockid_t> wait_clocks();

/** Ends waits longer than this after this many seconds, as a time-out. 0 lets them run in full. */
void shorten_waits(double seconds);

} // namespace faults

#endif
