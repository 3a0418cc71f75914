// The command line of "vexa send".
#include "send_command.h"

#include "user_message.h"

#include <memory>

namespace vexa {

void add_send_command(CLI::App &app, int &status) {
    CLI::App *command = app.add_subcommand(
        "send", "Sends a message, or a stream of them, to a node's callback or to all (joins the bus)");
    auto options = std::make_shared<message_options>();
    add_message_options(*command, *options);
    command->footer(
        std::string{k_node_help} +
        "\nA message counts as sent when the library took it; delivery is UDP's, and nothing is repeated.\n"
        "Exit status: 0 all were sent (or Ctrl-C ended the stream), 1 the node was not accepted, the "
        "destination was not active in time, or messages were refused or dropped, 2 wrong usage.\n\n"
        "Example: hello to node 5\n"
        "  vexa send --to 5 --text hello\n"
        "Example: 1000 messages of 256 bytes to node 9 (NODE_DETECTION_TRACKING), 200 a second\n"
        "  vexa send --to detection_tracking --size 256 --rate 200 --count 1000\n"
        "Example: three bytes to every active node below 119, for a script\n"
        "  vexa send --broadcast --hex '01 02 ff' --json");
    command->callback([options, command, &status] {
        if (!options->broadcast && command->count("--to") == 0) {
            throw CLI::RequiredError("--to or --broadcast");
        }
        status = run_messages(*options);
    });
}

} // namespace vexa
