/** @file The subcommand "vexa record". */
#ifndef VEXA_RECORD_COMMAND_H
#define VEXA_RECORD_COMMAND_H

#include "subcommand.h"

namespace vexa {

/** An add_subcommand. */
void add_record_command(CLI::App &app, int &status);

} // namespace vexa

#endif
