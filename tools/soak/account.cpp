// The checks at each border. See account.h.
#include "account.h"

#include "log_line.h"
#include "receiver.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>

namespace soak {
namespace {

using findings = std::vector<std::string>;

std::string described(const tally_key &stream) {
    return fmt::format("{} from node {} to {}", info_of(stream.by).name, stream.sender, stream.target);
}

/// Differences under one anonymous loss: none negative, and together as many as were lost.
class pool {
public:
    explicit pool(std::string where) : where_(std::move(where)) {}

    void differ(const std::string &what, int64_t difference, findings &found) {
        if (difference < 0) {
            found.push_back(fmt::format("{}: {} more than there can be: {}", where_, -difference, what));
        } else if (difference > 0) {
            sum_ += difference;
            first_ = first_.empty() ? fmt::format("{} x {}", difference, what) : first_;
        }
    }

    void close(uint64_t known, findings &found) const {
        if (sum_ != static_cast<int64_t>(known)) {
            found.push_back(fmt::format("{}: {} missing, of which {} are known to be dropped{}{}", where_,
                                        sum_, known, first_.empty() ? "" : "; ", first_));
        }
    }

    [[nodiscard]] int64_t sum() const { return sum_; }

private:
    std::string where_;
    int64_t sum_ = 0;
    std::string first_;
};

uint64_t drops_at(const observation &all, int port) {
    const auto found = all.drops.find(static_cast<uint16_t>(port));
    return found == all.drops.end() ? 0 : found->second;
}

bool is_member(const observation &all, uint16_t id) {
    return std::ranges::find(all.ids, id) != all.ids.end();
}

/// A stream, without what is counted of it.
tally_key stream_only(const tally_key &key) {
    return {.what = {},
            .by = key.by,
            .result = outcome::none,
            .place = 0,
            .sender = key.sender,
            .target = key.target};
}

/// What a datagram is known by once it is on its way to a node: whose it is if whole, else what it became.
tally_key as_received(const tally_key &key) {
    const bool whole = key.result == outcome::whole;
    return {.what = {},
            .by = whole ? key.by : way::none,
            .result = key.result,
            .place = 0,
            .sender = whole ? key.sender : uint16_t{0},
            .target = 0};
}

/// Calls of one node by stream, less all that is known to have become of them.
std::map<tally_key, int64_t> unsent(const tally &counts) {
    std::map<tally_key, int64_t> left;
    counts.each([&left](const tally_key &key, uint64_t count) {
        const auto number = static_cast<int64_t>(count);
        switch (key.what) {
        case event::call:
            left[stream_only(key)] += number;
            break;
        case event::refused:
        case event::inactive:
        case event::handed:
        case event::astray:
        case event::failed:
            left[stream_only(key)] -= number;
            break;
        default:
            break;
        }
    });
    return left;
}

/// Adds what the proxy must have sent on, as if it were calls.
void add_sent_on(std::map<tally_key, int64_t> &left, const observation &all, const tally &proxy) {
    for (const uint16_t id : all.ids) {
        if (id != PROXY_NODE_ID) {
            left[{.by = way::heartbeat_on, .sender = PROXY_NODE_ID, .target = id}] +=
                static_cast<int64_t>(sent_on_by(proxy));
        }
    }
}

/// Whether a stream goes to a node that only a damaged table knows.
bool is_made_up(const observation &all, const tally_key &stream) {
    return (is_broadcast(stream.by) || stream.by == way::heartbeat_on) && !is_member(all, stream.target);
}

void check_library_sends(const observation &all, uint16_t id, findings &found) {
    const tally &counts = all.nodes.at(id).counts;
    std::map<tally_key, int64_t> left = unsent(counts);
    if (id == PROXY_NODE_ID) {
        add_sent_on(left, all, counts);
    }
    pool queue{fmt::format("between the calls of node {} and the system", id)};
    std::map<way, int64_t> broadcasts_left;
    for (const auto &[stream, difference] : left) {
        if (stream.by == way::registration || is_made_up(all, stream)) {
            continue;
        }
        if (is_queued(stream.by)) {
            queue.differ(described(stream), difference, found);
        } else if (is_broadcast(stream.by) &&
                   broadcasts_left.try_emplace(stream.by, difference).first->second == difference) {
            continue; // a dropped broadcast is missing at every node that it was for
        } else if (difference != 0) {
            found.push_back(fmt::format("between the calls of node {} and the system: {} unexplained: {}", id,
                                        difference, described(stream)));
        }
    }
    for (const auto &[by, difference] : broadcasts_left) {
        queue.differ(info_of(by).name, difference, found);
    }
    queue.close(counts.get({.what = event::overstocked, .sender = id}), found);
}

/// What the system has dropped of the manager's messages, which only the manager's end tells the number of.
int64_t check_way_to_relay(const observation &all, findings &found) {
    std::map<uint8_t, std::map<tally_key, int64_t>> left; // by the relay's socket
    for (const auto &[id, node] : all.nodes) {
        node.counts.each([&left](const tally_key &key, uint64_t count) {
            if (key.what == event::handed && key.place < k_place_beyond_relay) {
                left[key.place][stream_only(key)] += static_cast<int64_t>(count);
            }
        });
    }
    all.relay.each([&left](const tally_key &key, uint64_t count) {
        if (key.what == event::taken && key.by != way::table) {
            left[key.place][stream_only(key)] -= static_cast<int64_t>(count);
        }
    });
    int64_t tables_dropped = 0;
    for (const auto &[place, streams] : left) {
        pool socket{fmt::format("on the way to the relay's socket for node {}", place)};
        for (const auto &[stream, difference] : streams) {
            socket.differ(described(stream), difference, found);
        }
        const auto drops =
            static_cast<int64_t>(drops_at(all, place == 0 ? VX_NODE_PORT_BASE : k_relay_port_base + place));
        tables_dropped += std::max<int64_t>(0, drops - socket.sum());
        socket.close(static_cast<uint64_t>(std::min(drops, socket.sum())), found);
    }
    return tables_dropped;
}

void check_relay(const observation &all, findings &found) {
    std::map<std::pair<uint8_t, tally_key>, int64_t> left;
    all.relay.each([&left](const tally_key &key, uint64_t count) {
        const auto number = static_cast<int64_t>(count);
        int64_t &difference = left[{key.place, stream_only(key)}];
        switch (key.what) {
        case event::call: // garbage of its own
        case event::taken:
        case event::doubled:
            difference += number;
            break;
        case event::lost:
        case event::put:
        case event::unsendable:
            difference -= number;
            break;
        default:
            break;
        }
    });
    for (const auto &[where, difference] : left) {
        if (difference != 0) {
            found.push_back(fmt::format("in the relay, on the way to node {}: {} unexplained: {}",
                                        where.first, difference, described(where.second)));
        }
    }
}

void check_way_to_node(const observation &all, uint16_t id, findings &found) {
    std::map<tally_key, int64_t> left;
    const auto send = [&left](event what, int place) {
        return [&left, what, place](const tally_key &key, uint64_t count) {
            if (key.what == what && key.place == place) {
                left[as_received(key)] += static_cast<int64_t>(count);
            }
        };
    };
    all.relay.each(send(event::put, id));
    for (const auto &[sender, node] : all.nodes) {
        node.counts.each(send(event::handed, k_place_beyond_relay + id));
    }
    all.nodes.at(id).counts.each([&left](const tally_key &key, uint64_t count) {
        if (key.what == event::read) {
            left[as_received(key)] -= static_cast<int64_t>(count);
        }
    });
    pool socket{fmt::format("on the way from the relay to node {}", id)};
    for (const auto &[what, difference] : left) {
        socket.differ(
            fmt::format("{}, {} of node {}", name_of(what.result), info_of(what.by).name, what.sender),
            difference, found);
    }
    socket.close(drops_at(all, VX_NODE_PORT_BASE + id), found);
}

/// Whether the application gets to see a message, not only the log.
bool is_shown(const tally_key &key) {
    const bool by_log = key.by == way::heartbeat || key.by == way::heartbeat_on;
    return (key.result == outcome::whole && !by_log) || key.result == outcome::damaged_callback ||
           key.result == outcome::damaged_status;
}

void check_application(const node_report &node, uint16_t id, findings &found) {
    std::map<tally_key, int64_t> left;
    node.counts.each([&left](const tally_key &key, uint64_t count) {
        if (key.what == event::read && is_shown(key)) {
            left[as_received(key)] += static_cast<int64_t>(count);
        } else if (key.what == event::given || key.what == event::overwritten ||
                   key.what == event::unpolled) {
            left[as_received(key)] -= static_cast<int64_t>(count);
        }
    });
    for (const auto &[what, difference] : left) {
        if (difference != 0) {
            found.push_back(
                fmt::format("in node {}: {} unexplained between library and application: {}, {} of node {}",
                            id, difference, name_of(what.result), info_of(what.by).name, what.sender));
        }
    }
}

uint64_t refused_calls(const tally &counts) {
    uint64_t sum = 0;
    counts.each(
        [&sum](const tally_key &key, uint64_t count) { sum += key.what == event::refused ? count : 0; });
    return sum;
}

void check_log(const node_report &node, uint16_t id, findings &found) {
    std::map<std::pair<uint8_t, uint16_t>, int64_t> left; // by line and sender
    node.counts.each([&left](const tally_key &key, uint64_t count) {
        if (key.what == event::line_due || key.what == event::line_seen) {
            left[{key.place, key.sender}] +=
                static_cast<int64_t>(count) * (key.what == event::line_due ? 1 : -1);
        }
    });
    left[{static_cast<uint8_t>(log_line::refused), 0}] += static_cast<int64_t>(refused_calls(node.counts));
    for (const log_line line : {log_line::inactive, log_line::tx_overstocked}) {
        left.erase({static_cast<uint8_t>(line), 0}); // they are losses, and are in the balance
    }
    for (const auto &[line, difference] : left) {
        if (difference != 0) {
            found.push_back(fmt::format("in the log of node {}: {} lines too {}: {}", id,
                                        std::abs(difference), difference > 0 ? "few" : "many",
                                        name_of(static_cast<log_line>(line.first))));
        }
    }
}

uint64_t relay_sum(const observation &all, event what, bool (*counts)(const tally_key &)) {
    uint64_t sum = 0;
    all.relay.each(
        [&](const tally_key &key, uint64_t count) { sum += key.what == what && counts(key) ? count : 0; });
    return sum;
}

void check_manager(const observation &all, const manager_report &manager, int64_t tables_dropped,
                   findings &found) {
    const auto expect = [&found](const char *what, uint64_t is, uint64_t must) {
        if (is != must) {
            found.push_back(fmt::format("node manager: {}: {} instead of {}", what, is, must));
        }
    };
    uint64_t sent_past_relay = 0;
    for (const auto &[id, node] : all.nodes) {
        node.counts.each([&sent_past_relay](const tally_key &key, uint64_t count) {
            sent_past_relay += key.what == event::handed && key.place == k_place_beyond_relay ? count : 0;
        });
    }
    const uint64_t put = relay_sum(all, event::put, [](const tally_key &key) { return key.place == 0; });
    const uint64_t drops = drops_at(all, k_manager_real_port);
    expect("datagrams received", manager.received + drops, put + sent_past_relay);
    if (drops + sent_past_relay == 0) {
        expect("unreadable datagrams", manager.unreadable,
               relay_sum(all, event::put,
                         [](const tally_key &key) { return key.result == outcome::refused_by_manager; }));
    }
    const uint64_t taken =
        relay_sum(all, event::taken, [](const tally_key &key) { return key.by == way::table; });
    expect("messages that came to the relay", taken + static_cast<uint64_t>(tables_dropped), manager.sent);
}

} // namespace

std::vector<std::string> unexplained(const observation &all) {
    findings found;
    for (const auto &[id, node] : all.nodes) {
        if (!node.wrong.empty()) {
            found.push_back(fmt::format("node {}: {}", id, node.wrong));
        }
        if (!node.unexpected_line.empty()) {
            found.push_back(fmt::format("node {} has logged: {}", id, node.unexpected_line));
        }
        check_library_sends(all, id, found);
        check_way_to_node(all, id, found);
        check_application(node, id, found);
        check_log(node, id, found);
    }
    check_relay(all, found);
    (void)check_way_to_relay(all, found);
    return found;
}

std::vector<std::string> unexplained_session(const observation &all) {
    findings found;
    check_relay(all, found);
    const int64_t tables_dropped = check_way_to_relay(all, found);
    check_manager(all, all.manager, tables_dropped, found);
    return found;
}

} // namespace soak
