// Values as text. What came from a datagram is shown only in characters that a terminal does not act on.
#include "show.h"

#include <algorithm>
#include <bit>
#include <fmt/core.h>
#include <fmt/ranges.h>

namespace formats {
namespace {

const value_name *find_row(const name_table &names, int64_t value) {
    const auto row = std::ranges::find(names.rows, value, &value_name::value);
    return row == names.rows.end() ? nullptr : &*row;
}

/// "PHONE_NODE|TELE_CTRL_NODE"; bits without a name as a number behind them.
std::string bit_names(const name_table &names, uint64_t value) {
    std::string text;
    for (const value_name &row : names.rows) {
        const auto bit = static_cast<uint64_t>(row.value);
        if (std::has_single_bit(bit) && (value & bit) != 0) {
            text += text.empty() ? "" : "|";
            text += row.name;
            value &= ~bit;
        }
    }
    return value == 0 || text.empty() ? text : fmt::format("{}|0x{:x}", text, value);
}

std::string printable(std::span<const uint8_t> bytes) {
    std::string text;
    for (const uint8_t byte : bytes) {
        if (byte == 0) {
            break;
        }
        text += byte < ' ' || byte > '~' || byte == '\\' ? fmt::format("\\x{:02x}", byte)
                                                         : std::string(1, static_cast<char>(byte));
    }
    return text;
}

} // namespace

std::string value_name_of(const name_table &names, int64_t value) {
    if (const value_name *row = find_row(names, value)) {
        return row->name;
    }
    return names.bit_set ? bit_names(names, static_cast<uint64_t>(value)) : "";
}

std::string value_name_of(const node &n) {
    return n.what == nullptr || n.what->names == nullptr || n.bit != nullptr
               ? ""
               : value_name_of(*n.what->names, static_cast<int64_t>(n.raw));
}

std::string number_text(const field &f, uint64_t raw) {
    if (f.base == number_base::hex) {
        return fmt::format("0x{:0{}x}", raw, 2 * element_size(f.type));
    }
    return f.type == field_type::i16 || f.type == field_type::i32
               ? fmt::format("{}", static_cast<int64_t>(raw))
               : fmt::format("{}", raw);
}

std::string float_text(uint64_t bits) {
    return fmt::format("{}", std::bit_cast<float>(static_cast<uint32_t>(bits)));
}

std::string hex_text(std::span<const uint8_t> bytes) {
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

std::string value_text(const node &n) {
    if (n.what == nullptr) {
        return "";
    }
    if (n.bit != nullptr) {
        return fmt::format("{}", n.raw);
    }
    if (!is_run(n.what->type) && !n.parts.empty() && n.what->count > 1) {
        std::string all;
        for (const node &element : n.parts) {
            all += all.empty() ? "" : " ";
            all += value_text(element);
        }
        return all;
    }
    switch (n.what->type) {
    case field_type::text:
        return printable(n.bytes);
    case field_type::bytes:
        return hex_text(n.bytes);
    case field_type::f32:
        return float_text(n.raw);
    default:
        return number_text(*n.what, n.raw);
    }
}

std::string text_of(const node &n) {
    const std::string name = value_name_of(n);
    return name.empty() ? value_text(n) : fmt::format("{} ({})", name, value_text(n));
}

std::string key_of(const node &n) {
    if (n.what == nullptr) {
        return "";
    }
    return n.bit == nullptr ? fmt::format("{}.{}", n.in->key, n.what->name)
                            : fmt::format("{}.{}.{}", n.in->key, n.what->name, n.bit->name);
}

} // namespace formats
