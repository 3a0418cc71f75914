/**
 * @file
 * Keeps a process on one core.
 */
#ifndef BENCH_PINNED_H
#define BENCH_PINNED_H

#include "side.h"

#include <sched.h>

namespace bench {

/** Before the process has other threads. @throws std::system_error when there is no such core */
inline void pin_to(int core) {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(static_cast<unsigned>(core), &cores);
    (void)checked(sched_setaffinity(0, sizeof cores, &cores), "sched_setaffinity");
}

} // namespace bench

#endif
