/** @file The subcommands "vexa status send" and "vexa status recv": statuses, of which a node keeps the
 * newest. */
#ifndef VEXA_STATUS_COMMAND_H
#define VEXA_STATUS_COMMAND_H

#include "subcommand.h"

namespace vexa {

/** An add_subcommand. */
void add_status_command(CLI::App &app, int &status);

} // namespace vexa

#endif
