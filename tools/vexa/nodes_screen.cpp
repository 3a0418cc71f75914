// Pictures of `vexa nodes`. See nodes_screen.h.
#include "nodes_screen.h"

#include "message_filter.h"
#include "number_text.h"

#include <algorithm>
#include <fmt/core.h>
#include <nlohmann/json.hpp>

namespace vexa {
namespace {

using nlohmann::ordered_json;

constexpr size_t k_lines_around = 3;             // title, names of the columns, keys
constexpr int64_t k_silence_ns = 21'000'000'000; // two keep-alives, and a second for being late

std::string address_text(const seen_node &node) {
    const bool is_odd = !node.ip.empty() && node.address.ip == 0; // what was registered is no address
    return is_odd ? fmt::format("'{}':{}", node.ip, node.address.port) : to_text(node.address);
}

bool is_silent(const seen_node &node, int64_t now_ns) {
    return node.state == node_state::active && now_ns - std::max(node.last_ns, node.first_ns) > k_silence_ns;
}

span_text state_text(uint16_t id, const seen_node &node, int64_t now_ns) {
    if (id == VX_NODE_MANAGER_ID) {
        return {"node manager"};
    }
    if (id > PROXY_NODE_ID) {
        return {"behind the proxy"};
    }
    if (is_silent(node, now_ns)) {
        return {"active, silent", tone::bad};
    }
    return {name_of(node.state), node.state == node_state::active     ? tone::good
                                 : node.state == node_state::inactive ? tone::faint
                                                                      : tone::plain};
}

std::string since_text(const seen_node &node) {
    return node.registered_ns == 0
               ? "-"
               : (node.registered_before ? "before " : "") + clock_text(node.registered_ns);
}

text_table table_of(const nodes_numbers &numbers) {
    text_table table{.columns = {{.title = "NODE", .least = 5, .rank = 0},
                                 {.title = "NAME", .least = 4, .rank = 2},
                                 {.title = "ADDRESS", .least = 10, .rank = 3},
                                 {.title = "STATE", .least = 6, .rank = 1},
                                 {.title = "LAST SEEN", .right = true, .rank = 4},
                                 {.title = "REGISTERED SINCE", .rank = 5},
                                 {.title = "MESSAGES", .right = true, .rank = 6}}};
    for (const auto &[id, node] : numbers.nodes) {
        const std::string seen = node.last_ns == 0 ? "never" : age_text(numbers.now_ns - node.last_ns);
        table.rows.push_back({{node_text(id), tone::strong},
                              {node.name.empty() ? "-" : node.name},
                              {address_text(node)},
                              state_text(id, node, numbers.now_ns),
                              {seen},
                              {since_text(node)},
                              {fmt::format("{}", node.messages)}});
    }
    return table;
}

text_line title_of(const nodes_numbers &numbers, const nodes_look &look, size_t width) {
    const auto active = std::ranges::count_if(
        numbers.nodes, [](const auto &each) { return each.second.state == node_state::active; });
    std::string text =
        fmt::format(" vexa nodes  {}  {}  {} nodes active", look.paused ? "PAUSED" : numbers.source,
                    clock_text(numbers.now_ns), active);
    text += numbers.capture.dropped > 0
                ? fmt::format("  {} packets came too fast and were not seen", numbers.capture.dropped)
                : "";
    text_line line(text, tone::bar);
    line.fill(width);
    return line;
}

} // namespace

text_screen nodes_screen(const nodes_numbers &numbers, const nodes_look &look, screen_size size) {
    const text_table table = table_of(numbers);
    std::vector<text_line> rows = lay_out(table, size.columns);
    const size_t room = size.rows > k_lines_around ? size.rows - k_lines_around : 0;
    const size_t skip = std::min(look.first_row, table.rows.size() > room ? table.rows.size() - room : 0);
    rows.erase(rows.begin() + 1, rows.begin() + 1 + static_cast<std::ptrdiff_t>(skip));
    text_screen lines = {title_of(numbers, look, size.columns)};
    lines.insert(lines.end(), rows.begin(), rows.end());
    lines.resize(std::max<size_t>(size.rows, 1) - 1);
    lines.emplace_back(" q quit  p pause  Up Down scroll", tone::faint);
    limit(lines, size);
    return lines;
}

std::string nodes_text(const nodes_numbers &numbers) {
    std::string text;
    for (const text_line &line : lay_out(table_of(numbers))) {
        text += line.plain() + '\n';
    }
    return text;
}

std::string nodes_json(const nodes_numbers &numbers) {
    ordered_json all = {{"event", "nodes"},
                        {"source", numbers.source},
                        {"now_ns", numbers.now_ns},
                        {"nodes", ordered_json::array()}};
    const auto time_or_null = [](int64_t time_ns) {
        return time_ns == 0 ? ordered_json() : ordered_json(time_ns);
    };
    for (const auto &[id, node] : numbers.nodes) {
        all["nodes"].push_back({{"node_id", id},
                                {"name", node.name},
                                {"ip", node.ip.empty() ? ordered_json() : ordered_json(node.ip)},
                                {"port", node.address.port},
                                {"address", address_text(node)},
                                {"active", node.state == node_state::active},
                                {"state", name_of(node.state)},
                                {"messages", node.messages},
                                {"last_seen_ns", time_or_null(node.last_ns)},
                                {"registered_ns", time_or_null(node.registered_ns)},
                                {"registered_before", node.registered_before}});
    }
    return all.dump();
}

void nodes_page::refresh() {
    if (!look_.paused) {
        numbers_ = now_();
    }
}

bool nodes_page::press(const key &pressed) {
    const size_t last = numbers_.nodes.empty() ? 0 : numbers_.nodes.size() - 1;
    if (pressed.is('q') || pressed.is('Q')) {
        return false;
    }
    if (pressed.is('p') || pressed.is(' ')) {
        look_.paused = !look_.paused;
        refresh();
    } else if (pressed.kind == key_kind::up) {
        look_.first_row -= std::min<size_t>(look_.first_row, 1);
    } else if (pressed.kind == key_kind::down) {
        look_.first_row = std::min(look_.first_row + 1, last);
    }
    return true;
}

} // namespace vexa
