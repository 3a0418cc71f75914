/**
 * @file
 * What a subcommand of the program vexa is: a function that adds it, with its options, help and an example,
 * to the command line, and hangs its work on the command's callback. The function stands in the command's
 * own files; the table in main.cpp names it.
 *
 *     void add_manager(CLI::App &app, int &status) {
 *         CLI::App *command = app.add_subcommand("manager", "Runs the node manager of a bench");
 *         command->footer("Example:\n  vexa manager --json");
 *         auto options = std::make_shared<manager_options>();
 *         command->add_option("--port", options->port, "UDP port")->capture_default_str();
 *         command->callback([options, &status] { status = run_manager(*options); });
 *     }
 */
#ifndef VEXA_SUBCOMMAND_H
#define VEXA_SUBCOMMAND_H

#include <CLI/CLI.hpp>

namespace vexa {

/** What the program says to its caller. */
enum exit_status {
    k_ok = 0,     /**< done, or ended as asked by SIGINT or SIGTERM */
    k_failed = 1, /**< could not do what was asked; standard error says why */
    k_usage = 2   /**< the command line makes no sense */
};

/**
 * Adds one subcommand.
 * @param app    the program's command line
 * @param status receives the exit status from the subcommand's callback; outlives `app`
 */
using add_subcommand = void (*)(CLI::App &app, int &status);

} // namespace vexa

#endif
