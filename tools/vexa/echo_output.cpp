// The lines of `vexa echo`. See echo_output.h.
#include "echo_output.h"

#include "formats.h"
#include "json.h"
#include "line_output.h"
#include "show.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fmt/chrono.h>
#include <fmt/core.h>

namespace vexa {
namespace {

using formats::node;
using nlohmann::ordered_json;

constexpr int64_t k_ns_per_s = 1'000'000'000;
constexpr char k_key_prefix[] = "vexamsg.";

std::string time_of_day(int64_t time_ns) {
    const std::time_t seconds = time_ns / k_ns_per_s;
    return fmt::format("{:%H:%M:%S}.{:06}", fmt::localtime(seconds), time_ns % k_ns_per_s / 1000);
}

std::string iso_time(int64_t time_ns) {
    const std::time_t seconds = time_ns / k_ns_per_s;
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:09}Z", fmt::gmtime(seconds), time_ns % k_ns_per_s);
}

/// A cell of a table; quoted when it must be.
std::string cell(const std::string &text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    }
    return quoted + '"';
}

bool has_name(const node &n, const std::string &name) {
    const std::string key = key_of(n);
    return key == k_key_prefix + name || key == name || (n.bit == nullptr && name == n.name());
}

/// Calls `take` for every field, those in repeated blocks too.
template <class Take>
void for_each_field(const std::vector<node> &fields, const Take &take) {
    for (const node &n : fields) {
        if (n.what == nullptr) {
            for_each_field(n.parts, take);
            continue;
        }
        take(n);
        if (!n.what->bits.empty()) {
            for_each_field(n.parts, take);
        }
    }
}

bool block_has(const formats::block &b, const std::string &name) {
    return std::ranges::any_of(b.fields, [&](const formats::field &f) {
        const node whole{.in = &b, .what = &f};
        return has_name(whole, name) || std::ranges::any_of(f.bits, [&](const formats::bit_field &bit) {
                   return has_name(node{.in = &b, .what = &f, .bit = &bit}, name);
               });
    });
}

ordered_json findings_json(const formats::decoded &read) {
    ordered_json all = ordered_json::array();
    for (const formats::finding &f : read.findings) {
        all.push_back({{"severity", formats::name_of(f.how)},
                       {"code", f.words().name},
                       {"offset", f.offset},
                       {"text", f.text}});
    }
    return all;
}

std::string number_or_nothing(const seen_message &m, const char *name) {
    const node *found = m.read.find(name);
    return found != nullptr ? std::to_string(found->raw) : "";
}

} // namespace

std::string way_text(const seen_message &m) {
    const node *src = m.read.find("src");
    const node *dst = m.read.find("dst");
    return src != nullptr && dst != nullptr
               ? fmt::format("{} -> {}", node_text(src->raw), node_text(dst->raw))
               : fmt::format("{} -> {}", to_text(m.datagram.src), to_text(m.datagram.dst));
}

bool is_field_name(const std::string &name) {
    return std::ranges::any_of(formats::k_envelopes, [&](const formats::envelope *wire) {
        const bool around =
            block_has(wire->head, name) || (wire->tail != nullptr && block_has(*wire->tail, name));
        return around || std::ranges::any_of(wire->forms, [&](const formats::form &f) {
                   return (f.rest != nullptr && block_has(*f.rest, name)) ||
                          std::ranges::any_of(
                              f.parts, [&](const formats::part &p) { return block_has(*p.what, name); });
               });
    });
}

std::string message_json(const seen_message &m) {
    ordered_json object = {{"time", iso_time(m.datagram.time_ns)},
                           {"time_ns", m.datagram.time_ns},
                           {"from", to_text(m.datagram.src)},
                           {"to", to_text(m.datagram.dst)},
                           {"bytes", m.datagram.wire_size},
                           {"family", formats::name_of(m.read.kin())},
                           {"message", m.read.name()}};
    object["fields"] = formats::json_of(m.read.fields);
    object["findings"] = findings_json(m.read);
    return object.dump();
}

bool echo_output::wants_all() const {
    return std::ranges::find(fields_, "all") != fields_.end();
}

bool echo_output::is_wanted(const node &n) const {
    return wants_all() ||
           std::ranges::any_of(fields_, [&n](const std::string &name) { return has_name(n, name); });
}

std::string echo_output::text(const seen_message &m) const {
    std::string lines =
        fmt::format("{}  {}  {}", time_of_day(m.datagram.time_ns), way_text(m), message_text(m));
    for_each_field(m.read.fields, [&](const node &n) {
        if (is_wanted(n)) {
            const std::string key = key_of(n);
            lines += fmt::format("\n    {:>5} +{:<3} {} = {}", n.offset, n.size,
                                 key.substr(sizeof k_key_prefix - 1), text_of(n));
        }
    });
    return lines;
}

std::string echo_output::csv(const seen_message &m) const {
    std::string findings;
    for (const formats::finding &f : m.read.findings) {
        findings += fmt::format("{}{}: {}", findings.empty() ? "" : "; ", formats::name_of(f.how), f.text);
    }
    std::string row = fmt::format(
        "{},{},{},{},{},{},{},{},{},{}", iso_time(m.datagram.time_ns), to_text(m.datagram.src),
        to_text(m.datagram.dst), formats::name_of(m.read.kin()), m.read.name(), number_or_nothing(m, "src"),
        number_or_nothing(m, "dst"), number_or_nothing(m, "key"), m.datagram.wire_size, cell(findings));
    for (const std::string &name : fields_) {
        std::string values;
        for_each_field(m.read.fields, [&](const node &n) {
            if (has_name(n, name)) {
                values += values.empty() ? "" : " ";
                values += value_text(n);
            }
        });
        row += ',' + cell(values);
    }
    return row;
}

void echo_output::begin() const {
    if (style_ == echo_style::csv) {
        std::string head = "time,from_address,to_address,family,message,src,dst,key,bytes,findings";
        for (const std::string &name : fields_) {
            head += ',' + cell(name);
        }
        say(head);
    }
}

void echo_output::message(const seen_message &m) const {
    say(style_ == echo_style::json ? message_json(m) : style_ == echo_style::csv ? csv(m) : text(m));
}

} // namespace vexa
