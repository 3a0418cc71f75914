// One message to many.
#include "pair_process.h"
#include "sections.h"
#include "svg_plot.h"

#include <algorithm>
#include <array>
#include <deque>
#include <fmt/core.h>
#include <sstream>

namespace bench {
namespace {

constexpr auto k_nodes = std::to_array<int>({1, 8, 32, 100});
constexpr auto k_contenders =
    std::to_array<const char *>({"bare-queue", "bare-loop", "vision_brocast_msg", "lcm", "nng", "zeromq"});
constexpr size_t k_size = 64;         // [bytes]
constexpr double k_turn_nodes = 4000; // messages received in a turn
constexpr int k_goal_nodes = 100;
constexpr double k_goal = 1.01;

/// A sender and its receivers, which live as long as this.
class fan {
public:
    fan(const settings &how, const std::string &contender, int nodes, bool one_process) {
        const std::string board = fmt::format("{}/board-{}", how.directory, contender);
        const auto end = [&](const char *role, int first, int count) {
            return std::vector<std::string>{program(how, "bench_fan"),
                                            "--contender",
                                            contender,
                                            "--role",
                                            role,
                                            "--board",
                                            board,
                                            "--directory",
                                            how.directory,
                                            "--first",
                                            std::to_string(first),
                                            "--nodes",
                                            std::to_string(count),
                                            "--core",
                                            std::to_string(how.core)};
        };
        // A bus's receivers look for the sender, or the sender for them: either may come first.
        const int processes = one_process ? 1 : nodes;
        for (int i = 0; i < processes; ++i) {
            receivers_.emplace_back(contender, end("receive", i + 1, nodes / processes));
        }
        sender_ = std::make_unique<told_process>(contender, end("send", 1, nodes));
    }

    turn ask(uint32_t count) {
        std::istringstream said{sender_->told(fmt::format("ask {} {}", k_size, count))};
        turn result{};
        said >> result.lost >> result.p50_ns >> result.mean_ns;
        return result;
    }

private:
    std::deque<told_process> receivers_;
    std::unique_ptr<told_process> sender_;
};

bool wanted(const settings &how, const char *contender, bool one_process) {
    const std::string name = contender;
    const bool own = name.starts_with("bare-") || name == "vision_brocast_msg";
    return std::ranges::find(how.contenders, name) != how.contenders.end() && (one_process || own);
}

struct fan_turns {
    std::string contender;
    std::vector<double> p50_ns;
    std::vector<double> ratios; ///< to the first contender in the same turn
    uint32_t lost = 0;
};

/// One fan at a time: they share the receivers' ports, and a hundred idle processes would not be idle enough.
std::vector<fan_turns> measure(const settings &how, int nodes, bool one_process) {
    std::vector<fan_turns> all;
    for (const char *contender : k_contenders) {
        if (wanted(how, contender, one_process)) {
            all.push_back({contender, {}, {}, 0});
        }
    }
    const auto count = static_cast<uint32_t>(std::max(10.0, k_turn_nodes / nodes));
    const int rounds = std::max(3, one_process ? how.rounds : how.rounds / 8);
    for (int round = 0; round < rounds; ++round) {
        for (fan_turns &each : all) {
            fan one{how, each.contender, nodes, one_process};
            (void)one.ask(count / 4 + 1); // until every receiver is known, and warm
            const turn taken = one.ask(count);
            each.p50_ns.push_back(taken.p50_ns);
            each.ratios.push_back(taken.p50_ns / all.front().p50_ns.back());
            each.lost += taken.lost;
        }
    }
    return all;
}

void add(const std::vector<fan_turns> &all, int nodes, table &filled) {
    for (const fan_turns &each : all) {
        filled.add({std::to_string(nodes), fmt::format("`{}`", each.contender),
                    microseconds(median(each.p50_ns)), fmt::format("{:.3f}", median(each.ratios)),
                    std::to_string(each.lost)});
    }
}

void add_points(const std::vector<fan_turns> &all, int nodes, plot &to) {
    for (size_t i = 0; i < all.size(); ++i) {
        if (to.lines.size() <= i) {
            to.lines.push_back({all[i].contender, {}});
        }
        to.lines[i].points.emplace_back(nodes, median(all[i].p50_ns) / 1000);
    }
}

void hold_goal(const std::vector<fan_turns> &all, report &out) {
    for (const fan_turns &each : all) {
        if (each.contender == "vision_brocast_msg") {
            out.measured({"broadcast, 64 B, to 100 nodes, to the bare queue", k_goal, median(each.ratios)});
        }
    }
}

void measure_all(const settings &how, bool one_process, plot &picture, report &out) {
    table filled{{"nodes", "contender", "p50 [µs]", "to bare-queue", "lost"}};
    for (const int nodes : k_nodes) {
        const std::vector<fan_turns> all = measure(how, nodes, one_process);
        add(all, nodes, filled);
        add_points(all, nodes, picture);
        if (one_process && nodes == k_goal_nodes && all.front().contender == "bare-queue") {
            hold_goal(all, out);
        }
    }
    out.heading(one_process ? "Broadcast to nodes in one process, one core"
                            : "Broadcast to as many processes, one core");
    out.paragraph("Time until the last receiver has the message.");
    out.add(filled);
}

} // namespace

void measure_broadcast(const settings &how, report &out) {
    plot picture{"Broadcast of 64 bytes on one core", "nodes", "median until the last has it [µs]", {}};
    measure_all(how, true, picture, out);
    write_file(how.pictures + "/broadcast.svg", svg(picture));
    out.picture("broadcast.svg", "Median time of a broadcast by the number of nodes, every contender");
    plot unused;
    measure_all(how, false, unused, out);
}

} // namespace bench
