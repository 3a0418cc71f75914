// The node manager's lines. What came from a datagram is printed only in characters that a terminal does not
// act on.
#include "manager_output.h"

#include "line_output.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fmt/core.h>
#include <nlohmann/json.hpp>

namespace vexa {
namespace {

using nlohmann::json;

constexpr char k_replacement = '?';

std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, k_replacement);
    return text;
}

const char *state_text(const vexa_node_t &node) {
    return node.stat == NODE_STAT_ACTIVED ? "active" : "inactive";
}

json as_json(const vexa_node_t &node) {
    return {{"node_id", node.node_id},
            {"name", printable(node.name)},
            {"ip", node.ip},
            {"port", node.port},
            {"active", node.stat == NODE_STAT_ACTIVED}};
}

bool is_power_of_ten(uint64_t count) {
    while (count % 10 == 0) {
        count /= 10;
    }
    return count == 1;
}

std::string so_often(uint64_t times) {
    return times == 1 ? "" : fmt::format(" ({} times)", times);
}

void print_table(const node_registry &registry) {
    fmt::print("    {:>3}  {:<15}  {:<21}  {}\n", "ID", "NAME", "ADDRESS", "STATE");
    for (const vexa_node_t &node : registry.records()) {
        fmt::print("    {:>3}  {:<15}  {:<21}  {}\n", node.node_id, printable(node.name),
                   fmt::format("{}:{}", node.ip, node.port), state_text(node));
    }
}

std::string what_happened(const node_registry::change &change, const vexa_node_t &node) {
    std::string who = fmt::format("node {} ({})", node.node_id, printable(node.name));
    switch (change.what) {
    case node_registry::event::joined:
        return fmt::format("{} joined at {}:{}", who, node.ip, node.port);
    case node_registry::event::changed:
        return fmt::format("{} is now at {}:{}", who, node.ip, node.port);
    case node_registry::event::left:
        return fmt::format("{} left", who);
    case node_registry::event::lost:
        return fmt::format("{} is lost: it has missed its keep-alives", who);
    }
    return who;
}

} // namespace

void manager_output::say(const json &object) {
    fmt::print("{}\n", object.dump());
    (void)std::fflush(stdout);
}

void manager_output::listening(endpoint where, double keep_alive_s, int missed) const {
    if (style_ == manager_style::json) {
        say({{"event", "listening"},
             {"address", to_text(where)},
             {"keep_alive_s", keep_alive_s},
             {"missed", missed}});
    } else if (style_ == manager_style::text) {
        fmt::print("{}  node manager at {}; a node is lost after {} missed keep-alives of {} s\n",
                   clock_text(), to_text(where), missed, keep_alive_s);
        (void)std::fflush(stdout);
    }
}

void manager_output::table_changed(const node_registry::change &change, const node_registry &registry) const {
    const vexa_node_t node = registry.find(change.node_id).value_or(vexa_node_t{});
    if (style_ == manager_style::json) {
        json nodes = json::array();
        for (const vexa_node_t &each : registry.records()) {
            nodes.push_back(as_json(each));
        }
        say({{"event", "table"},
             {"change", {{"node_id", change.node_id}, {"what", name_of(change.what)}}},
             {"nodes", nodes}});
    } else if (style_ == manager_style::text) {
        fmt::print("{}  {}\n", clock_text(), what_happened(change, node));
        print_table(registry);
        (void)std::fflush(stdout);
    }
}

void manager_output::refused(refusal why, endpoint from, uint16_t node_id) {
    const uint64_t times = ++refusals_said_[{why, node_id}];
    if (!is_power_of_ten(times)) {
        return;
    }
    if (style_ == manager_style::json) {
        say({{"event", "refused"},
             {"reason", name_of(why)},
             {"from", to_text(from)},
             {"node_id", node_id},
             {"times", times}});
        return;
    }
    const std::string whose = node_id == 0 ? "" : fmt::format(" of node {}", node_id);
    fmt::print("{}  refused a datagram{} from {}: {} [{}]{}\n", clock_text(), whose, to_text(from),
               explanation_of(why), name_of(why), so_often(times));
    (void)std::fflush(stdout);
}

void manager_output::send_failed(endpoint to, int error, uint64_t times) const {
    if (!is_power_of_ten(times)) {
        return;
    }
    if (style_ == manager_style::json) {
        say({{"event", "send_failed"}, {"to", to_text(to)}, {"error", strerror(error)}, {"times", times}});
        return;
    }
    fmt::print("{}  cannot send to {}: {}{}\n", clock_text(), to_text(to), strerror(error), so_often(times));
    (void)std::fflush(stdout);
}

void manager_output::summary(const manager_counts &counts, const node_registry &registry) const {
    const size_t known = registry.records().size();
    const size_t active = registry.active().size();
    json reasons = json::object();
    std::string text;
    uint64_t refused = 0;
    for (size_t i = 0; i < counts.refused.size(); ++i) {
        if (counts.refused[i] != 0) {
            refused += counts.refused[i];
            reasons[name_of(static_cast<refusal>(i))] = counts.refused[i];
            text += fmt::format("    {:>8}  {}\n", counts.refused[i], name_of(static_cast<refusal>(i)));
        }
    }
    if (style_ == manager_style::json) {
        say({{"event", "summary"},
             {"known", known},
             {"active", active},
             {"received", counts.received},
             {"answered", counts.answered},
             {"notified", counts.notified},
             {"send_failed", counts.send_failed},
             {"refused", reasons}});
        return;
    }
    fmt::print(
        "{}  ended; nodes known {}, active {}; datagrams received {}, registrations answered {}, table "
        "messages sent {}, sends failed {}, datagrams refused {}\n{}",
        clock_text(), known, active, counts.received, counts.answered, counts.notified, counts.send_failed,
        refused, text);
    (void)std::fflush(stdout);
}

} // namespace vexa
