/** @file The subcommand "vexa replay". */
#ifndef VEXA_REPLAY_COMMAND_H
#define VEXA_REPLAY_COMMAND_H

#include "subcommand.h"

namespace vexa {

/** An add_subcommand. */
void add_replay_command(CLI::App &app, int &status);

} // namespace vexa

#endif
