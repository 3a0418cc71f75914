// The heartbeat frame: what one node sets, all nodes have.
#include "scene.h"

#include "vision_service_route_vision_heartbeat.h"

#include <algorithm>
#include <fmt/core.h>

namespace demo {
namespace {

constexpr size_t k_work_mode_byte = 48; // of the frame
constexpr size_t k_work_status_byte = 49;
constexpr size_t k_vio_rate_byte = 13;
constexpr int k_rounds = 25;

/// A node changes WORK_STATUS; measures when each other node has the value.
void set_and_wait(stage &on, path &row, int setter, int value) {
    const node_line set =
        on.nodes.ask(setter, fmt::format("heartbeat {}={}", static_cast<int>(WORK_STATUS), value), "set");
    for (const int id : on.nodes.ids()) {
        if (id == setter) {
            continue; // has it before anything is sent
        }
        ++row.expected;
        const node_state &node = on.nodes.node(id);
        if (on.nodes.wait([&] { return node.frame_byte(k_work_status_byte) == value; })) {
            row.delays_ns.push_back(node.frame_ns - set.number("at"));
        } else {
            row.missing.push_back(fmt::format("WORK_STATUS {} of {} did not reach {}", value,
                                              node_name(setter), node_name(id)));
        }
    }
}

/// The parts of the frame that fields write to: 8 device bytes, 20 core bytes, 10 task bytes.
void show_frames(const stage &on) {
    on.out.event("", fmt::format("{:<16} {:<40} {}", "device", "core", "task"), tone::faint);
    for (const int id : on.nodes.ids()) {
        const std::string &frame = on.nodes.node(id).frame;
        on.out.event(node_name(id), fmt::format("{} {} {}", frame.substr(0, 16), frame.substr(16, 40),
                                                frame.substr(80, 20)));
    }
}

bool frames_equal(const stage &on) {
    const std::vector<int> ids = on.nodes.ids();
    const std::string &first = on.nodes.node(ids.front()).frame;
    return std::all_of(ids.begin(), ids.end(), [&](int id) { return on.nodes.node(id).frame == first; });
}

} // namespace

void play_heartbeat(stage &on) {
    path &row = on.paths.add("heartbeat change, by the proxy to all", true);
    on.out.event(node_name(5), "sets WORK_MODE to 3 and VIO_RATE to 30 in one operation");
    (void)on.nodes.ask(
        5, fmt::format("heartbeat {}=3 {}=30", static_cast<int>(WORK_MODE), static_cast<int>(VIO_RATE)),
        "set");
    on.out.event("nodes 5, 9", fmt::format("set WORK_STATUS {} times, in turn", k_rounds));
    for (int round = 1; round <= k_rounds; ++round) {
        set_and_wait(on, row, round % 2 == 0 ? 9 : 5, round);
    }
    if (!on.nodes.wait([&] { return frames_equal(on); })) {
        row.missing.push_back("the frames differ at the end");
    }
    show_frames(on);
    const node_state &node = on.nodes.node(1);
    if (node.frame_byte(k_work_mode_byte) != 3 || node.frame_byte(k_vio_rate_byte) != 30) {
        row.missing.push_back("WORK_MODE and VIO_RATE did not reach node 1");
    }
    if (row.missing.empty()) {
        on.out.event("all", "all five frames are equal, byte for byte", tone::good);
    }
}

} // namespace demo
