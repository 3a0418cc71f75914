/**
 * @file
 * What the component's sending side and its start and stop share. See vx_msg.cpp and vx_msg_life.cpp.
 */
#ifndef VX_MSG_IMPL_H
#define VX_MSG_IMPL_H

#include "thread_io.h"
#include "usage_gate.h"

namespace vx_msg {

constexpr char k_unit[] = "src/vx_msg"; // one unit in the log, whichever source a line is in

// Written by init; the pipe ends are used by senders and deinit, the rest by the I/O thread.
extern thr_in_data_t thread_data;
extern usage_gate g_running;  // open while the pipe and the direct-send socket may be used
extern bool g_writing_blocks; // the pipe's write end could not be made non-blocking; written while closed

/// Writes the byte that wakes the I/O thread. False, and logged under the function's name, when it cannot.
bool wake_io_thread(const char *function);

/// Whether payloads are compared by their first 16 bits; the receive queue's key.
bool msg_match(const void *a, const void *b);

/// The direct-send socket: lets no send on it wait for room any longer, closes it, forgets it in a forked
/// child.
void cut_direct_socket();
void close_direct_socket();
void forget_direct_socket();

} // namespace vx_msg

#endif
