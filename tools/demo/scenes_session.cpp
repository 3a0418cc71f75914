// Joining, knowing each other, leaving.
#include "scene.h"

#include <fmt/core.h>

namespace demo {
namespace {

using namespace std::chrono_literals;

struct participant {
    int id;
    const char *name;
};

constexpr participant k_participants[] = {
    {127, "proxy"}, {1, "vision_machine"}, {3, "vio"}, {5, "soa"}, {9, "detection"}};
constexpr int k_manager = 0;
constexpr int k_leaver = 3;

void join(stage &on, const participant &who, path &registration, path &news) {
    const std::vector<int> others = on.nodes.ids();
    on.nodes.start_node(who.id, who.name);
    const node_line started = on.nodes.ask(who.id, "start", "started");
    if (started.text("result") != "0") {
        throw failure(fmt::format("{} could not start: {}", node_name(who.id), started.text("result")));
    }
    const node_state &joined = on.nodes.node(who.id);
    ++registration.expected;
    // A REGISTER that is lost is repeated after a second.
    if (!on.nodes.wait([&] { return joined.knows(k_manager) && on.nodes.manager_knows(who.id); }, 3s)) {
        throw failure(fmt::format("{} was not accepted by the node manager", node_name(who.id)));
    }
    const uint64_t took = joined.table.at(k_manager).seen_ns - started.number("at");
    registration.delays_ns.push_back(took);
    on.out.event(node_name(who.id),
                 fmt::format("({}) registered; accepted {} after its start", who.name, as_ms(took)));
    for (const int other : others) {
        ++news.expected;
        if (on.nodes.wait([&] { return on.nodes.node(other).knows(who.id); })) {
            news.delays_ns.push_back(on.nodes.node(other).table.at(who.id).seen_ns - started.number("at"));
        } else {
            news.missing.push_back(fmt::format("{} did not hear of {}", node_name(other), node_name(who.id)));
        }
    }
}

bool same_table(const node_state &a, const node_state &b) {
    return std::equal(a.table.begin(), a.table.end(), b.table.begin(), b.table.end(),
                      [](const auto &x, const auto &y) {
                          return x.first == y.first && x.second.active == y.second.active &&
                                 x.second.name == y.second.name && x.second.address == y.second.address;
                      });
}

void show_table(const stage &on, const node_state &seen_by) {
    on.out.line(fmt::format("              {:>3}  {:<15}  {:<18}  {}", "ID", "NAME", "ADDRESS", "STATE"),
                tone::faint);
    for (const auto &[id, entry] : seen_by.table) {
        on.out.line(fmt::format("              {:>3}  {:<15}  {:<18}  {}", id, entry.name, entry.address,
                                entry.active ? "active" : "inactive"));
    }
}

void expect_refusal(stage &on, int from, int to) {
    const node_line sent = on.nodes.ask(from, fmt::format("send {} {} 1 64", on.nodes.new_tag(), to), "sent");
    if (sent.number("refused") != 1) {
        throw failure(fmt::format("{} may still send to {}, which has left", node_name(from), node_name(to)));
    }
    on.out.event(node_name(from), fmt::format("a message to {} is refused now (-1)", node_name(to)));
}

} // namespace

void play_registration(stage &on) {
    path &registration = on.paths.add("registration: start to acceptance", true);
    path &news = on.paths.add("joining: told to the others", true);
    on.nodes.start_manager();
    for (const participant &who : k_participants) {
        join(on, who, registration, news);
    }
}

void play_node_table(stage &on) {
    const std::vector<int> ids = on.nodes.ids();
    const auto all_know_all = [&] {
        return std::all_of(ids.begin(), ids.end(), [&](int id) {
            return std::all_of(ids.begin(), ids.end(),
                               [&](int other) { return on.nodes.node(id).knows(other); });
        });
    };
    if (!on.nodes.wait(all_know_all)) {
        throw failure("not every node has learned of every other");
    }
    show_table(on, on.nodes.node(ids.front()));
    for (const int id : ids) {
        if (!same_table(on.nodes.node(id), on.nodes.node(ids.front()))) {
            throw failure(
                fmt::format("{} has learned another table than {}", node_name(id), node_name(ids.front())));
        }
    }
    on.out.event("all", fmt::format("nodes {} hold this same table", listed(ids)), tone::good);
}

void play_leaving(stage &on) {
    path &news = on.paths.add("leaving: told to the others", true);
    const node_line stopping = on.nodes.ask(k_leaver, "stop", "stopping");
    on.out.event(node_name(k_leaver), "leaves: UNREGISTER");
    if (!on.nodes.wait([&] { return !on.nodes.manager_knows(k_leaver); })) {
        throw failure(fmt::format("the node manager did not hear that {} left", node_name(k_leaver)));
    }
    for (const int other : on.nodes.ids()) {
        if (other == k_leaver) {
            continue;
        }
        ++news.expected;
        if (on.nodes.wait([&] { return !on.nodes.node(other).knows(k_leaver); })) {
            const uint64_t took = on.nodes.node(other).table.at(k_leaver).seen_ns - stopping.number("at");
            news.delays_ns.push_back(took);
            on.out.event(node_name(other),
                         fmt::format("sees {} inactive, {} after", node_name(k_leaver), as_ms(took)));
        } else {
            news.missing.push_back(
                fmt::format("{} did not hear that {} left", node_name(other), node_name(k_leaver)));
        }
    }
    expect_refusal(on, 9, k_leaver);
}

void play_end(stage &on) {
    for (const int id : on.nodes.ids()) {
        if (id != k_leaver) {
            (void)on.nodes.ask(id, "stop", "stopped");
        }
        const int status = on.nodes.end_node(id);
        if (status != 0) {
            throw failure(fmt::format("{} ended with status {}", node_name(id), status));
        }
    }
    const int status = on.nodes.stop_manager();
    if (status != 0) {
        throw failure(fmt::format("the node manager ended with status {}", status));
    }
}

} // namespace demo
