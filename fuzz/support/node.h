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

/** Waits until the node's registration worker has written the node's own record, which it does once. */
void await_own_record(uint16_t id);

} // namespace fuzz

#endif
