// Filters: words to conditions. See message_filter.h.
#include "message_filter.h"

#include "formats.h"

#include <algorithm>
#include <charconv>
#include <fmt/core.h>
#include <fmt/ranges.h>
#include <utility>
#include <vector>

namespace vexa {
namespace {

using condition = std::function<bool(const seen_message &)>;

std::string lower(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

std::optional<uint16_t> number_of(const std::string &text) {
    const bool hex = text.starts_with("0x");
    const char *begin = text.data() + (hex ? 2 : 0);
    const char *end = text.data() + text.size();
    uint16_t value = 0;
    const auto result = std::from_chars(begin, end, value, hex ? 16 : 10);
    return result.ec == std::errc{} && result.ptr == end && begin != end ? std::optional{value}
                                                                         : std::nullopt;
}

/// By number or by name, which may leave out the prefix that all names of the table share.
std::optional<uint16_t> value_of(const formats::name_table &names, std::string_view prefix,
                                 const std::string &text) {
    for (const formats::value_name &row : names.rows) {
        const std::string name = lower(row.name);
        if (name == text || (name.starts_with(prefix) && name.substr(prefix.size()) == text)) {
            return static_cast<uint16_t>(row.value);
        }
    }
    return number_of(text);
}

std::optional<uint16_t> head_value(const seen_message &message, const char *name) {
    const formats::node *found = message.read.wire == &formats::k_route ? message.read.find(name) : nullptr;
    return found != nullptr ? std::optional{static_cast<uint16_t>(found->raw)} : std::nullopt;
}

std::optional<uint16_t> kind_of(const std::string &text) {
    return value_of(formats::k_kinds, "mstp_", text);
}

std::optional<uint16_t> type_of(const std::string &text) {
    return value_of(formats::k_msg_types, "msg_", text);
}

bool has_severity(const seen_message &message, formats::severity how) {
    return std::ranges::any_of(message.read.findings, [how](const auto &f) { return f.how == how; });
}

/// Any one of these numbers in any of these fields of a routing header or payload.
struct number_condition {
    const char *word;
    const char *values; // for people
    std::vector<const char *> fields;
    std::optional<uint16_t> (*parse)(const std::string &text);
};

const std::vector<number_condition> &number_conditions() {
    static const std::vector<number_condition> all = {
        {"from", "a node: 9, vio, broadcast", {"src"}, node_id_of},
        {"to", "a node: 9, vio, broadcast", {"dst"}, node_id_of},
        {"node", "a node: 9, vio, broadcast", {"src", "dst"}, node_id_of},
        {"kind", "0 to 4 or its name, such as operation_on_hb", {"msg_type"}, kind_of},
        {"type", "a message type: 6, detection_objects", {"key"}, type_of},
    };
    return all;
}

constexpr auto k_families =
    std::to_array<const char *>({"user", "manager", "heartbeat", "report", "camera", "frame", "unknown"});

std::vector<std::string> message_names() {
    std::vector<std::string> names = {"unknown"};
    for (const formats::envelope *wire : formats::k_envelopes) {
        for (const formats::form &f : wire->forms) {
            names.emplace_back(f.name);
        }
    }
    return names;
}

class parser {
public:
    explicit parser(const std::string &text) : words_(split(lower(text))) {}

    condition all() {
        condition whole = alternatives();
        if (at_ < words_.size()) {
            fail(fmt::format("'{}' has nothing before it to close", words_[at_]));
        }
        return whole;
    }

private:
    static std::vector<std::string> split(const std::string &text) {
        std::vector<std::string> words;
        std::string word;
        const auto finish = [&] {
            if (!word.empty()) {
                words.push_back(std::exchange(word, ""));
            }
        };
        for (const char c : text) {
            if (c == '(' || c == ')') {
                finish();
                words.emplace_back(1, c);
            } else if (c == ' ' || c == '\t' || c == '\n') {
                finish();
            } else {
                word += c;
            }
        }
        finish();
        return words;
    }

    [[noreturn]] void fail(const std::string &what) const {
        throw filter_error(fmt::format("in the filter '{}': {}", fmt::join(words_, " "), what));
    }

    [[nodiscard]] bool is(const char *word) const { return at_ < words_.size() && words_[at_] == word; }

    std::string next(const std::string &what) {
        if (at_ == words_.size()) {
            fail(fmt::format("{} is missing at the end", what));
        }
        return words_[at_++];
    }

    condition alternatives() {
        condition left = sequence();
        while (is("or")) {
            ++at_;
            left = [left, right = sequence()](const seen_message &m) { return left(m) || right(m); };
        }
        return left;
    }

    condition sequence() {
        condition left = negation();
        while (at_ < words_.size() && !is("or") && !is(")")) {
            at_ += is("and") ? 1 : 0;
            left = [left, right = negation()](const seen_message &m) { return left(m) && right(m); };
        }
        return left;
    }

    condition negation() {
        if (++depth_ > k_deepest) {
            fail("too many parentheses");
        }
        condition result = is("not") ? denied() : is("(") ? group() : single();
        --depth_;
        return result;
    }

    condition denied() {
        ++at_;
        return [inner = negation()](const seen_message &m) { return !inner(m); };
    }

    condition group() {
        ++at_;
        condition inner = alternatives();
        if (next("')'") != ")") {
            fail(fmt::format("')' is missing before '{}'", words_[at_ - 1]));
        }
        return inner;
    }

    condition single() {
        const std::string word = next("a condition");
        for (const number_condition &row : number_conditions()) {
            if (word == row.word) {
                return numbers(row);
            }
        }
        if (word == "family") {
            return names("family", {k_families.begin(), k_families.end()},
                         [](const seen_message &m) { return formats::name_of(m.read.kin()); });
        }
        if (word == "message") {
            return names("message", message_names(), [](const seen_message &m) { return m.read.name(); });
        }
        if (word == "malformed" || word == "cut") {
            const auto how = word == "cut" ? formats::severity::cut : formats::severity::malformed;
            return [how](const seen_message &m) { return has_severity(m, how); };
        }
        fail(fmt::format("'{}' is no condition; these are: from, to, node, kind, type, family, message, "
                         "malformed, cut",
                         word));
    }

    std::vector<std::string> values(const std::string &word) {
        std::vector<std::string> all;
        const std::string list = next(fmt::format("what '{}' asks for", word));
        for (size_t begin = 0; begin <= list.size();) {
            const size_t comma = std::min(list.find(',', begin), list.size());
            all.push_back(list.substr(begin, comma - begin));
            begin = comma + 1;
        }
        return all;
    }

    condition numbers(const number_condition &row) {
        std::vector<uint16_t> wanted;
        for (const std::string &text : values(row.word)) {
            const std::optional<uint16_t> value = row.parse(text);
            if (!value) {
                fail(fmt::format("'{}' asks for {}, not '{}'", row.word, row.values, text));
            }
            wanted.push_back(*value);
        }
        return [wanted, &row](const seen_message &m) {
            return std::ranges::any_of(row.fields, [&](const char *field) {
                const std::optional<uint16_t> value = head_value(m, field);
                return value && std::ranges::find(wanted, *value) != wanted.end();
            });
        };
    }

    condition names(const char *word, const std::vector<std::string> &known,
                    const char *(*name_of)(const seen_message &)) {
        const std::vector<std::string> wanted = values(word);
        for (const std::string &text : wanted) {
            if (std::ranges::find(known, text) == known.end()) {
                fail(fmt::format("there is no {} '{}'; there are: {}", word, text, fmt::join(known, ", ")));
            }
        }
        return [wanted, name_of](const seen_message &m) {
            return std::ranges::find(wanted, name_of(m)) != wanted.end();
        };
    }

    static constexpr int k_deepest = 200;

    std::vector<std::string> words_;
    size_t at_ = 0;
    int depth_ = 0;
};

} // namespace

message_filter::message_filter(const std::string &text) {
    if (text.find_first_not_of(" \t\n") != std::string::npos) {
        condition_ = parser(text).all();
    }
}

bool message_filter::matches(const seen_message &message) const {
    return !condition_ || condition_(message);
}

const char *message_filter::help() {
    return "Filter: conditions, put together by and, or, not and parentheses; 'and' may be left out.\n"
           "  from NODE     to NODE     node NODE    (either)   NODE: 9, vio, broadcast\n"
           "  kind KIND     0 to 4, or its name, such as operation_on_hb\n"
           "  type TYPE     first word of a status or message: 6, detection_objects\n"
           "  family NAME   user, manager, heartbeat, report, camera, frame, unknown\n"
           "  message NAME  status, register, heartbeat_set, track_status ...\n"
           "  malformed     cut\n"
           "Several values with commas between: from 5,9,vio";
}

std::optional<uint16_t> node_id_of(const std::string &text) {
    if (text == "broadcast") {
        return VX_MSG_BROADCAST;
    }
    if (text == "manager") {
        return VX_NODE_MANAGER_ID;
    }
    if (text == "proxy") {
        return PROXY_NODE_ID;
    }
    return value_of(formats::k_node_ids, "node_", text);
}

std::string node_text(uint64_t id) {
    if (id == VX_NODE_MANAGER_ID) {
        return "manager(0)";
    }
    if (id == PROXY_NODE_ID) {
        return "proxy(127)";
    }
    if (id == VX_MSG_BROADCAST) {
        return "broadcast";
    }
    const auto row =
        std::ranges::find(formats::k_node_id_rows, static_cast<int64_t>(id), &formats::value_name::value);
    if (row == formats::k_node_id_rows.end()) {
        return std::to_string(id);
    }
    const std::string name = lower(row->name);
    return fmt::format("{}({})", name.substr(name.starts_with("node_") ? 5 : 0), id);
}

} // namespace vexa
