// Messages: direct, queued, through the proxy, kept for polling, to many.
#include "scene.h"

#include "vision_service_route_types.h"

#include <algorithm>
#include <fmt/core.h>
#include <set>

namespace demo {
namespace {

constexpr uint32_t k_messages = 25; // of each transfer
constexpr size_t k_usual_size = 256;
constexpr size_t k_largest_size = 8176; // the most that arrives uncut
constexpr uint16_t k_watched_status = MSG_VIO_CFG;

/// One or more messages under way from a node to one or more others.
struct transfer {
    int tag;
    int from;
    std::vector<int> to;
    uint32_t count;
};

const std::vector<arrival> &arrivals(const stage &on, int id, int tag) {
    static const std::vector<arrival> none;
    const auto &all = on.nodes.node(id).arrivals;
    const auto found = all.find(tag);
    return found == all.end() ? none : found->second;
}

bool all_arrived(const stage &on, const transfer &what) {
    return std::all_of(what.to.begin(), what.to.end(),
                       [&](int id) { return arrivals(on, id, what.tag).size() >= what.count; });
}

/// Waits for the messages and enters them into the report, with the names of those that do not come.
void account(stage &on, path &row, const transfer &what) {
    (void)on.nodes.wait([&] { return all_arrived(on, what); });
    for (const int receiver : what.to) {
        row.expected += what.count;
        std::set<uint32_t> numbers;
        for (const arrival &each : arrivals(on, receiver, what.tag)) {
            if (each.src == what.from && numbers.insert(each.number).second) {
                row.delays_ns.push_back(each.delay_ns);
            } else {
                row.missing.push_back(fmt::format("{} got number {} twice or from a stranger",
                                                  node_name(receiver), each.number));
            }
        }
        for (uint32_t number = 1; number <= what.count; ++number) {
            if (!numbers.contains(number)) {
                row.missing.push_back(fmt::format("number {} from {} did not reach {}", number,
                                                  node_name(what.from), node_name(receiver)));
            }
        }
    }
}

void show_first(const stage &on, const transfer &what) {
    for (const int receiver : what.to) {
        const auto &all = arrivals(on, receiver, what.tag);
        if (all.empty()) {
            on.out.event(node_name(receiver), "nothing arrived", tone::bad);
            continue;
        }
        on.out.event(node_name(receiver),
                     fmt::format("callback: {} of {} from {}, {} bytes each; the first after {}", all.size(),
                                 what.count, node_name(all[0].src), all[0].size, as_ms(all[0].delay_ns)));
    }
}

/// Sends from one node to another and accounts for it. `command` is "send" or "queue".
void send_to(stage &on, path &row, const char *command, int from, int to, size_t size) {
    const transfer what{on.nodes.new_tag(), from, {to}, k_messages};
    const node_line sent =
        on.nodes.ask(from, fmt::format("{} {} {} {} {}", command, what.tag, to, what.count, size), "sent");
    if (sent.number("refused") != 0) {
        row.missing.push_back(fmt::format("{} refused {} messages to {}", node_name(from),
                                          sent.text("refused"), node_name(to)));
    }
    account(on, row, what);
    show_first(on, what);
}

/// Queues one message behind whatever a node has queued before, and waits for it: what was sent to the
/// receiver earlier on this way is there, or will never be.
void fence(stage &on, const char *command, int from, int to) {
    const transfer what{on.nodes.new_tag(), from, {to}, 1};
    (void)on.nodes.ask(from, fmt::format("{} {} {} 1 64", command, what.tag, to), "sent");
    if (!on.nodes.wait([&] { return all_arrived(on, what); })) {
        throw failure(fmt::format("a message from {} to {} did not arrive", node_name(from), node_name(to)));
    }
}

void broadcast(stage &on, path &row, int from, const std::vector<int> &to) {
    const transfer what{on.nodes.new_tag(), from, to, k_messages};
    (void)on.nodes.ask(from, fmt::format("broadcast {} {} {}", what.tag, what.count, k_usual_size), "sent");
    account(on, row, what);
    std::vector<int> reached;
    for (const int id : on.nodes.ids()) {
        if (id != from && std::find(to.begin(), to.end(), id) == to.end()) {
            fence(on, "queue", from, id);
        }
        if (!arrivals(on, id, what.tag).empty()) {
            reached.push_back(id);
        }
    }
    if (reached != to) {
        row.missing.push_back(
            fmt::format("a broadcast of {} reached nodes {}", node_name(from), listed(reached)));
    }
    on.out.event(node_name(from), fmt::format("broadcasts {} messages; they reach {}", what.count,
                                              reached.empty() ? "nobody" : "nodes " + listed(reached)));
}

void watch_newest(stage &on, path &row, int from, int to) {
    (void)on.nodes.ask(to, fmt::format("watch {}", k_watched_status), "watching");
    for (uint32_t number = 1; number <= k_messages; ++number) {
        (void)on.nodes.ask(from, fmt::format("status 0 {} {} {}", to, k_watched_status, number), "sent");
        ++row.expected;
        const auto &seen = on.nodes.node(to).statuses;
        const auto is_there = [&] {
            const auto found = seen.find(k_watched_status);
            return found != seen.end() && found->second.number == number;
        };
        if (on.nodes.wait(is_there)) {
            row.delays_ns.push_back(seen.at(k_watched_status).delay_ns);
        } else {
            row.missing.push_back(fmt::format("number {} from {} was never seen by {}", number,
                                              node_name(from), node_name(to)));
        }
    }
    on.out.event(node_name(to), fmt::format("polled {} statuses from {}, one after the other",
                                            row.delays_ns.size(), node_name(from)));
}

void expect_newest(stage &on, int at, int key, uint32_t number) {
    const node_line polled = on.nodes.ask(at, fmt::format("poll {}", key), "polled");
    const std::string found = polled.has("number") ? polled.text("number") : "none";
    if (found != std::to_string(number)) {
        throw failure(
            fmt::format("{} holds number {} of type {}, not {}", node_name(at), found, key, number));
    }
    on.out.event(node_name(at), fmt::format("polls type {}: number {} is the newest", key, found));
}

} // namespace

void play_direct(stage &on) {
    path &usual = on.paths.add(fmt::format("direct, {} bytes", k_usual_size));
    send_to(on, usual, "send", 9, 1, k_usual_size);
    send_to(on, usual, "send", 1, 9, k_usual_size);
    send_to(on, usual, "send", 3, 5, k_usual_size);
    path &largest = on.paths.add(fmt::format("direct, {} bytes", k_largest_size));
    send_to(on, largest, "send", 5, 3, k_largest_size);
}

void play_queued(stage &on) {
    path &row = on.paths.add(fmt::format("queued, {} bytes", k_usual_size));
    send_to(on, row, "queue", 9, 1, k_usual_size);
    send_to(on, row, "queue", 1, 9, k_usual_size);
    send_to(on, row, "queue", 5, 127, k_usual_size);
}

void play_proxy(stage &on) {
    path &row = on.paths.add("direct to the app (64001), by the proxy");
    const transfer what{on.nodes.new_tag(), 5, {PROXY_NODE_ID}, k_messages};
    const auto app = static_cast<uint32_t>(NODE_APP);
    (void)on.nodes.ask(what.from, fmt::format("send {} {} {} {}", what.tag, app, what.count, k_usual_size),
                       "sent");
    account(on, row, what);
    for (const arrival &each : arrivals(on, PROXY_NODE_ID, what.tag)) {
        if (static_cast<uint32_t>(each.dst) != app) {
            row.missing.push_back(fmt::format("number {} came addressed to {}", each.number, each.dst));
        }
    }
    on.out.event(node_name(PROXY_NODE_ID), fmt::format("callback: {} of {} from {}, still addressed to {}",
                                                       arrivals(on, PROXY_NODE_ID, what.tag).size(),
                                                       what.count, node_name(what.from), app));
}

void play_statuses(stage &on) {
    watch_newest(on, on.paths.add("status, polled", true), 3, 5);
    constexpr int sender = 9;
    constexpr int receiver = 1;
    const auto send_some = [&](int key, uint32_t count) {
        for (uint32_t number = 1; number <= count; ++number) {
            (void)on.nodes.ask(sender, fmt::format("status 0 {} {} {}", receiver, key, number), "sent");
        }
    };
    send_some(MSG_DETECTION_OBJECTS, 5);
    send_some(MSG_TRACK_OBJECTS, 3);
    on.out.event(node_name(sender),
                 fmt::format("sends 5 statuses of type {} and 3 of type {} to {}, which looks only now:",
                             static_cast<int>(MSG_DETECTION_OBJECTS), static_cast<int>(MSG_TRACK_OBJECTS),
                             node_name(receiver)));
    fence(on, "send", sender, receiver);
    expect_newest(on, receiver, MSG_DETECTION_OBJECTS, 5);
    expect_newest(on, receiver, MSG_TRACK_OBJECTS, 3);
    expect_newest(on, receiver, MSG_DETECTION_OBJECTS, 5); // it stays until a newer one comes
}

void play_broadcast(stage &on) {
    broadcast(on, on.paths.add("broadcast of node 9, to 1, 3 and 5"), 9, {1, 3, 5});
    broadcast(on, on.paths.add("broadcast of the proxy, to 1, 3, 5 and 9"), 127, {1, 3, 5, 9});
    path nobody; // nothing is to arrive, so there is nothing to measure
    broadcast(on, nobody, 1, {});
    if (!nobody.missing.empty()) {
        throw failure(nobody.missing.front());
    }
}

} // namespace demo
