/** @file The subcommands "vexa man" and "vexa completion", made from the command line itself. */
#ifndef VEXA_HELP_COMMAND_H
#define VEXA_HELP_COMMAND_H

#include "subcommand.h"

namespace vexa {

/** An add_subcommand. */
void add_man_command(CLI::App &app, int &status);

/** An add_subcommand. */
void add_completion_command(CLI::App &app, int &status);

} // namespace vexa

#endif
