// The command line of the node manager.
#include "manager_command.h"

#include "manager_server.h"

#include <memory>

namespace vexa {

void add_manager_command(CLI::App &app, int &status) {
    CLI::App *command = app.add_subcommand(
        "manager", "Runs the node manager (node 0): registers nodes, tells every node where the others are");
    auto options = std::make_shared<manager_options>();
    command->add_option("--bind", options->bind, "IPv4 address to receive on; 0.0.0.0 for all")
        ->check(CLI::ValidIPV4)
        ->capture_default_str();
    command->add_option("--port", options->port, "UDP port to receive on")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    command->add_option("--keep-alive", options->keep_alive_s, "period of the nodes' keep-alives in seconds")
        ->check(CLI::Range(0.01, 86400.0))
        ->capture_default_str();
    command->add_option("--missed", options->missed, "missed keep-alives after which a node is lost")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    CLI::Option *quiet = command->add_flag_callback(
        "--quiet", [options] { options->style = manager_style::quiet; },
        "only refusals, failures and the summary");
    command
        ->add_flag_callback(
            "--json", [options] { options->style = manager_style::json; },
            "one JSON object a line, for each change, refusal and the summary")
        ->excludes(quiet);
    command->footer(
        "\nWhile a node is active, its id is refused to every other address; the output says so.\n"
        "Ends with a summary on SIGINT (Ctrl-C) and SIGTERM.\n"
        "As a service it is of Type=notify: READY=1 goes to NOTIFY_SOCKET once it receives.\n\n"
        "Example: a manager on a machine that has the address 192.168.1.1\n"
        "  vexa manager\n"
        "Example: the same for a program to read, on every address of the machine\n"
        "  vexa manager --bind 0.0.0.0 --json");
    command->callback([options, &status] { status = run_manager(*options); });
}

} // namespace vexa
