/**
 * @file
 * What the I/O thread and the registration worker share, and what only the component's start and stop may ask
 * of them.
 */
#ifndef THREAD_IO_IMPL_H
#define THREAD_IO_IMPL_H

#include "deadline.h"
#include "thread_io.h"

#include <pthread.h>

namespace thread_io {

constexpr char k_unit[] = "src/thread_io"; // one unit in the log, whichever source a line is in

extern socket_io_t g_sio; // filled by the I/O thread before the worker starts

/// Waits for a thread to end. True when it has ended or never started; it is joined then.
bool join_by(pthread_t thread, bool &started, deadline_t end);

/// What the thread watches; see thread_io_watch.cpp.
void start_watchers(thr_in_data_t &context);
void stop_reading(); // takes no further datagram
void stop_watchers(thr_in_data_t &context);
void forget_watchers();

/// The registration worker; see thread_io_register.cpp.
void prepare_registering();
void start_register_worker(thr_in_data_t &context);
void registration_accepted(); // from now on REGISTERs are rare
bool register_worker_joined_by(deadline_t end);
void forget_register_worker();

} // namespace thread_io

/** Makes a start possible, before the I/O thread is made: not registered, nobody leaving. */
void thrio_prepare();

/** No REGISTER leaves any more once this has returned, unless one is stuck on its way out until `end`. */
void thrio_stop_registering(deadline_t end);

/** The UNREGISTER has been queued: the I/O thread ends after its next round, whatever became of the message.
 */
void thrio_request_leave();

/**
 * For an I/O thread that does not end because the callback or the network keeps it: takes its leave for it,
 * starts no callback any more, and lets no send wait any longer.
 */
void thrio_cut_off();

/** Joins the registration worker and waits for all others that use the socket. After the I/O thread has been
 * joined. False when `end` comes first. */
bool thrio_unused_by(deadline_t end);

/** Stops the watchers and closes the socket, once it is unused. */
void thrio_cleanup(thr_in_data_t *context);

/** Whether the caller is one of the library's threads, the callback's among them. */
bool thrio_is_own_thread();

/** Marks the calling thread as one of the library's. */
void thrio_mark_own_thread();

#endif
