/** @file The subcommand "vexa manager". */
#ifndef VEXA_MANAGER_COMMAND_H
#define VEXA_MANAGER_COMMAND_H

#include "subcommand.h"

namespace vexa {

/** An add_subcommand. */
void add_manager_command(CLI::App &app, int &status);

} // namespace vexa

#endif
