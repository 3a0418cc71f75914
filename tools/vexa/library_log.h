/**
 * @file
 * What becomes of the library's log lines in this program. They are shown only when asked for; what they tell
 * that no return value tells is kept: how often the full queue has dropped a message, and which heartbeat
 * fields have been set, also to the value that they had.
 *
 *     vexa::library_log::show(options.verbose);
 *     const uint64_t before = vexa::library_log::queue_drops();
 */
#ifndef VEXA_LIBRARY_LOG_H
#define VEXA_LIBRARY_LOG_H

#include <cstddef>
#include <cstdint>

namespace vexa::library_log {

/** Whether lines go to standard error; they do not at the start. */
void show(bool lines_are_shown);

/** Messages that were pushed out of the full transmit queue since the program's start. */
uint64_t queue_drops();

/**
 * Whether a heartbeat field was set in this process, by itself or by a message. The library logs the first
 * time that each field is set; SELF_CALIB_MODE and SELF_CALIB_RATE have one log line between them, which
 * counts for neither.
 * @param field  0 to 72
 */
bool heartbeat_was_set(size_t field);

} // namespace vexa::library_log

#endif
