/**
 * @file
 * What the sending subcommands send: given on the command line as text, hexadecimal digits, a file or a size,
 * and made anew for each message.
 *
 *     add_payload_options(*command, options->payload);
 *     const vexa::payload_source source{options->payload, 2}; // two bytes stand before it
 *     source.make(1);
 */
#ifndef VEXA_PAYLOAD_H
#define VEXA_PAYLOAD_H

#include "subcommand.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vexa {

/** At most one of them is given; none is an empty payload. */
struct payload_options {
    std::optional<std::string> text;
    std::optional<std::string> hex;
    std::optional<std::string> file;
    std::optional<size_t> size;
};

/** Adds --text, --hex, --file and --size. */
void add_payload_options(CLI::App &command, payload_options &options);

class payload_source {
public:
    /**
     * @param reserved  [bytes] of the largest payload that are somebody else's
     * @throws std::runtime_error when the file cannot be read or the payload is too long
     */
    explicit payload_source(const payload_options &options, size_t reserved = 0);

    /** The payload of one message. Of a --size payload the first four bytes, little-endian, are its number,
     * as far as there is room. */
    [[nodiscard]] std::vector<uint8_t> make(uint32_t number) const;

private:
    std::vector<uint8_t> bytes_;
    bool numbered_ = false;
};

/** Two digits a byte, upper or lower case; blanks and colons between bytes are left out.
 * @throws std::invalid_argument for anything else */
std::vector<uint8_t> parse_hex(const std::string &digits);

/** "68656c6c6f" */
std::string hex_text(const std::vector<uint8_t> &bytes);

} // namespace vexa

#endif
