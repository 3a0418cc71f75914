/** @file Manual pages made from the help of the subcommands. */
#ifndef VEXA_MAN_PAGE_H
#define VEXA_MAN_PAGE_H

#include "command_tree.h"

namespace vexa {

/** The page of one command, for man(1). Of its footer the lines that begin with "Example:" and what is
 * indented behind them become examples, "Exit status:" a section of its own. */
std::string man_page(const command_node &command);

/** "vexa-hb-set.1" */
std::string man_page_file(const command_node &command);

} // namespace vexa

#endif
