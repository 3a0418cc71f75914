/**
 * @file
 * What the message library holds on the heap, to the byte: the program's own malloc and free stand before the
 * system's and count the calls that come from the library's code. Blocks of the library carry their size at
 * their end, since the system rounds sizes up.
 *
 * Blocks as large as the pieces that kept copies lie in are counted apart.
 *
 * Not in a build with a sanitizer, which has an allocator of its own; heap_is_watched tells.
 */
#ifndef SOAK_HEAP_WATCH_H
#define SOAK_HEAP_WATCH_H

#include <cstdint>

namespace soak {

/** What is in use. */
struct heap_use {
    int64_t library_blocks = 0;
    int64_t library_bytes = 0; /**< as asked for */
    int64_t pieces = 0;        /**< blocks of the size of a piece of copies; not in the two above */
    int64_t other_bytes = 0;   /**< of everybody else in the process, the allocator's overhead included */
};

bool heap_is_watched();

/** Finds the library in memory. Before it nothing counts as the library's. */
void heap_watch_start();

/** @par Threads  Any. Exact when the library is idle. */
heap_use heap_now();

} // namespace soak

#endif
