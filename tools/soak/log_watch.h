/**
 * @file
 * The soak's log library: every line that the message library writes is counted by its text, and written to
 * standard error when that is wished. Lines that tell of a refusal or a drop and are not expected of a soak
 * are kept, for the report.
 */
#ifndef SOAK_LOG_WATCH_H
#define SOAK_LOG_WATCH_H

#include <string>

namespace soak {

/** Whether each line is also written to standard error. */
void log_watch_write(bool write);

/** The first unexpected line; empty when there was none. */
std::string first_unexpected_line();

} // namespace soak

#endif
