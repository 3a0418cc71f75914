/** @file The subcommands "vexa flight" and "vexa camera". */
#ifndef VEXA_LINK_COMMAND_H
#define VEXA_LINK_COMMAND_H

#include "subcommand.h"

namespace vexa {

/** An add_subcommand. */
void add_flight_command(CLI::App &app, int &status);

/** An add_subcommand. */
void add_camera_command(CLI::App &app, int &status);

} // namespace vexa

#endif
