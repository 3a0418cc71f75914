/** @file The subcommand "vexa explain": whether and how a message would travel, and why. */
#ifndef VEXA_EXPLAIN_COMMAND_H
#define VEXA_EXPLAIN_COMMAND_H

#include "subcommand.h"

namespace vexa {

/** An add_subcommand. */
void add_explain_command(CLI::App &app, int &status);

} // namespace vexa

#endif
