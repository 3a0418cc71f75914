// The program vexa: the other ends of the bus, for a desk without an aircraft. Each subcommand stands in
// files of its own; this one knows their names only.
#include "doctor_command.h"
#include "echo_command.h"
#include "explain_command.h"
#include "hb_command.h"
#include "help_command.h"
#include "link_command.h"
#include "manager_command.h"
#include "nodes_command.h"
#include "record_command.h"
#include "replay_command.h"
#include "send_command.h"
#include "status_command.h"
#include "subcommand.h"
#include "top_command.h"

#include <exception>
#include <fmt/core.h>
#include <vector>

namespace {

using vexa::add_subcommand;

/// A new subcommand is one row here and one line in CMakeLists.txt.
const std::vector<add_subcommand> &subcommands() {
    static const std::vector<add_subcommand> all = {
        vexa::add_manager_command, vexa::add_flight_command, vexa::add_camera_command,
        vexa::add_send_command,    vexa::add_status_command, vexa::add_hb_command,
        vexa::add_nodes_command,   vexa::add_top_command,    vexa::add_echo_command,
        vexa::add_record_command,  vexa::add_replay_command, vexa::add_doctor_command,
        vexa::add_explain_command, vexa::add_man_command,    vexa::add_completion_command,
    };
    return all;
}

int run(int argc, char **argv) {
    int status = vexa::k_ok;
    CLI::App app{"The other ends of the vision computer's message bus, for a bench without an aircraft.",
                 "vexa"};
    app.set_version_flag("--version", "vexa " VEXA_VERSION);
    app.footer("Exit status: 0 done, 1 failed, 2 wrong usage.\n'vexa SUBCOMMAND --help' shows a subcommand's "
               "options and an example.");
    app.require_subcommand(1);
    for (const add_subcommand add : subcommands()) {
        add(app, status);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &stop) {
        return app.exit(stop) == 0 ? vexa::k_ok : vexa::k_usage; // asking for help is no error
    }
    return status;
}

} // namespace

int main(int argc, char **argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception &failure) {
        fmt::print(stderr, "vexa: {}\n", failure.what());
        return vexa::k_failed;
    }
}
