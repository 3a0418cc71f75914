/** @file The subcommand "vexa echo". */
#ifndef VEXA_ECHO_COMMAND_H
#define VEXA_ECHO_COMMAND_H

#include "subcommand.h"

namespace vexa {

/** An add_subcommand. */
void add_echo_command(CLI::App &app, int &status);

} // namespace vexa

#endif
