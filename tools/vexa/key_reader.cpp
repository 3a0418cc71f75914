// Keys as terminals send them. See key_reader.h.
#include "key_reader.h"

#include <algorithm>
#include <array>
#include <optional>

namespace vexa {
namespace {

constexpr char k_escape = '\x1b';

struct sequence {
    std::string_view text; // behind the escape character
    key_kind kind;
};

constexpr auto k_sequences = std::to_array<sequence>({
    {"[A", key_kind::up},
    {"[B", key_kind::down},
    {"[C", key_kind::right},
    {"[D", key_kind::left},
    {"OA", key_kind::up},
    {"OB", key_kind::down},
    {"OC", key_kind::right},
    {"OD", key_kind::left},
    {"[H", key_kind::home},
    {"[F", key_kind::end},
    {"OH", key_kind::home},
    {"OF", key_kind::end},
    {"[1~", key_kind::home},
    {"[4~", key_kind::end},
    {"[5~", key_kind::page_up},
    {"[6~", key_kind::page_down},
    {"[Z", key_kind::tab},
});

std::optional<key> single(char byte) {
    switch (byte) {
    case '\r':
    case '\n':
        return key{key_kind::enter};
    case '\t':
        return key{key_kind::tab};
    case '\b':
    case '\x7f':
        return key{key_kind::erase};
    case '\x15': // Ctrl-U
        return key{key_kind::erase_all};
    default:
        return byte >= ' ' && byte <= '~' ? std::optional{key{key_kind::text, byte}} : std::nullopt;
    }
}

/// Length of the sequence behind an escape character; 0 when it is not whole yet. Those that are not known
/// are as long as those that are.
size_t length_of(std::string_view after) {
    if (after.front() == 'O') {
        return after.size() < 2 ? 0 : 2;
    }
    const auto *const last =
        std::find_if(after.begin() + 1, after.end(), [](char c) { return c >= '@' && c <= '~'; });
    return last == after.end() ? 0 : static_cast<size_t>(last - after.begin()) + 1;
}

} // namespace

std::vector<key> key_reader::take(std::string_view bytes) {
    rest_ += bytes;
    std::vector<key> keys;
    size_t at = 0;
    while (at < rest_.size()) {
        if (rest_[at] != k_escape) {
            if (const auto pressed = single(rest_[at])) {
                keys.push_back(*pressed);
            }
            ++at;
            continue;
        }
        const std::string_view after = std::string_view{rest_}.substr(at + 1);
        if (after.empty() || (after.front() != '[' && after.front() != 'O')) {
            keys.push_back({key_kind::escape});
            ++at;
            continue;
        }
        const size_t length = length_of(after);
        if (length == 0) {
            break;
        }
        const auto *const known = std::ranges::find(k_sequences, after.substr(0, length), &sequence::text);
        if (known != k_sequences.end()) {
            keys.push_back({known->kind});
        }
        at += 1 + length;
    }
    rest_.erase(0, at);
    return keys;
}

} // namespace vexa
