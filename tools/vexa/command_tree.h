/**
 * @file
 * The program's command line as a tree that can be walked: what the completion and the man pages are made
 * from, so that neither can fall behind the help.
 *
 *     for (const vexa::command_node &each : vexa::all_commands(app)) { fmt::print("{}\n", each.path); }
 */
#ifndef VEXA_COMMAND_TREE_H
#define VEXA_COMMAND_TREE_H

#include "subcommand.h"

#include <string>
#include <vector>

namespace vexa {

struct option_view {
    std::vector<std::string> names; /**< "--to", "-h"; of a positional its one name */
    bool positional = false;
    bool takes_value = false;
    bool required = false;
    std::string type;          /**< "FILE", "NODE"; empty for a flag */
    std::string default_value; /**< empty: none is told */
    std::string about;
};

struct command_node {
    std::string path; /**< "vexa hb set" */
    std::string about;
    std::string footer;
    std::vector<option_view> options;  /**< in the order of the help */
    std::vector<std::string> children; /**< names of its subcommands */
};

/** The program itself and every subcommand that the help shows, each before those below it. */
std::vector<command_node> all_commands(const CLI::App &app);

} // namespace vexa

#endif
