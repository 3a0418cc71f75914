/** @file The subcommands "vexa hb set", "vexa hb get" and "vexa hb watch": the heartbeat frame. */
#ifndef VEXA_HB_COMMAND_H
#define VEXA_HB_COMMAND_H

#include "subcommand.h"

namespace vexa {

/** An add_subcommand. */
void add_hb_command(CLI::App &app, int &status);

} // namespace vexa

#endif
