// Pictures of `vexa top`. See top_screen.h.
#include "top_screen.h"

#include "number_text.h"

#include <algorithm>
#include <cmath>
#include <fmt/core.h>
#include <fmt/ranges.h>
#include <functional>
#include <numeric>
#include <tuple>

namespace vexa {
namespace {

constexpr size_t k_history_s = 60;
constexpr size_t k_head_lines = 3; // title, losses, names of the columns
constexpr size_t k_foot_lines = 1;

constexpr auto k_sort_names =
    std::to_array<const char *>({"FROM", "TO", "KIND", "TYPE", "RATE/s", "BYTES/s", "LAST"});
static_assert(k_sort_names.size() == k_top_sorts);

constexpr auto k_help = std::to_array<const char *>({
    "q, Ctrl-C   quit",
    "s, < >      sort by the next column, by the one to the left or right",
    "r           reverse the order",
    "/           type a filter; Enter takes it, Esc drops it",
    "Esc         show all again",
    "p, Space    hold the picture, go on; counting goes on meanwhile",
    "Tab         sockets of this machine's nodes, with what the system dropped",
    "Up Down, Page Up Page Down, Home End   scroll",
    "h, ?        this help, and back",
});

std::optional<double> messages_of(const std::optional<rate> &r) {
    return r ? std::optional{r->messages} : std::nullopt;
}

std::optional<double> bytes_of(const std::optional<rate> &r) {
    return r ? std::optional{r->bytes} : std::nullopt;
}

/// "1 flow", "2 flows".
std::string counted(size_t number, const char *what) {
    return fmt::format("{} {}{}", number, what, number == 1 ? "" : "s");
}

/// Two digits of it: what differs less stays where it is.
double coarse(std::optional<double> value) {
    if (!value || *value <= 0) {
        return value ? 0 : -1;
    }
    const double scale = std::pow(10, std::floor(std::log10(*value)) - 1);
    return std::round(*value / scale) * scale;
}

bool comes_before(const flow_row &a, const flow_row &b, top_sort by) {
    switch (by) {
    case top_sort::from:
        return std::tie(a.key.from_address, a.key.src) < std::tie(b.key.from_address, b.key.src);
    case top_sort::to:
        return std::tie(a.key.to_address, a.key.dst) < std::tie(b.key.to_address, b.key.dst);
    case top_sort::kind:
        return std::tie(a.key.envelope, a.key.kind, a.key.form) <
               std::tie(b.key.envelope, b.key.kind, b.key.form);
    case top_sort::type:
        return a.key.type < b.key.type;
    case top_sort::rate:
        return coarse(messages_of(a.per_second)) > coarse(messages_of(b.per_second));
    case top_sort::bytes:
        return coarse(bytes_of(a.per_second)) > coarse(bytes_of(b.per_second));
    case top_sort::last:
        return a.last_ns > b.last_ns;
    }
    return false;
}

text_table flow_table_of(const std::vector<flow_row> &rows, const top_look &look, int64_t now_ns) {
    text_table table{
        .columns = {{.title = "FROM", .least = 5, .rank = 0},
                    {.title = "TO", .least = 5, .rank = 2},
                    {.title = "KIND", .least = 8, .rank = 3},
                    {.title = "TYPE", .least = 8, .rank = 4},
                    {.title = "RATE/s", .right = true, .rank = 1},
                    {.title = "BYTES/s", .right = true, .rank = 5},
                    {.title = "LAST", .right = true, .rank = 6},
                    {.title = "PER SECOND", .right = true, .keeps_end = true, .least = 10, .rank = 7}}};
    table.marked = static_cast<size_t>(look.sort);
    for (const flow_row &row : rows) {
        const bool silent = row.per_second && row.per_second->messages == 0;
        const bool broken = !row.names.damage.empty();
        const tone usual = silent ? tone::faint : tone::plain;
        table.rows.push_back(
            {{row.names.from, usual},
             {row.names.to, usual},
             {row.names.kind + (broken ? " " + row.names.damage : ""), broken ? tone::bad : usual},
             {row.names.type, usual},
             {rate_text(messages_of(row.per_second)), silent ? tone::faint : tone::strong},
             {bytes_text(bytes_of(row.per_second)), usual},
             {age_text(now_ns - row.last_ns), usual},
             {bars_text(row.history, look.in_blocks), tone::good}});
    }
    return table;
}

text_table socket_table_of(const std::vector<node_socket> &sockets) {
    text_table table{.columns = {{.title = "NODE", .least = 5, .rank = 0},
                                 {.title = "SOCKET", .least = 12, .rank = 4},
                                 {.title = "PROCESS", .least = 8, .rank = 3},
                                 {.title = "WAITING", .right = true, .rank = 5},
                                 {.title = "DROPS", .right = true, .rank = 2},
                                 {.title = "NEW", .right = true, .rank = 1},
                                 {.title = "DROPS/s", .right = true, .rank = 6}}};
    for (const node_socket &each : sockets) {
        const tone how = each.new_drops > 0 ? tone::bad : tone::plain;
        table.rows.push_back({{node_text(each.node_id)},
                              {to_text(each.local)},
                              {each.holder},
                              {bytes_text(static_cast<double>(each.waiting_bytes))},
                              {fmt::format("{}", each.drops)},
                              {fmt::format("{}", each.new_drops), how},
                              {rate_text(each.drops_per_s), how}});
    }
    return table;
}

rate sum_of(const std::vector<flow_row> &flows) {
    return std::accumulate(flows.begin(), flows.end(), rate{}, [](rate sum, const flow_row &row) {
        const rate more = row.per_second.value_or(rate{});
        return rate{sum.messages + more.messages, sum.bytes + more.bytes};
    });
}

text_line title_of(const top_numbers &numbers, const std::vector<flow_row> &rows, const top_look &look,
                   size_t width) {
    const rate sum = sum_of(rows);
    std::string text = fmt::format(" vexa top  {}  {}  ", look.paused ? "PAUSED" : numbers.source,
                                   clock_text(numbers.now_ns));
    const std::string of = rows.size() == numbers.flows.size() ? "" : fmt::format("{} of ", rows.size());
    text += fmt::format("{}{}", of, counted(numbers.flows.size(), "flow"));
    text += fmt::format("  {} messages/s  {} bytes/s", rate_text(sum.messages), bytes_text(sum.bytes));
    text_line line(text, tone::bar);
    line.fill(width);
    return line;
}

/// "drops: capture 0, sockets of 5 nodes 12: soa(5) 12"
text_line losses_of(const top_numbers &numbers) {
    std::vector<std::string> losers;
    uint64_t sum = 0;
    for (const node_socket &each : numbers.sockets) {
        if (each.new_drops > 0) {
            losers.push_back(fmt::format("{} {}", node_text(each.node_id), each.new_drops));
            sum += each.new_drops;
        }
    }
    text_line line(" drops: ", tone::faint);
    line.add(fmt::format("capture {}", numbers.capture.dropped),
             numbers.capture.dropped > 0 ? tone::bad : tone::faint);
    line.add(fmt::format(", sockets of {} {}", counted(numbers.sockets.size(), "node"), sum),
             sum > 0 ? tone::bad : tone::faint);
    line.add(losers.empty() ? "" : fmt::format(": {}", fmt::join(losers, ", ")), tone::bad);
    line.add(numbers.forgotten > 0 ? fmt::format(", {} flows forgotten", numbers.forgotten) : "", tone::bad);
    return line;
}

text_line foot_of(const top_look &look) {
    if (look.typing) {
        return text_line(" filter: " + *look.typing + "_", tone::strong);
    }
    text_line line;
    if (!look.filter_text.empty()) {
        line.add(" filter: " + look.filter_text, tone::strong).add("  Esc all");
    }
    return line.add(" q quit  h help  s sort  r reverse  / filter  p pause  Tab sockets", tone::faint);
}

/// The rows from the first one to be shown on.
void add_table(text_screen &lines, const text_table &table, size_t first, screen_size size) {
    std::vector<text_line> all = lay_out(table, size.columns);
    const size_t room = room_for_rows(size);
    const size_t skip = std::min(first, table.rows.size() > room ? table.rows.size() - room : 0);
    all.erase(all.begin() + 1, all.begin() + 1 + static_cast<std::ptrdiff_t>(skip));
    all.resize(std::min(all.size(), room + 1));
    lines.insert(lines.end(), all.begin(), all.end());
}

} // namespace

const char *name_of(top_sort column) {
    return k_sort_names.at(static_cast<size_t>(column));
}

std::vector<flow_row> rows_of(const flow_table &flows, int64_t now_ns, rates which) {
    std::vector<flow_row> rows;
    rows.reserve(flows.all().size());
    for (const auto &[key, each] : flows.all()) {
        const rate_meter &meter = each.meter;
        rows.push_back({.key = key,
                        .names = each.names,
                        .sample = each.sample,
                        .per_second = which == rates::now ? meter.now(now_ns) : meter.mean(),
                        .messages = meter.messages(),
                        .bytes = meter.bytes(),
                        .first_ns = meter.first_ns(),
                        .last_ns = meter.last_ns(),
                        .history = meter.history(now_ns, k_history_s)});
    }
    return rows;
}

std::vector<flow_row> chosen(const std::vector<flow_row> &flows, const top_look &look) {
    std::vector<flow_row> rows;
    std::ranges::copy_if(flows, std::back_inserter(rows),
                         [&](const flow_row &row) { return row.sample->matches(look.filter); });
    std::ranges::stable_sort(rows, [&](const flow_row &a, const flow_row &b) {
        return look.reversed ? comes_before(b, a, look.sort) : comes_before(a, b, look.sort);
    });
    return rows;
}

size_t room_for_rows(screen_size size) {
    return size.rows > k_head_lines + k_foot_lines ? size.rows - k_head_lines - k_foot_lines : 0;
}

text_screen top_screen(const top_numbers &numbers, const top_look &look, screen_size size) {
    const std::vector<flow_row> rows = chosen(numbers.flows, look);
    text_screen lines = {title_of(numbers, rows, look, size.columns), losses_of(numbers)};
    if (!look.complaint.empty()) {
        lines.back() = text_line(" " + look.complaint, tone::bad);
    }
    if (look.shows_help) {
        for (const char *each : k_help) {
            lines.emplace_back(std::string(" ") + each);
        }
    } else if (look.shows_sockets) {
        add_table(lines, socket_table_of(numbers.sockets), look.first_row, size);
    } else {
        add_table(lines, flow_table_of(rows, look, numbers.now_ns), look.first_row, size);
    }
    lines.resize(std::max(size.rows, k_foot_lines) - k_foot_lines);
    lines.push_back(foot_of(look));
    limit(lines, size);
    return lines;
}

std::string top_text(const top_numbers &numbers, const top_look &look) {
    text_table flows = flow_table_of(chosen(numbers.flows, look), look, numbers.now_ns);
    flows.columns.pop_back(); // the bars: whoever reads this has no use for them
    std::ranges::for_each(flows.rows, [](auto &row) { row.pop_back(); });
    std::vector<text_line> lines = lay_out(flows);
    if (!numbers.sockets.empty()) {
        lines.emplace_back();
        const std::vector<text_line> sockets = lay_out(socket_table_of(numbers.sockets));
        lines.insert(lines.end(), sockets.begin(), sockets.end());
    }
    std::string text;
    for (const text_line &line : lines) {
        text += line.plain() + '\n';
    }
    return text;
}

} // namespace vexa
