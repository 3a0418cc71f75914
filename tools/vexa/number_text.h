/** @file Numbers as the tables that follow the bus show them: three digits or so, always of about one width.
 */
#ifndef VEXA_NUMBER_TEXT_H
#define VEXA_NUMBER_TEXT_H

#include "rate_meter.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vexa {

/** "0.25", "99.9", "5000", "1.20M"; "-" when it is not known yet. */
std::string rate_text(std::optional<double> per_second);

/** "340", "21.3k", "1.20M". */
std::string bytes_text(std::optional<double> bytes);

/** How long ago: "0.3 s", "42 s", "5 min", "3 h". */
std::string age_text(int64_t age_ns);

/** A bar for each number, as high as it is beside the largest; in block elements of UTF-8 or in ASCII. */
std::string bars_text(const std::vector<uint32_t> &numbers, bool in_blocks);

/** "18:20:11", of the local time. */
std::string clock_text(int64_t time_ns);

/** Whether the terminal's characters are UTF-8, as the environment says. */
bool has_utf8();

} // namespace vexa

#endif
