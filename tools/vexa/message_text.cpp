// One line about one message. See echo_output.h.
#include "echo_output.h"

#include "formats.h"
#include "show.h"

#include <algorithm>
#include <fmt/core.h>
#include <fmt/ranges.h>

namespace vexa {
namespace {

using formats::node;

constexpr size_t k_shown_bytes = 32; // of a run of bytes
constexpr size_t k_shown_blocks = 8; // of pairs and nodes

/// The bytes that have something to say, and how many there are in all.
std::string bytes_text(std::span<const uint8_t> bytes) {
    size_t end = bytes.size();
    while (end > 0 && bytes[end - 1] == 0) {
        --end;
    }
    const size_t shown = std::min(end, k_shown_bytes);
    return formats::hex_text(bytes.first(shown)) + (shown < bytes.size() ? ".." : "");
}

/// Text for whom the bytes look like some.
std::string readable(std::span<const uint8_t> bytes) {
    const auto plain = [](uint8_t byte) { return byte >= ' ' && byte <= '~'; };
    const auto text = bytes.first(std::min(bytes.size(), k_shown_bytes));
    return text.size() < 3 || !std::ranges::all_of(text, plain)
               ? ""
               : fmt::format(" \"{}\"", std::string(text.begin(), text.end()));
}

/// The payload's length, its key by name, the bytes behind it; as text what looks like text. What a message
/// begins with need not be a key: without a name it is shown with the other bytes.
std::string user_text(const seen_message &m) {
    const node *length = m.read.find("data_length");
    const size_t stated = length != nullptr ? length->raw : 0;
    const size_t head = m.read.wire != nullptr ? m.read.wire->head.size : 0;
    const std::span<const uint8_t> bytes = m.datagram.bytes;
    std::span<const uint8_t> payload = bytes.subspan(std::min(bytes.size(), head));
    payload = payload.first(std::min(payload.size(), stated));
    std::string text = fmt::format("{} bytes", stated);
    const node *key = m.read.find("key");
    const std::string name = key != nullptr ? value_name_of(*key) : "";
    const bool is_status = m.read.what->selector == MSTP_USER_DATA_OVER_WRITE;
    size_t shown = 0;
    if (key != nullptr && (is_status || !name.empty())) {
        text += ' ' + (name.empty() ? fmt::format("0x{:04x}", key->raw) : name);
        shown = key->size;
    }
    text += payload.size() > shown ? ' ' + bytes_text(payload.subspan(shown)) : "";
    return text + readable(payload);
}

/// The value of one of a block's fields; "?" when it was not captured.
std::string part_text(const node &block, const char *name, std::string (*show)(const node &n)) {
    const auto found = std::ranges::find_if(
        block.parts, [name](const node &n) { return std::string_view(n.name()) == name; });
    return found == block.parts.end() ? "?" : show(*found);
}

std::string id_text(const node &n) {
    return node_text(n.raw);
}

std::string node_record_text(const std::vector<node> &fields) {
    const node block{.parts = fields};
    return fmt::format("{} '{}' {}:{} {}", part_text(block, "node_id", id_text),
                       part_text(block, "name", formats::value_text),
                       part_text(block, "ip", formats::value_text),
                       part_text(block, "port", formats::value_text),
                       part_text(block, "stat", formats::value_text) == "1" ? "active" : "inactive");
}

std::string pair_text(const std::vector<node> &fields) {
    const node block{.parts = fields};
    const auto name = [](const node &n) {
        const std::string known = value_name_of(n);
        return known.empty() ? value_text(n) : known;
    };
    return fmt::format("{}={}", part_text(block, "field", name),
                       part_text(block, "value", formats::value_text));
}

/// What repeats in a message, shortened to what a line can hold.
std::string blocks_text(const seen_message &m, const char *between,
                        std::string (*show)(const std::vector<node> &fields)) {
    std::string text;
    size_t count = 0;
    for (const node &n : m.read.fields) {
        if (n.what == nullptr && count++ < k_shown_blocks) {
            text += (text.empty() ? "" : between) + show(n.parts);
        }
    }
    return count <= k_shown_blocks ? text
                                   : text + fmt::format("{}... {} more", between, count - k_shown_blocks);
}

std::string manager_text(const seen_message &m) {
    if (m.read.what->parts.front().what == &formats::k_node_block) {
        return node_record_text(m.read.fields); // the header has no field of these names
    }
    const node *flag = m.read.find("flag");
    const bool accepted = flag != nullptr && (flag->raw & formats::k_accepted_bit) != 0;
    return (accepted ? "accepted  " : "") + blocks_text(m, "; ", node_record_text);
}

/// An array's slots that are in use, as the message itself says.
std::string slots_text(const seen_message &m, const node &array) {
    const node *number = m.read.find("number");
    const size_t in_use =
        std::min<size_t>(array.parts.size(), number != nullptr ? number->raw : array.parts.size());
    std::vector<std::string> texts;
    std::ranges::transform(std::span{array.parts}.first(in_use), std::back_inserter(texts),
                           [](const node &n) { return formats::value_text(n); });
    return fmt::format("[{}]", fmt::join(texts, " "));
}

std::string link_text(const seen_message &m) {
    std::string text;
    for (const char *counter : {"sequence", "seq"}) {
        const node *n = m.read.find(counter);
        text += n != nullptr ? fmt::format("#{}", n->raw) : "";
    }
    for (const node &n : m.read.fields) {
        if (n.in == &m.read.wire->head || n.in == m.read.wire->tail) {
            continue;
        }
        text += fmt::format(" {}={}", n.name(),
                            n.what->type == formats::field_type::bytes ? bytes_text(n.bytes)
                            : !n.parts.empty()                         ? slots_text(m, n)
                                                                       : value_text(n));
    }
    return text;
}

std::string content_text(const seen_message &m) {
    switch (m.read.kin()) {
    case formats::family::user:
        return user_text(m);
    case formats::family::manager:
        return manager_text(m);
    case formats::family::heartbeat:
        return blocks_text(m, " ", pair_text);
    case formats::family::unknown:
        return bytes_text(m.datagram.bytes);
    default:
        return link_text(m);
    }
}

/// What is wrong, the gravest first.
std::string findings_text(const seen_message &m) {
    std::string text;
    for (const auto how : {formats::severity::malformed, formats::severity::cut, formats::severity::note}) {
        std::vector<std::string> clauses;
        for (const formats::finding &f : m.read.findings) {
            if (f.how == how) {
                clauses.push_back(how == formats::severity::note
                                      ? f.text
                                      : fmt::format("{} [at byte {}]", f.text, f.offset));
            }
        }
        const char *word = how == formats::severity::malformed ? "MALFORMED"
                           : how == formats::severity::cut     ? "CUT"
                                                               : "note";
        text += clauses.empty() ? "" : fmt::format("  {}: {};", word, fmt::join(clauses, "; "));
    }
    return text;
}

} // namespace

std::string message_text(const seen_message &m) {
    const char *name = m.read.wire == nullptr ? "none of this system's" : m.read.name();
    const std::string content = content_text(m);
    return fmt::format("{}{}{}{}", name, content.empty() ? "" : "  ", content, findings_text(m));
}

} // namespace vexa
