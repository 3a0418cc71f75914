// Fields as JSON. See json.h.
#include "json.h"

#include "show.h"

#include <bit>
#include <charconv>
#include <cmath>

namespace formats {
namespace {

using nlohmann::ordered_json;

/// 0.2F is 0.200000002980232 as a double; its shortest text gives the double that prints as 0.2.
ordered_json json_of_float(uint64_t bits) {
    const std::string text = float_text(bits);
    double shortest = 0;
    (void)std::from_chars(text.data(), text.data() + text.size(), shortest); // the text is a number's
    const bool finite = std::isfinite(std::bit_cast<float>(static_cast<uint32_t>(bits)));
    return finite ? ordered_json(shortest) : ordered_json(text);
}

void add_field(const node &n, ordered_json &to) {
    to[n.name()] = json_of(n);
    const std::string name = value_name_of(n);
    if (!name.empty()) {
        to[std::string(n.name()) + "_name"] = name;
    }
    if (!n.what->bits.empty()) {
        ordered_json &bits = to[std::string(n.name()) + "_bits"];
        for (const node &bit : n.parts) {
            bits[bit.name()] = bit.raw;
        }
    }
}

} // namespace

ordered_json json_of(const node &n) {
    if (n.what == nullptr) {
        return json_of(n.parts);
    }
    if (!n.parts.empty() && n.what->bits.empty()) {
        ordered_json elements = ordered_json::array();
        for (const node &element : n.parts) {
            elements.push_back(json_of(element));
        }
        return elements;
    }
    switch (n.what->type) {
    case field_type::f32:
        return json_of_float(n.raw);
    case field_type::text:
    case field_type::bytes:
        return value_text(n);
    case field_type::i16:
    case field_type::i32:
        return static_cast<int64_t>(n.raw);
    default:
        return n.raw;
    }
}

ordered_json json_of(const std::vector<node> &fields) {
    ordered_json object = ordered_json::object();
    for (const node &n : fields) {
        if (n.what != nullptr) {
            add_field(n, object);
        } else {
            object[std::string(n.name()) + "s"].push_back(json_of(n));
        }
    }
    return object;
}

} // namespace formats
