// The command line of "vexa explain".
#include "explain_command.h"

#include "named_value.h"
#include "route_explanation.h"

#include <algorithm>
#include <fmt/core.h>
#include <memory>
#include <nlohmann/json.hpp>

namespace vexa {
namespace {

using nlohmann::ordered_json;

struct explain_options {
    route_question question;
    table_options table;
    bool json = false;
};

std::string destination_text(uint16_t to) {
    return to == VX_MSG_BROADCAST ? "broadcast" : named(k_node_names, to);
}

void print_json(const explain_options &options, const known_table &table, const route_answer &answer) {
    const route_question &question = options.question;
    ordered_json line = {{"event", "explanation"}, {"from", question.from}};
    if (question.to == VX_MSG_BROADCAST) {
        line["to"] = "broadcast";
    } else {
        line["to"] = question.to;
    }
    line["travels"] = answer.travels;
    line["next_hop"] = answer.next_hop ? ordered_json(*answer.next_hop) : ordered_json();
    line["reached"] = answer.reached;
    line["missed"] = ordered_json::array();
    for (const missed_node &each : answer.missed) {
        line["missed"].push_back({{"node_id", each.id}, {"why", each.why}});
    }
    line["reasons"] = answer.reasons;
    line["table"] = table.from;
    fmt::print("{}\n", line.dump());
}

void print_text(const explain_options &options, const known_table &table, const route_answer &answer) {
    fmt::print("{} -> {}: {}\n", named(k_node_names, options.question.from),
               destination_text(options.question.to), answer.travels ? "travels" : "does not travel");
    for (const std::string &reason : answer.reasons) {
        fmt::print("  - {}\n", reason);
    }
    const auto active = std::count_if(table.nodes.begin(), table.nodes.end(),
                                      [](const vexa_node_t &each) { return each.stat == NODE_STAT_ACTIVED; });
    fmt::print("The table was {}: {} nodes, {} active.\n", table.from, table.nodes.size(), active);
}

int run_explain(const explain_options &options) {
    const known_table table = get_table(options.table);
    const route_answer answer = explain_route(table, options.question);
    if (options.json) {
        print_json(options, table, answer);
    } else {
        print_text(options, table, answer);
    }
    return answer.travels ? k_ok : k_failed;
}

void add_destination(CLI::App &command, uint16_t &to) {
    const auto take = [&to](const std::string &text) {
        const auto found =
            text == "broadcast" ? std::optional<uint16_t>{VX_MSG_BROADCAST} : find_value(k_node_names, text);
        if (!found) {
            throw CLI::ValidationError("'" + text + "' is neither 'broadcast' nor a node");
        }
        to = *found;
    };
    command.add_option_function<std::string>("--to", take, "destination, or 'broadcast'")
        ->type_name("NODE|broadcast")
        ->required();
}

} // namespace

void add_explain_command(CLI::App &app, int &status) {
    CLI::App *command = app.add_subcommand(
        "explain", "Says whether and how a message would travel, as the library decides it");
    auto options = std::make_shared<explain_options>();
    add_named(*command, "--from", options->question.from, k_node_names, "sender", PROXY_NODE_ID)->required();
    add_destination(*command, options->question.to);
    command->add_option("--size", options->question.size, "payload of the message in bytes")
        ->type_name("BYTES");
    add_table_options(*command, options->table);
    command->add_flag("--json", options->json, "the answer as one JSON object");
    command->footer(
        "\nSends nothing, unless --ask is given: it overhears a message of the node manager, each of which "
        "has the whole table, and hands that table to the library's own functions. What a node's own table "
        "says can be older by the messages that it has missed.\n"
        "Exit status: 0 it would travel, 1 it would not, or reach nobody, or there is no table, 2 wrong "
        "usage.\n\n"
        "Example: from node 5 to the app, which is behind the proxy\n"
        "  vexa explain --from 5 --to 64001\n"
        "Example: whom does a broadcast of node 9 reach, for a script, with a table from before\n"
        "  vexa explain --from 9 --to broadcast --table manager.json --json");
    command->callback([options, &status] {
        if (options->question.from == VX_NODE_MANAGER_ID) {
            throw CLI::ValidationError(
                "--from: the node manager routes nothing; a sender has an id of 1 to 127");
        }
        status = run_explain(*options);
    });
}

} // namespace vexa
