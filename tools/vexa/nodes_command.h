/** @file The subcommand "vexa nodes". */
#ifndef VEXA_NODES_COMMAND_H
#define VEXA_NODES_COMMAND_H

#include "subcommand.h"

namespace vexa {

/** An add_subcommand. */
void add_nodes_command(CLI::App &app, int &status);

} // namespace vexa

#endif
