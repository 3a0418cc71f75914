// Names for numbers, and numbers for names. See named_value.h.
#include "named_value.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <fmt/core.h>
#include <string_view>

namespace vexa {
namespace {

std::optional<uint16_t> number(std::string_view text) {
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(hex ? 2 : 0);
    uint16_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
    const bool all = !text.empty() && error == std::errc{} && end == text.data() + text.size();
    return all ? std::optional{value} : std::nullopt;
}

bool same(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::toupper(static_cast<unsigned char>(x)) == std::toupper(static_cast<unsigned char>(y));
    });
}

} // namespace

const name_source k_node_names{"node", "NODE", formats::k_node_ids, "NODE_", UINT16_MAX};
const name_source k_type_names{"message type", "TYPE", formats::k_msg_types, "MSG_", UINT16_MAX};
const name_source k_field_names{"heartbeat field", "FIELD", formats::k_heartbeat_fields, "", 72};

std::optional<uint16_t> find_value(const name_source &source, const std::string &text) {
    if (const auto value = number(text)) {
        return *value <= source.largest ? value : std::nullopt;
    }
    const std::string_view prefix = source.prefix;
    for (const formats::value_name &row : source.names.rows) {
        const std::string_view name = row.name;
        if (same(text, name) || (name.starts_with(prefix) && same(text, name.substr(prefix.size())))) {
            return static_cast<uint16_t>(row.value);
        }
    }
    return std::nullopt;
}

std::optional<std::string> name_of(const name_source &source, uint16_t value) {
    for (const formats::value_name &row : source.names.rows) {
        if (row.value == value) {
            return row.name;
        }
    }
    return std::nullopt;
}

std::string named(const name_source &source, uint16_t value) {
    const auto name = name_of(source, value);
    return name ? fmt::format("{} ({})", value, *name) : std::to_string(value);
}

CLI::Option *add_named(CLI::App &command, const std::string &option, uint16_t &value,
                       const name_source &source, const std::string &about, uint16_t largest) {
    const auto take = [&value, &source, largest](const std::string &text) {
        const auto found = find_value(source, text);
        if (!found || *found > largest) {
            throw CLI::ValidationError(fmt::format("'{}' is neither the name of a {} nor a number up to {}",
                                                   text, source.what, std::min(largest, source.largest)));
        }
        value = *found;
    };
    return command.add_option_function<std::string>(option, take, about)->type_name(source.type);
}

} // namespace vexa
