/**
 * @file
 * What the log library's stand-in has understood of the lines that it threw away.
 */
#ifndef BENCH_SILENT_LOG_H
#define BENCH_SILENT_LOG_H

#include <cstdint>

namespace bench {

/** Messages that a full transmit queue of this process has dropped. */
uint64_t dropped_by_queue();

} // namespace bench

#endif
