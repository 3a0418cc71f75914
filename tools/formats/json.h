/**
 * @file
 * What has been read, as JSON. Numbers are JSON numbers, a float the shortest one that reads back as the same
 * float, or a string when it is no number; runs of bytes are hex text.
 */
#ifndef FORMATS_JSON_H
#define FORMATS_JSON_H

#include "decoder.h"

#include <nlohmann/json.hpp>

namespace formats {

/** The value of one field; an array of the values of one with elements. */
nlohmann::ordered_json json_of(const node &n);

/**
 * All fields in their order: a member each, behind it, where the value has a name, another with "_name"
 * added, and where it has bits, one with "_bits". Blocks that repeat are objects in an array, "nodes".
 */
nlohmann::ordered_json json_of(const std::vector<node> &fields);

} // namespace formats

#endif
