/** @file The subcommand "vexa send": a message, or a stream of them, to the callbacks of nodes. */
#ifndef VEXA_SEND_COMMAND_H
#define VEXA_SEND_COMMAND_H

#include "subcommand.h"

namespace vexa {

/** An add_subcommand. */
void add_send_command(CLI::App &app, int &status);

} // namespace vexa

#endif
