/**
 * @file
 * A node of the bus without threads: everything that the I/O thread sets up, on the thread of the target,
 * which then calls the handlers as the loop would.
 */
#ifndef FUZZ_NODE_H
#define FUZZ_NODE_H

#include "thread_io.h"

namespace fuzz {

/** How the receive queue tells its keys apart. */
bool same_key(const void *a, const void *b);

/**
 * Starts it. Once per process.
 * @return the context, whose watcher on_write takes; valid to the end of the process
 */
thr_in_data_t &start_node(uint16_t id, msg_call_back callback);

} // namespace fuzz

#endif
