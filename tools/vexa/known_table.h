/**
 * @file
 * The node table for commands that reason about it: read from a file, overheard from the node manager's
 * messages, or asked for by joining the bus.
 *
 *     const vexa::known_table table = vexa::read_table("table.json");
 */
#ifndef VEXA_KNOWN_TABLE_H
#define VEXA_KNOWN_TABLE_H

#include "bus_listener.h"
#include "bus_node.h"
#include "subcommand.h"

#include <optional>
#include <string>
#include <vector>

namespace vexa {

struct known_table {
    std::vector<vexa_node_t> nodes; /**< as the node manager knows them, active or not, texts ended */
    std::string from;               /**< "overheard from the node manager", for people */

    /** Nothing for an id that is not in it. */
    [[nodiscard]] std::optional<vexa_node_t> find(uint16_t id) const;
};

/** Where a table is to come from: the first of them that is given. */
struct table_options {
    std::string file; /**< "-": standard input */
    bool ask = false; /**< join the bus for a moment */
    listen_options listen;
    node_options node;
};

/** Adds --table, --ask, --timeout, --listen and --interface. */
void add_table_options(CLI::App &command, table_options &options);

/**
 * @throws node_trouble when it cannot be had; the text says why and what to do
 * @throws capture_error when listening is not allowed
 */
known_table get_table(const table_options &options);

/**
 * Reads what `vexa manager --json` has printed, of which the last table counts, or one JSON object with
 * "nodes".
 * @throws std::runtime_error when there is none in it
 */
known_table parse_table(const std::string &text, const std::string &from);

/** The table of a node that has registered. */
known_table table_of_node();

} // namespace vexa

#endif
