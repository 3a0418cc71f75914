// What becomes of each way's messages, over all nodes. See account.h.
//
// What a full queue or socket has dropped shows as a difference between two sums. It is given that name only
// where such a drop is known at all; whether the numbers agree is checked in account.cpp.
#include "account.h"

#include "receiver.h"

#include <algorithm>

namespace soak {
namespace {

/// Sums over all senders and receivers, of one way.
struct way_sums {
    int64_t handed = 0;    // to the relay
    int64_t taken = 0;     // by it
    int64_t put_whole = 0; // by the relay, or by a sender past it
};

constexpr auto k_columns = std::to_array<int64_t way_balance::*>(
    {&way_balance::sent, &way_balance::made_up, &way_balance::refused, &way_balance::inactive,
     &way_balance::overstocked, &way_balance::astray, &way_balance::kernel, &way_balance::lost,
     &way_balance::damaged, &way_balance::doubled, &way_balance::delivered, &way_balance::overwritten});
static_assert(sizeof(way_balance) == k_columns.size() * sizeof(int64_t));

constexpr std::array<const char *, static_cast<size_t>(outcome::number_of_outcomes)> k_outcomes = {
    "nothing",
    "whole",
    "damaged, given to the callback",
    "damaged, kept as a status",
    "damaged, applied to the heartbeat frame",
    "taken for a node table",
    "dropped: shorter than a header",
    "dropped: wrong magic",
    "dropped: ids out of range",
    "dropped: unknown kind",
    "dropped: status cut short",
    "dropped: status of no node",
    "a request to the node manager",
    "refused by the node manager",
};

bool arrives_whole(const tally_key &key) {
    return key.result == outcome::whole || (key.by == way::table && key.result == outcome::table) ||
           (key.by == way::registration && key.result == outcome::request);
}

/// Whether nothing but nodes reads what travels this way, and tells whether it was whole.
bool is_judged(way by) {
    return is_user_data(by) || by == way::heartbeat || by == way::heartbeat_on;
}

class adding_up {
public:
    explicit adding_up(const observation &all) : all_(all) {}

    balance sum() {
        for (const auto &[id, node] : all_.nodes) {
            node.counts.each([this](const tally_key &key, uint64_t count) { add_node(key, count); });
            if (id == PROXY_NODE_ID) {
                row(way::heartbeat_on).sent =
                    static_cast<int64_t>(sent_on_by(node.counts) * (all_.ids.size() - 1));
            }
        }
        all_.relay.each([this](const tally_key &key, uint64_t count) { add_relay(key, count); });
        for (size_t row = 0; row < rows_.size(); ++row) {
            close(static_cast<way>(row));
        }
        return rows_;
    }

private:
    way_balance &row(way by) { return rows_.at(static_cast<size_t>(by)); }
    way_sums &sums(way by) { return sums_.at(static_cast<size_t>(by)); }

    void add_node(const tally_key &key, uint64_t count) {
        if (key.target == k_witness) {
            return; // not one of those whom the messages are for
        }
        const auto number = static_cast<int64_t>(count);
        switch (key.what) {
        case event::call:
            row(key.by).sent += number;
            break;
        case event::refused:
            row(key.by).refused += number;
            break;
        case event::inactive:
            row(key.by).inactive += number;
            count_session(key.by, number);
            break;
        case event::overstocked:
            queue_dropped_ = true;
            break;
        case event::astray:
        case event::failed:
            leave(key, number);
            row(key.by).astray += number;
            break;
        case event::handed:
            leave(key, number);
            arrive(key, number);
            break;
        case event::read:
            row(key.by).delivered += key.result == outcome::whole ? number : 0;
            break;
        case event::overwritten:
            row(key.by).overwritten += key.result == outcome::whole ? number : 0;
            break;
        default:
            break;
        }
    }

    /// A message has left its sender's library.
    void leave(const tally_key &key, int64_t number) {
        const bool to_all = is_broadcast(key.by) || key.by == way::heartbeat_on;
        if (to_all && std::ranges::find(all_.ids, key.target) == all_.ids.end()) {
            row(key.by).made_up += number;
        }
        count_session(key.by, number);
    }

    /// Nobody calls for a REGISTER: what leaves was sent.
    void count_session(way by, int64_t number) { row(by).sent += by == way::registration ? number : 0; }

    void arrive(const tally_key &key, int64_t number) {
        if (key.place < k_place_beyond_relay) {
            sums(key.by).handed += number;
        } else {
            (key.result == outcome::whole ? sums(key.by).put_whole : row(key.by).astray) += number;
        }
    }

    void add_relay(const tally_key &key, uint64_t count) {
        if (key.target == k_witness) {
            return;
        }
        const auto number = static_cast<int64_t>(count);
        switch (key.what) {
        case event::call:
            row(key.by).sent += number;
            break;
        case event::taken:
            sums(key.by).taken += number;
            row(key.by).sent += key.by == way::table ? number : 0;
            break;
        case event::lost:
        case event::unsendable:
            row(key.by).lost += number;
            break;
        case event::doubled:
            row(key.by).doubled += number;
            break;
        case event::put:
            (arrives_whole(key) ? sums(key.by).put_whole : row(key.by).damaged) += number;
            break;
        default:
            break;
        }
    }

    void close(way by) {
        way_balance &its = row(by);
        const way_sums &sum = sums(by);
        const bool by_sockets =
            std::ranges::any_of(all_.drops, [](const auto &one) { return one.second > 0; });
        its.delivered = is_judged(by) ? its.delivered : sum.put_whole;
        if (by_sockets && is_judged(by)) {
            its.kernel = sum.handed - sum.taken + sum.put_whole - its.delivered;
        }
        if (queue_dropped_ && (is_queued(by) || is_broadcast(by))) {
            its.overstocked =
                its.difference() - (sum.handed - sum.taken) - (sum.put_whole - its.delivered) + its.kernel;
        }
    }

    const observation &all_;
    balance rows_{};
    std::array<way_sums, static_cast<size_t>(way::number_of_ways)> sums_{};
    bool queue_dropped_ = false;
};

} // namespace

uint64_t sent_on_by(const tally &proxy) {
    uint64_t sum = 0;
    proxy.each([&sum](const tally_key &key, uint64_t count) {
        const bool whole = key.result == outcome::whole && key.by == way::heartbeat;
        sum += key.what == event::read && (whole || key.result == outcome::damaged_heartbeat) ? count : 0;
    });
    return sum;
}

balance balance_of(const observation &all) {
    return adding_up{all}.sum();
}

balance growth(const balance &before, const balance &after) {
    balance grown = after;
    for (size_t row = 0; row < grown.size(); ++row) {
        for (const auto column : k_columns) {
            grown.at(row).*column -= before.at(row).*column;
        }
    }
    return grown;
}

std::array<uint64_t, static_cast<size_t>(outcome::number_of_outcomes)> read_as(const observation &all) {
    std::array<uint64_t, static_cast<size_t>(outcome::number_of_outcomes)> sums{};
    for (const auto &[id, node] : all.nodes) {
        node.counts.each([&sums](const tally_key &key, uint64_t count) {
            sums.at(static_cast<size_t>(key.result)) += key.what == event::read ? count : 0;
        });
    }
    return sums;
}

const char *name_of(outcome what) {
    return k_outcomes.at(static_cast<size_t>(what));
}

} // namespace soak
