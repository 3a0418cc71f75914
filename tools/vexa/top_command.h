/** @file The subcommand "vexa top". */
#ifndef VEXA_TOP_COMMAND_H
#define VEXA_TOP_COMMAND_H

#include "subcommand.h"

namespace vexa {

/** An add_subcommand. */
void add_top_command(CLI::App &app, int &status);

} // namespace vexa

#endif
