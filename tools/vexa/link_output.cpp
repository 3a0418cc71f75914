// The lines of the stand-ins for the flight side and the camera.
#include "link_output.h"

#include "line_output.h"

#include <algorithm>
#include <cstdio>
#include <fmt/core.h>
#include <fmt/ranges.h>

namespace vexa {
namespace {

using nlohmann::ordered_json;

/// Hex text without the zeros at its end: "a0a1.." for three bytes or more.
std::string shortened(const std::string &hex) {
    size_t end = hex.size();
    while (end >= 2 && hex.compare(end - 2, 2, "00") == 0) {
        end -= 2;
    }
    return end == hex.size() ? hex : hex.substr(0, end) + "..";
}

/// The slots of an array that are in use, as the message itself says.
std::string slots_text(const ordered_json &values, size_t in_use) {
    std::vector<std::string> texts;
    for (size_t i = 0; i < std::min(in_use, values.size()); ++i) {
        texts.push_back(values[i].dump());
    }
    return fmt::format("[{}]", fmt::join(texts, " "));
}

std::string fields_text(const ordered_json &fields) {
    std::string text;
    for (const auto &[name, value] : fields.items()) {
        std::string shown = value.dump();
        if (value.is_array()) {
            shown = slots_text(value, fields.value("number", value.size()));
        } else if (value.is_string()) {
            shown = shortened(value.get<std::string>());
        }
        text += fmt::format(" {}={}", name, shown);
    }
    return text;
}

std::string sequence_text(const link_datagram &read, sequence_watch::step_result step) {
    if (!read.sequence) {
        return "";
    }
    std::string text = fmt::format("  #{}", *read.sequence);
    if (step.missing > 0) {
        text += fmt::format(" ({} missing before it)", step.missing);
    }
    return text + (step.late ? " (late)" : "");
}

ordered_json as_json(const link_arrival &arrival, const link_datagram &read,
                     sequence_watch::step_result step) {
    ordered_json object = {{"event", "datagram"},
                           {"from", to_text(arrival.from)},
                           {"bytes", arrival.bytes},
                           {"received_ns", arrival.received_ns}};
    object["message"] = read.name;
    object["msg_type"] = read.msg_type ? ordered_json(*read.msg_type) : ordered_json();
    object["sequence"] = read.sequence ? ordered_json(*read.sequence) : ordered_json();
    object["missing"] = step.missing;
    object["late"] = step.late;
    object["fields"] = read.fields;
    object["faults"] = read.faults;
    return object;
}

} // namespace

const char *name_of(link_end end) {
    return end == link_end::camera ? "camera" : "flight side";
}

void link_output::listening(endpoint where) const {
    if (style_ == link_style::json) {
        say(ordered_json({{"event", "listening"}, {"end", name_of(end_)}, {"address", to_text(where)}})
                .dump());
    } else if (style_ == link_style::text) {
        say(fmt::format("{}  {} at {}", clock_text(), name_of(end_), to_text(where)));
    }
}

void link_output::datagram(const link_arrival &arrival, const link_datagram &read,
                           sequence_watch::step_result step) const {
    if (style_ == link_style::json) {
        say(as_json(arrival, read, step).dump());
        return;
    }
    if (style_ == link_style::quiet && read.faults.empty()) {
        return;
    }
    const std::string wrong =
        read.faults.empty() ? "" : fmt::format("  MALFORMED: {};", fmt::join(read.faults, "; "));
    say(fmt::format("{}  {}{}  {} bytes  {}{}{}", clock_text(), to_text(arrival.from),
                    sequence_text(read, step), arrival.bytes, read.name, wrong, fields_text(read.fields)));
}

void link_output::summary(const link_counts &counts) const {
    if (style_ == link_style::json) {
        say(ordered_json({{"event", "summary"},
                          {"received", counts.received},
                          {"malformed", counts.malformed},
                          {"missing", counts.missing},
                          {"late", counts.late},
                          {"messages", counts.by_name}})
                .dump());
        return;
    }
    std::string text =
        fmt::format("{}  ended; datagrams {}, malformed {}, numbers missing {}, late {}", clock_text(),
                    counts.received, counts.malformed, counts.missing, counts.late);
    for (const auto &[name, times] : counts.by_name) {
        text += fmt::format("\n    {:>8}  {}", times, name);
    }
    if (counts.missing > 0) {
        text +=
            fmt::format("\n    A sender numbers the datagrams to both ends in one row: what is missing here "
                        "may have gone to the {}.",
                        name_of(end_ == link_end::camera ? link_end::flight : link_end::camera));
    }
    say(text);
}

} // namespace vexa
