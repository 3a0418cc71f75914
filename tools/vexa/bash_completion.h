/** @file The completion of the program's command line in bash, made from the command line itself. */
#ifndef VEXA_BASH_COMPLETION_H
#define VEXA_BASH_COMPLETION_H

#include "command_tree.h"

namespace vexa {

/** A script that bash reads: `source <(vexa completion bash)`. */
std::string bash_completion(const std::vector<command_node> &commands);

} // namespace vexa

#endif
