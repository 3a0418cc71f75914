// What `vexa top --json` says. See top_screen.h.
#include "top_screen.h"

#include "formats.h"
#include "show.h"

#include <nlohmann/json.hpp>

namespace vexa {
namespace {

using nlohmann::ordered_json;

ordered_json number_or_null(const std::optional<rate> &of, double rate::*which) {
    return of ? ordered_json(*of.*which) : ordered_json();
}

ordered_json json_of(const flow_row &row) {
    const bool by_id = row.sample->read.wire == &formats::k_route;
    ordered_json one = {{"from", row.names.from}, {"to", row.names.to}};
    if (by_id) {
        one["src"] = row.key.src;
        one["dst"] = row.key.dst;
        one["kind"] = row.key.kind;
    }
    one["family"] = formats::name_of(row.sample->read.kin());
    one["message"] = row.sample->read.name();
    if (row.key.type >= 0) {
        one["type"] = row.key.type;
        const std::string name = formats::value_name_of(formats::k_msg_types, row.key.type);
        one["type_name"] = name.empty() ? ordered_json() : ordered_json(name);
    }
    one["damage"] = row.names.damage.empty() ? ordered_json() : ordered_json(row.names.damage);
    one["messages"] = row.messages;
    one["bytes"] = row.bytes;
    one["messages_per_s"] = number_or_null(row.per_second, &rate::messages);
    one["bytes_per_s"] = number_or_null(row.per_second, &rate::bytes);
    one["first_ns"] = row.first_ns;
    one["last_ns"] = row.last_ns;
    return one;
}

ordered_json json_of(const node_socket &each) {
    return {{"node_id", each.node_id}, {"socket", to_text(each.local)},
            {"process", each.holder},  {"waiting_bytes", each.waiting_bytes},
            {"drops", each.drops},     {"new_drops", each.new_drops}};
}

} // namespace

std::string top_json(const top_numbers &numbers, const top_look &look) {
    ordered_json all = {
        {"event", "top"},
        {"source", numbers.source},
        {"now_ns", numbers.now_ns},
        {"capture", {{"received", numbers.capture.received}, {"dropped", numbers.capture.dropped}}},
        {"forgotten_flows", numbers.forgotten},
        {"flows", ordered_json::array()},
        {"sockets", ordered_json::array()}};
    for (const flow_row &row : chosen(numbers.flows, look)) {
        all["flows"].push_back(json_of(row));
    }
    for (const node_socket &each : numbers.sockets) {
        all["sockets"].push_back(json_of(each));
    }
    return all.dump();
}

} // namespace vexa
