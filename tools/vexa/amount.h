/**
 * @file
 * Sizes and times as users write them, each with its unit: "10MB", "500kB", "30s", "5min".
 *
 *     vexa::add_amount(*command, "--split", options->split, "begin a new file after so much");
 */
#ifndef VEXA_AMOUNT_H
#define VEXA_AMOUNT_H

#include "subcommand.h"

#include <cstdint>
#include <optional>
#include <string>

namespace vexa {

/** One of both is set once a user has given it. */
struct amount {
    std::optional<uint64_t> bytes = {};
    std::optional<int64_t> time_ns = {};

    [[nodiscard]] bool is_given() const { return bytes || time_ns; }
};

/** B, kB, MB, GB (of 1000) and ns, us, ms, s, min, h. @throws std::invalid_argument, which says what fits */
amount parse_amount(const std::string &text);

/** A time; a number without a unit is seconds. [ns] @throws std::invalid_argument */
int64_t parse_time(const std::string &text);

// Options that take them.
CLI::Option *add_amount(CLI::App &command, const std::string &option, amount &to, const std::string &about);
CLI::Option *add_size(CLI::App &command, const std::string &option, std::optional<uint64_t> &to,
                      const std::string &about);
CLI::Option *add_time(CLI::App &command, const std::string &option, std::optional<int64_t> &to_ns,
                      const std::string &about);

/** "1.2 MB". */
std::string size_text(uint64_t bytes);

/** The same in seconds. */
double seconds_of(int64_t time_ns);

/** "83.1 s". */
std::string time_text(int64_t time_ns);

} // namespace vexa

#endif
