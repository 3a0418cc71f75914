// The command lines of "vexa hb".
#include "hb_command.h"

#include "hb_node.h"
#include "heartbeat_frame.h"
#include "named_value.h"
#include "node_options.h"

#include <memory>
#include <stdexcept>

namespace vexa {
namespace {

constexpr int k_most_pairs = 1022; // a receiver applies no more

void add_set(CLI::App &parent, int &status) {
    CLI::App *command = parent.add_subcommand(
        "set", "Sets fields on all nodes, by way of the proxy, and waits until it is done (joins the bus)");
    auto options = std::make_shared<hb_set_options>();
    const auto take = [options](const std::vector<std::string> &texts) {
        for (const std::string &text : texts) {
            try {
                options->pairs.push_back(parse_pair(text));
            } catch (const std::invalid_argument &wrong) {
                throw CLI::ValidationError(wrong.what());
            }
        }
    };
    command
        ->add_option_function<std::vector<std::string>>("PAIR", take,
                                                        "FIELD=VALUE; a field by name or number")
        ->required()
        ->expected(1, k_most_pairs)
        ->type_name("FIELD=VALUE");
    command->add_flag("--json", options->json, "the result as one JSON object");
    add_node_options(*command, options->node);
    command->footer(
        std::string{k_node_help} +
        "\nA field keeps as many low bits of a value as it is wide; standard error says when that is another "
        "number.\n"
        "Exit status: 0 the proxy has sent it on (this node has had it back), 1 it has not in time, or there "
        "is no proxy, or the node was not accepted, 2 wrong usage.\n\n"
        "Example: the work mode and the rate of VIO in one operation\n"
        "  vexa hb set WORK_MODE=3 VIO_RATE=30");
    command->callback([options, &status] { status = run_hb_set(*options); });
}

/// The members that a text stands for: one by its own name, or those that a field writes.
std::vector<const formats::frame_member *> members_of(const std::string &text) {
    std::vector<const formats::frame_member *> found;
    const auto field = find_value(k_field_names, text);
    for (const formats::frame_member &each : formats::k_frame_members) {
        if (text ==
            each.name) { // before a field's, of which some are the same but for the case, and write another
            return {&each};
        }
        if (field && formats::writes(k_hb_fields.at(*field), each)) {
            found.push_back(&each);
        }
    }
    return found;
}

void add_members(CLI::App &command, hb_view_options &options) {
    const auto take = [&options](const std::vector<std::string> &texts) {
        for (const std::string &text : texts) {
            const auto found = members_of(text);
            if (found.empty()) {
                throw CLI::ValidationError("there is no heartbeat field or member '" + text + "'");
            }
            options.members.insert(options.members.end(), found.begin(), found.end());
        }
    };
    command
        .add_option_function<std::vector<std::string>>("FIELD", take,
                                                       "only these: fields or members of the frame")
        ->type_name("FIELD");
}

void add_get(CLI::App &parent, int &status) {
    CLI::App *command =
        parent.add_subcommand("get", "Listens for a while, then prints the frame by name (joins the bus)");
    auto options = std::make_shared<hb_view_options>();
    add_members(*command, *options);
    command->add_option("--listen", options->listen_s, "seconds to listen for what is set, once registered")
        ->check(CLI::Range(0.0, 1e9))
        ->capture_default_str();
    command->add_flag("--json", options->json, "the frame as one JSON object");
    add_node_options(*command, options->node);
    command->footer(
        std::string{k_node_help} +
        "\nA node that joins has the initial frame and learns only what is set from then on: there is no way "
        "to ask for the rest. Each member is marked as heard or as initial, which is not heard.\n"
        "Exit status: 0 printed, and every FIELD that was asked for was heard, 1 one was not, or the node "
        "was "
        "not accepted, 2 wrong usage.\n\n"
        "Example: everything that is set within five seconds\n"
        "  vexa hb get --listen 5\n"
        "Example: the work mode, as soon as somebody sets it\n"
        "  vexa hb get WORK_MODE --listen 60 --json");
    command->callback([options, &status] { status = run_hb_get(*options); });
}

void add_watch(CLI::App &parent, int &status) {
    CLI::App *command =
        parent.add_subcommand("watch", "Prints the frame by name, then every change of it (joins the bus)");
    auto options = std::make_shared<hb_view_options>();
    add_members(*command, *options);
    command->add_option("--count", options->count, "end after so many changes")
        ->check(CLI::Range(uint64_t{1}, uint64_t{1} << 53));
    command->add_option("--duration", options->duration_s, "end after so many seconds")
        ->check(CLI::Range(0.01, 1e9));
    command->add_flag("--json", options->json, "one JSON object a line: the frame, then each change");
    add_node_options(*command, options->node);
    command->footer(
        std::string{k_node_help} +
        "\nIt looks every 2 ms: of changes of a member that follow each other faster it sees the last. 'vexa "
        "echo' sees every operation.\n"
        "Exit status: 0 ended as asked (--count, --duration, Ctrl-C), 1 fewer than --count changes came in "
        "--duration, or the node was not accepted, 2 wrong usage.\n\n"
        "Example:\n"
        "  vexa hb watch\n"
        "Example: the next change of the work mode\n"
        "  vexa hb watch WORK_MODE --count 1");
    command->callback([options, &status] { status = run_hb_watch(*options); });
}

} // namespace

void add_hb_command(CLI::App &app, int &status) {
    CLI::App *command = app.add_subcommand("hb", "The heartbeat frame: sets fields, prints it, watches it");
    command->require_subcommand(1);
    add_set(*command, status);
    add_get(*command, status);
    add_watch(*command, status);
    command->footer("\nExample: the work mode on all nodes\n"
                    "  vexa hb set WORK_MODE=3");
}

} // namespace vexa
