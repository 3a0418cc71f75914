/** @file The options that all subcommands have that join the bus as a node. */
#ifndef VEXA_NODE_OPTIONS_H
#define VEXA_NODE_OPTIONS_H

#include "bus_node.h"
#include "subcommand.h"

namespace vexa {

/** Adds --id, --name, --ip, --timeout and --verbose. */
void add_node_options(CLI::App &command, node_options &options);

/** What their help says about joining the bus. */
extern const char *const k_node_help;

} // namespace vexa

#endif
