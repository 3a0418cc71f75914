/**
 * @file
 * The lines of the message library's log that a soak knows: what each reads, and how the report calls it.
 */
#ifndef SOAK_LOG_LINE_H
#define SOAK_LOG_LINE_H

#include <cstdint>

namespace soak {

/** The lines that the soak knows. */
enum class log_line : uint8_t {
    too_short,
    wrong_magic,
    wrong_ids,
    irrelevant_kind,
    status_cut_short,
    status_foreign,
    record_skipped,
    field_unknown,   /**< of a whole heartbeat change, or of something that looks like one */
    field_senseless, /**< any other */
    too_long,
    grown,
    rx_overstocked,
    tx_overstocked,
    inactive,
    refused,
    unexpected, /**< any other ERROR or WARN */
    number_of_lines
};

/** What a line is about, in the report. */
const char *name_of(log_line line);

/**
 * Which line it is.
 * @param format  as the library passes it
 * @param severe  whether it is logged as an error or a warning
 * @return log_line::number_of_lines for a line of progress that is not known
 */
log_line log_line_of(const char *format, bool severe);

} // namespace soak

#endif
