/** @file The subcommand "vexa doctor": looks for what is wrong with a bus. */
#ifndef VEXA_DOCTOR_COMMAND_H
#define VEXA_DOCTOR_COMMAND_H

#include "subcommand.h"

namespace vexa {

/** An add_subcommand. */
void add_doctor_command(CLI::App &app, int &status);

} // namespace vexa

#endif
