// The command lines of "vexa status".
#include "status_command.h"

#include "status_receiver.h"
#include "user_message.h"

#include "named_value.h"

#include <memory>

namespace vexa {
namespace {

void add_send(CLI::App &parent, int &status) {
    CLI::App *command = parent.add_subcommand(
        "send", "Sends a status, or a stream of them, to a node or to all (joins the bus)");
    auto options = std::make_shared<message_options>();
    options->kind = MSTP_USER_DATA_OVER_WRITE;
    add_named(*command, "--type", options->type, k_type_names, "what the status is about")->required();
    add_message_options(*command, *options);
    command->footer(
        std::string{k_node_help} +
        "\nThe type is sent as the first two bytes, before the payload. The receiver keeps the newest status "
        "of each type and gets it with vision_recv_status.\n"
        "Exit status: as of 'vexa send'.\n\n"
        "Example: a MSG_VIO_CFG to node 5\n"
        "  vexa status send --type vio_cfg --to 5 --hex 0102\n"
        "Example: the same to all nodes below 119, ten times a second for a minute\n"
        "  vexa status send --type vio_cfg --broadcast --hex 0102 --rate 10 --duration 60");
    command->callback([options, command, &status] {
        if (!options->broadcast && command->count("--to") == 0) {
            throw CLI::RequiredError("--to or --broadcast");
        }
        status = run_messages(*options);
    });
}

void add_recv(CLI::App &parent, int &status) {
    CLI::App *command = parent.add_subcommand(
        "recv",
        "Waits for statuses of a type and prints them, as vision_recv_status gets them (joins the bus)");
    auto options = std::make_shared<status_receiver_options>();
    add_named(*command, "TYPE", options->type, k_type_names, "what the status is about")->required();
    command->add_option("--count", options->count, "end after so many")
        ->check(CLI::Range(uint64_t{1}, uint64_t{1} << 53))
        ->capture_default_str();
    command->add_option("--wait", options->wait_s, "seconds to wait for them, once registered")
        ->check(CLI::Range(0.01, 1e9))
        ->capture_default_str();
    command->add_flag("--json", options->json, "one JSON object a line");
    add_node_options(*command, options->node);
    command->footer(
        std::string{k_node_help} +
        "\nIt gets what is sent to its id, and what is broadcast by nodes with a higher id: join with the id "
        "that the sender has in mind, or see everything with 'vexa echo', which joins nothing. It looks "
        "every "
        "2 ms, so of statuses that follow each other faster it sees the newest.\n"
        "Exit status: 0 --count statuses came (or Ctrl-C), 1 they did not in time, or the node was not "
        "accepted, 2 wrong usage.\n\n"
        "Example: the next MSG_VIO_CFG that somebody sends to node 5, in whose place this stands\n"
        "  vexa status recv vio_cfg --id 5");
    command->callback([options, &status] { status = run_status_receiver(*options); });
}

} // namespace

void add_status_command(CLI::App &app, int &status) {
    CLI::App *command = app.add_subcommand(
        "status", "Sends statuses, or waits for them; a node keeps the newest of each type");
    command->require_subcommand(1);
    add_send(*command, status);
    add_recv(*command, status);
    command->footer("\nExample: a MSG_VIO_CFG to node 5\n"
                    "  vexa status send --type vio_cfg --to 5 --hex 0102");
}

} // namespace vexa
