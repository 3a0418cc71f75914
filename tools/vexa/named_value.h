/**
 * @file
 * Numbers that people know by name: a node, a message type, a heartbeat field. Each is taken as a number or
 * by its name in the headers, in any case, with or without the prefix that all its kind share, and is shown
 * with its name.
 *
 *     vexa::add_named(*command, "--to", options->to, vexa::k_node_names, "destination");
 */
#ifndef VEXA_NAMED_VALUE_H
#define VEXA_NAMED_VALUE_H

#include "names.h"
#include "subcommand.h"

#include <cstdint>
#include <optional>
#include <string>

namespace vexa {

/** Where names come from, and what may stand for them. */
struct name_source {
    const char *what;                 /**< "node" */
    const char *type;                 /**< in the help, and for the completion: "NODE" */
    const formats::name_table &names; /**< of the formats */
    const char *prefix;               /**< that may be left out: "NODE_" */
    uint16_t largest;                 /**< number */
};

extern const name_source k_node_names;
extern const name_source k_type_names;
extern const name_source k_field_names;

/** The number that a text stands for. */
std::optional<uint16_t> find_value(const name_source &source, const std::string &text);

/** "5 (NODE_SOA)", or the number alone. */
std::string named(const name_source &source, uint16_t value);

/** The name alone; nothing when it has none. */
std::optional<std::string> name_of(const name_source &source, uint16_t value);

/** An option that takes such a number. @param largest  what it may be at most here */
CLI::Option *add_named(CLI::App &command, const std::string &option, uint16_t &value,
                       const name_source &source, const std::string &about, uint16_t largest = UINT16_MAX);

} // namespace vexa

#endif
