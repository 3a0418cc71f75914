// The vision link: reports to the flight side and commands to the camera, past the bus.
#include "scene.h"

#include <array>
#include <fmt/core.h>
#include <nlohmann/json.hpp>
#include <set>

namespace demo {
namespace {

using namespace std::chrono_literals;
using nlohmann::ordered_json;

constexpr int k_sender = 9;
constexpr int k_datagrams_a_kind = 5; // of one datagram of each kind
constexpr auto k_link_patience = 10s;

/// One kind of datagram: how the node is asked for it and how the other end shows it.
struct link_kind {
    const char *name;
    const char *message; ///< as the stand-in calls it
    const char *mark;    ///< the field that holds the number
    bool to_camera;
    const char *title;
};

constexpr std::array<link_kind, 7> k_kinds = {{
    {"track_status", "track_status", "id", false, "link to the flight side, track status"},
    {"goal_area", "goal_area", "id", false, "link to the flight side, goal area"},
    {"orbit_status", "orbit_status", "flag", false, "link to the flight side, orbit status"},
    {"orbit_area", "orbit_area", "status", false, "link to the flight side, orbit area"},
    {"command_ack", "command_ack", "command", false, "link to the flight side, ack"},
    {"command_ack_rc", "command_ack", "command", false, "link to the flight side, ack with status1"},
    {"camera_command", "camera_command", "command", true, "link to the camera, command"},
}};
constexpr int k_to_camera = k_datagrams_a_kind;
constexpr int k_to_flight = k_datagrams_a_kind * (static_cast<int>(k_kinds.size()) - 1);

/// A stand-in for the flight side or the camera, read line by line. It ends by itself when all have come.
class listener {
public:
    listener(const stage &on, const char *end, int count)
        : end_(end),
          process_({on.nodes.how().programs + "/vexa", end, "--json", "--count", std::to_string(count),
                    "--timeout", "10"}) {
        const ordered_json said = next("listening");
        if (said.is_null()) {
            throw failure(fmt::format("the stand-in for the {} does not say that it listens", end));
        }
        on.out.event(end, "listens at " + said["address"].get<std::string>());
    }

    [[nodiscard]] const char *end() const { return end_; }

    /// The next line, if it is this event; null when it is not, or none comes.
    ordered_json next(const std::string &event) {
        const auto line = process_.wait_line(k_link_patience);
        ordered_json said = line ? ordered_json::parse(*line) : ordered_json();
        return line && said["event"] == event ? said : ordered_json();
    }

    int status() { return process_.wait_exit(k_link_patience).value_or(-1); }

private:
    const char *end_;
    child_process process_;
};

/// What is not as it was sent; empty when all is well.
std::string difference(const ordered_json &got, const link_kind &kind, int number) {
    if (got.is_null()) {
        return "did not arrive";
    }
    if (!got["faults"].empty()) {
        return "arrived malformed: " + got["faults"].dump();
    }
    return got["message"] == kind.message && got["fields"][kind.mark] == number
               ? ""
               : "arrived as another message";
}

/// What fits in a line of the transcript.
std::string shortened(const std::string &text) {
    constexpr size_t most = 90;
    return text.size() <= most ? text : text.substr(0, most) + " ...";
}

/// Sends one datagram and accounts for it.
void send_one(stage &on, path &row, listener &ear, const link_kind &kind, int number,
              std::set<int> &sequences) {
    const node_line sent = on.nodes.ask(k_sender, fmt::format("link {} {}", kind.name, number), "linked");
    ++row.expected;
    const ordered_json got = sent.text("sent") == "1" ? ear.next("datagram") : ordered_json();
    const std::string wrong = difference(got, kind, number);
    if (!wrong.empty()) {
        row.missing.push_back(fmt::format("{} {} of {} {}", kind.name, number, node_name(k_sender), wrong));
        return;
    }
    sequences.insert(got["sequence"].get<int>());
    row.delays_ns.push_back(got["received_ns"].get<uint64_t>() - sent.number("at"));
    if (number == 1) {
        on.out.event(ear.end(), fmt::format("{} #{}: {}", kind.message, got["sequence"].get<int>(),
                                            shortened(got["fields"].dump())));
    }
}

/// The stand-in's own count at its end.
void close(stage &on, path &row, listener &ear) {
    const ordered_json summary = ear.next("summary");
    const int status = ear.status();
    if (summary.is_null() || status != 0) {
        row.missing.push_back(fmt::format("the stand-in for the {} ended with status {}", ear.end(), status));
        return;
    }
    on.out.event(ear.end(), fmt::format("ends: {} datagrams, {} malformed, {} numbers not seen here",
                                        summary["received"].get<int>(), summary["malformed"].get<int>(),
                                        summary["missing"].get<int>()));
}

} // namespace

void play_link(stage &on) {
    listener flight{on, "flight", k_to_flight};
    listener camera{on, "camera", k_to_camera};
    std::array<path *, k_kinds.size()> rows{};
    for (size_t i = 0; i < k_kinds.size(); ++i) {
        rows[i] = &on.paths.add(k_kinds[i].title);
    }
    on.out.event(node_name(k_sender), fmt::format("sends {} datagrams of each of {} kinds, in turn",
                                                  k_datagrams_a_kind, k_kinds.size()));
    std::set<int> sequences;
    for (int number = 1; number <= k_datagrams_a_kind; ++number) {
        for (size_t i = 0; i < k_kinds.size(); ++i) {
            send_one(on, *rows[i], k_kinds[i].to_camera ? camera : flight, k_kinds[i], number, sequences);
        }
    }
    close(on, *rows.front(), flight);
    close(on, *rows.back(), camera);
    const int all = k_to_flight + k_to_camera;
    if (sequences.size() == static_cast<size_t>(all) && *sequences.rbegin() == all - 1) {
        on.out.event("both", fmt::format("numbered 0 to {} in one row, none left out", all - 1), tone::good);
    } else {
        rows.back()->missing.emplace_back("the datagrams to both ends are not numbered in one row");
    }
}

} // namespace demo
