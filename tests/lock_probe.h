/**
 * @file
 * Stands between the library and the mutexes: which the calling thread takes, how many at once, and what is
 * the case just before one is taken or given back. Only programs that are linked with lock_probe.cpp.
 *
 *     lock_probe::watch locks;
 *     lock_probe::during(locks, [] { return nmapping_get_stat(3); });
 *     EXPECT_EQ(locks.taken.size(), 1U);
 */
#ifndef LOCK_PROBE_H
#define LOCK_PROBE_H

#include <cstddef>
#include <functional>
#include <pthread.h>
#include <vector>

namespace lock_probe {

struct watch {
    std::vector<const pthread_mutex_t *> taken; // in their order
    int held = 0;                               // now
    int most_held = 0;                          // at once
    std::function<void()> before_lock;          // called when the mutex stands in `taken` already
    std::function<void()> before_unlock;
};

/** Watches the calling thread; a null pointer ends it. */
void begin(watch *with);

/** Watches the calling thread for the length of one call, and returns its result. */
template <class Work>
auto during(watch &with, Work work) {
    begin(&with);
    auto result = work();
    begin(nullptr);
    return result;
}

} // namespace lock_probe

#endif
