// Round trips and bursts of every contender.
#include "pair_group.h"
#include "sections.h"
#include "svg_plot.h"

#include <array>
#include <fmt/core.h>

namespace bench {
namespace {

constexpr auto k_sizes =
    std::to_array<size_t>({16, 64, 1024, 8176}); // [bytes]; the last is the longest that arrives
constexpr uint32_t k_burst = 128;
constexpr size_t k_burst_size = 64;

/// A goal: one contender's work against another's, on one core.
struct goal_row {
    const char *work;
    size_t size_bytes;
    uint32_t burst;
    const char *contender;
    const char *limit;
    double most;
};
constexpr auto k_goals = std::to_array<goal_row>({
    {"direct round trip, 64 B, to the bare loop", 64, 1, "vision_send_msg", "bare-loop", 1.03},
    {"direct round trip, 8176 B, to the bare loop", 8176, 1, "vision_send_msg", "bare-loop", 1.03},
    {"queued round trip, 64 B, to the bare queue", 64, 1, "vxmsg_send_general", "bare-queue", 1.20},
    {"queued round trip, 8176 B, to the bare queue", 8176, 1, "vxmsg_send_general", "bare-queue",
     k_queued_goal},
    {"burst of 128, 64 B, direct, to the bare loop", 64, k_burst, "vision_send_msg", "bare-loop", 1.05},
});

std::string against(const measured &one, const std::vector<measured> &all, const char *limit) {
    const measured *to = find(all, limit);
    const double found = to == nullptr ? 0 : ratio(one, *to);
    return found == 0 ? "—" : fmt::format("{:.3f}", found);
}

void add_table(const std::vector<measured> &all, report &out) {
    table filled{{"contender", "p50 [µs]", "mean [µs]", "p99 [µs]", "p99.9 [µs]", "CPU per message [µs]",
                  "to bare-loop", "to bare-queue", "lost"}};
    for (const measured &one : all) {
        filled.add({fmt::format("`{}`", one.contender), microseconds(median(one.p50_ns)),
                    microseconds(median(one.mean_ns)), microseconds(one.all.p99_ns),
                    microseconds(one.all.p999_ns), microseconds(median(one.cpu_ns)),
                    against(one, all, "bare-loop"), against(one, all, "bare-queue"),
                    std::to_string(one.lost)});
    }
    out.add(filled);
}

void hold_goals(const std::vector<measured> &all, size_t size_bytes, uint32_t burst, report &out) {
    for (const goal_row &row : k_goals) {
        const measured *one = find(all, row.contender);
        const measured *limit = find(all, row.limit);
        if (row.size_bytes == size_bytes && row.burst == burst && one != nullptr && limit != nullptr) {
            out.measured({row.work, row.most, ratio(*one, *limit)});
        }
    }
}

void add_points(const std::vector<measured> &all, double x, plot &to) {
    for (size_t i = 0; i < all.size(); ++i) {
        if (to.lines.size() <= i) {
            to.lines.push_back({all[i].contender, {}});
        }
        to.lines[i].points.emplace_back(x, median(all[i].p50_ns) / 1000);
    }
}

void measure(const settings &how, bool two_cores, plot *picture, report &out) {
    pair_group group{how, two_cores};
    const char *where = two_cores ? "two cores" : "one core";
    for (const size_t size : k_sizes) {
        const std::vector<measured> all = group.ask(size, 1);
        out.heading(fmt::format("Round trip, {} B, {}", size, where));
        add_table(all, out);
        if (!two_cores) {
            hold_goals(all, size, 1, out);
        }
        if (picture != nullptr) {
            add_points(all, static_cast<double>(size), *picture);
        }
    }
    const std::vector<measured> bursts = group.ask(k_burst_size, k_burst);
    out.heading(fmt::format("Bursts of {}, {} B, {}", k_burst, k_burst_size, where));
    out.paragraph("Time per message, from the first one sent to the answer to the last.");
    add_table(bursts, out);
    if (!two_cores) {
        hold_goals(bursts, k_burst_size, k_burst, out);
    }
}

} // namespace

void measure_round_trips(const settings &how, report &out) {
    plot picture{"Round trip on one core", "payload [bytes]", "median [µs]", {}};
    measure(how, false, &picture, out);
    write_file(how.pictures + "/latency.svg", svg(picture));
    out.heading("Latency by size");
    out.picture("latency.svg", "Median round trip by payload size, every contender");
    if (how.other_core != how.core) {
        measure(how, true, nullptr, out);
    }
}

} // namespace bench
