// The heartbeat frame through a node. See hb_node.h.
#include "hb_node.h"

#include "hb_fields.h"
#include "hb_mgr.h"
#include "library_log.h"
#include "line_output.h"
#include "named_value.h"
#include "payload.h"
#include "subcommand.h"
#include "vx_msg_def.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fmt/chrono.h>
#include <fmt/core.h>
#include <nlohmann/json.hpp>
#include <set>

namespace vexa {
namespace {

using clock = bus_node::clock;
using formats::frame_member;
using nlohmann::ordered_json;

clock::time_point after(double seconds) {
    return clock::now() + std::chrono::duration_cast<clock::duration>(std::chrono::duration<double>(seconds));
}

std::string field_name(HeartBeatField field) {
    return name_of(k_field_names, static_cast<uint16_t>(field)).value_or(std::to_string(field));
}

/// Puts something else in the place of what is to be set, in this process only. What the proxy sends on is
/// then seen to arrive, also when it is what the frame had before. Gives the frame as it will be.
frame_bytes expect_change(std::span<const HeartBeatPair> pairs) {
    const int count = static_cast<int>(pairs.size());
    (void)hbmgr_set_hb(pairs.data(), count); // always 0
    const frame_bytes wanted = own_frame();
    std::vector<HeartBeatPair> others{pairs.begin(), pairs.end()};
    for (HeartBeatPair &each : others) {
        each.value = ~each.value;
    }
    (void)hbmgr_set_hb(others.data(), count);
    return wanted;
}

bool has(const frame_bytes &frame, const frame_bytes &wanted, std::span<const HeartBeatPair> pairs) {
    return std::all_of(pairs.begin(), pairs.end(), [&](const HeartBeatPair &each) {
        return value_in(frame, each.field) == value_in(wanted, each.field);
    });
}

void warn_of_cut_values(std::span<const HeartBeatPair> pairs, const frame_bytes &wanted) {
    for (const HeartBeatPair &each : pairs) {
        const unsigned kept = value_in(wanted, each.field);
        if (static_cast<unsigned>(each.value) != kept && each.value >= 0) {
            fmt::print(stderr, "vexa: {} keeps {} bits of {}: {}\n", field_name(each.field),
                       width_of(each.field), each.value, kept);
        }
    }
}

void print_set(const hb_set_options &options, const frame_bytes &wanted, bool sent_on) {
    ordered_json fields;
    std::string text;
    for (const HeartBeatPair &each : options.pairs) {
        fields[field_name(each.field)] = value_in(wanted, each.field);
        text += fmt::format(" {}={}", field_name(each.field), value_in(wanted, each.field));
    }
    if (options.json) {
        say(ordered_json{{"event", "set"}, {"fields", fields}, {"sent_on", sent_on}}.dump());
    } else if (sent_on) {
        say(fmt::format("set{}; the proxy has sent it on to every active node", text));
    }
}

/// Those of the fields that write a member whose name is not its own in capitals: "LED".
std::string writers_text(const frame_member &member) {
    std::string text;
    for (const hb_field_t &row : k_hb_fields) {
        const std::string name = field_name(row.field);
        if (formats::writes(row, member) && CLI::detail::to_lower(name) != member.name) {
            text += (text.empty() ? "" : ", ") + name;
        }
    }
    return text;
}

bool is_written(const frame_member &member) {
    return std::any_of(k_hb_fields.begin(), k_hb_fields.end(),
                       [&](const hb_field_t &row) { return formats::writes(row, member); });
}

/// Whether one of the fields that write it has been set since the node started.
bool was_set(const frame_member &member) {
    return std::any_of(k_hb_fields.begin(), k_hb_fields.end(), [&](const hb_field_t &row) {
        return formats::writes(row, member) && library_log::heartbeat_was_set(static_cast<size_t>(row.field));
    });
}

/// The frame of a node that joined for this, and what has been heard since.
class frame_view {
public:
    explicit frame_view(const hb_view_options &options) : options_(options), frame_(own_frame()) {
        for (const frame_member &each : formats::k_frame_members) {
            const bool wanted =
                std::find(options.members.begin(), options.members.end(), &each) != options.members.end();
            if (options.members.empty() || wanted) {
                shown_.push_back(&each);
            }
        }
    }

    /// Takes in what has come since the last time; gives the members that have. The library says of a field
    /// that it is set before it sets it: one that was said to be at the last look has its value by now.
    std::vector<const frame_member *> look() {
        const frame_bytes now = own_frame();
        std::vector<const frame_member *> news;
        for (const frame_member *member : shown_) {
            const bool changed = formats::read_member(now, *member) != value(*member);
            if (changed || (!heard_.contains(member) && announced_.contains(member))) {
                heard_.insert(member);
                news.push_back(member);
            } else if (was_set(*member)) {
                announced_.insert(member);
            }
        }
        frame_ = now;
        return news;
    }

    [[nodiscard]] bool all_heard() const { return heard_.size() == shown_.size(); }
    [[nodiscard]] unsigned value(const frame_member &member) const {
        return formats::read_member(frame_, member);
    }

    void print() const {
        if (options_.json) {
            print_json();
            return;
        }
        for (const frame_member *member : shown_) {
            const std::string writers = writers_text(*member);
            say(fmt::format("{:<28} {:>3}  {}{}", member->name, value(*member), state_of(*member),
                            writers.empty() ? "" : fmt::format("  (set by {})", writers)));
        }
        say(fmt::format(
            "{} of {} were heard since this node joined; nobody tells a node what was set before.",
            heard_.size(), shown_.size()));
    }

private:
    [[nodiscard]] const char *state_of(const frame_member &member) const {
        if (heard_.contains(&member)) {
            return "heard";
        }
        return is_written(member) ? "initial" : "initial; no field writes it";
    }

    void print_json() const {
        ordered_json members;
        for (const frame_member *member : shown_) {
            members[member->name] = {{"value", value(*member)}, {"heard", heard_.contains(member)}};
        }
        say(ordered_json{
            {"event", "frame"}, {"members", members}, {"bytes", hex_text({frame_.begin(), frame_.end()})}}
                .dump());
    }

    const hb_view_options &options_;
    frame_bytes frame_;
    std::vector<const frame_member *> shown_;
    std::set<const frame_member *> announced_; // by the library's log
    std::set<const frame_member *> heard_;
};

std::string time_text() {
    const auto now = std::chrono::system_clock::now();
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count();
    return fmt::format("{:%H:%M:%S}.{:03}", fmt::localtime(static_cast<std::time_t>(ms / 1000)), ms % 1000);
}

void print_change(const frame_view &view, const frame_member &member, bool in_json) {
    if (in_json) {
        say(ordered_json{{"event", "change"}, {"member", member.name}, {"value", view.value(member)}}.dump());
    } else {
        say(fmt::format("{}  {} = {}", time_text(), member.name, view.value(member)));
    }
}

} // namespace

int run_hb_set(const hb_set_options &options) {
    bus_node node{options.node};
    node.wait_registered();
    node.wait_active(PROXY_NODE_ID);
    const frame_bytes wanted = expect_change(options.pairs);
    warn_of_cut_values(options.pairs, wanted);
    const std::vector<uint8_t> payload = encode_pairs(options.pairs);
    if (vxmsg_send_general(PROXY_NODE_ID, MSTP_OPERATION_ON_HB, payload.data(),
                           static_cast<int>(payload.size())) != 0) {
        throw node_trouble("the library has refused the operation; --verbose shows its reason");
    }
    const bool sent_on = node.wait_until(after(options.node.timeout_s),
                                         [&] { return has(own_frame(), wanted, options.pairs); });
    print_set(options, wanted, sent_on);
    if (!sent_on) {
        fmt::print(stderr,
                   "vexa: sent to the proxy, which has not sent it on to this node (id {}) within {} s. It "
                   "sends to active nodes below 127; 'vexa doctor' looks for the cause.\n",
                   node.id(), options.node.timeout_s);
    }
    return sent_on ? k_ok : k_failed;
}

int run_hb_get(const hb_view_options &options) {
    frame_view view{options};
    bus_node node{options.node};
    node.wait_registered();
    try {
        (void)node.wait_until(after(options.listen_s), [&] {
            (void)view.look();
            return !options.members.empty() && view.all_heard();
        });
    } catch (const interrupted &) { // what was heard so far is shown
    }
    view.print();
    return options.members.empty() || view.all_heard() ? k_ok : k_failed;
}

int run_hb_watch(const hb_view_options &options) {
    frame_view view{options};
    bus_node node{options.node};
    node.wait_registered();
    view.print();
    uint64_t changes = 0;
    const auto look = [&] {
        for (const frame_member *member : view.look()) {
            ++changes;
            print_change(view, *member, options.json);
        }
        return options.count && changes >= *options.count;
    };
    try {
        const bool enough =
            node.wait_until(options.duration_s ? after(*options.duration_s) : clock::time_point::max(), look);
        return enough || !options.count ? k_ok : k_failed;
    } catch (const interrupted &) {
        return k_ok;
    }
}

} // namespace vexa
