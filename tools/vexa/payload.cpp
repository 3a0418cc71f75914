// Payloads from the command line. See payload.h.
#include "payload.h"

#include "vx_msg_def.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fmt/core.h>
#include <fmt/ranges.h>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

namespace vexa {
namespace {

constexpr size_t k_number_bytes = 4; // at the start of a --size payload

int digit_value(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const int letter = std::tolower(static_cast<unsigned char>(c));
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

/// Reads one byte more than can be sent at most, so that too long is noticed and endless does not matter.
std::vector<uint8_t> read_some(std::istream &in) {
    std::vector<char> room(VX_MSG_MAX_PAYLOAD + 1);
    in.read(room.data(), static_cast<std::streamsize>(room.size()));
    return std::vector<uint8_t>(room.begin(), room.begin() + in.gcount());
}

std::vector<uint8_t> read_file(const std::string &name) {
    if (name == "-") {
        return read_some(std::cin);
    }
    std::ifstream in{name, std::ios::binary};
    if (!in) {
        throw std::runtime_error(fmt::format("cannot read {}: {}", name, strerror(errno)));
    }
    return read_some(in);
}

std::vector<uint8_t> pattern(size_t size) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>(i);
    }
    return bytes;
}

std::vector<uint8_t> bytes_of(const payload_options &options) {
    if (options.text) {
        return {options.text->begin(), options.text->end()};
    }
    if (options.hex) {
        return parse_hex(*options.hex);
    }
    if (options.file) {
        return read_file(*options.file);
    }
    return pattern(options.size.value_or(0));
}

std::string not_hex(const std::string &digits) {
    try {
        (void)parse_hex(digits);
        return {};
    } catch (const std::invalid_argument &wrong) {
        return wrong.what();
    }
}

} // namespace

void add_payload_options(CLI::App &command, payload_options &options) {
    const std::array<CLI::Option *, 4> all = {
        command.add_option("--text", options.text, "payload: these characters"),
        command.add_option("--hex", options.hex, "payload: these bytes, two digits each (\"01 ff\")")
            ->check(CLI::Validator(not_hex, "", "hexadecimal digits")),
        command.add_option("--file", options.file, "payload: the bytes of a file; - for standard input")
            ->type_name("FILE"),
        command
            .add_option("--size", options.size,
                        "payload: so many bytes; the first four hold the message's number, the rest count up")
            ->check(CLI::Range(0, VX_MSG_MAX_PAYLOAD))
            ->type_name("BYTES")};
    for (CLI::Option *one : all) {
        for (CLI::Option *other : all) {
            if (one != other) {
                one->excludes(other);
            }
        }
    }
}

payload_source::payload_source(const payload_options &options, size_t reserved)
    : bytes_(bytes_of(options)), numbered_(options.size.has_value()) {
    const size_t most = VX_MSG_MAX_PAYLOAD - reserved;
    if (bytes_.size() > most) {
        throw std::runtime_error(fmt::format("the payload has more than {} bytes, which is the most that a "
                                             "message takes{}",
                                             most, reserved == 0 ? "" : " beside its type"));
    }
}

std::vector<uint8_t> payload_source::make(uint32_t number) const {
    std::vector<uint8_t> bytes = bytes_;
    for (size_t i = 0; numbered_ && i < std::min(k_number_bytes, bytes.size()); ++i) {
        bytes[i] = static_cast<uint8_t>(number >> (8 * i));
    }
    return bytes;
}

std::vector<uint8_t> parse_hex(const std::string &digits) {
    std::vector<uint8_t> bytes;
    for (size_t at = 0; at < digits.size();) {
        if (digits[at] == ' ' || digits[at] == ':') {
            ++at;
            continue;
        }
        const int high = digit_value(digits[at]);
        const int low = at + 1 < digits.size() ? digit_value(digits[at + 1]) : -1;
        if (high < 0 || low < 0) {
            throw std::invalid_argument(fmt::format("'{}' is not a row of bytes of two hexadecimal digits "
                                                    "each",
                                                    digits));
        }
        bytes.push_back(static_cast<uint8_t>(high * 16 + low));
        at += 2;
    }
    return bytes;
}

std::string hex_text(const std::vector<uint8_t> &bytes) {
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

} // namespace vexa
