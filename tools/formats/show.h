/**
 * @file
 * What has been read, as text.
 *
 *     formats::text_of(*read.find("msg_type")); // "MSTP_NODE_MGR (2)"
 */
#ifndef FORMATS_SHOW_H
#define FORMATS_SHOW_H

#include "decoder.h"

#include <string>

namespace formats {

/** The name of a value; of several bits their names with '|' between; "" when there is none. */
std::string value_name_of(const name_table &names, int64_t value);

/** The same for what was read. */
std::string value_name_of(const node &n);

/** A number as the field shows it: "24122", "0x5e3a". Signed where the field is. */
std::string number_text(const field &f, uint64_t raw);

/**
 * The value alone: a number, a float in the fewest digits that read back as the same, text up to its NUL with
 * everything unprintable as "\x1b", bytes as hex. "" for a repeated block.
 */
std::string value_text(const node &n);

/** Name and value for people: "MSTP_NODE_MGR (2)"; without a name only the value. */
std::string text_of(const node &n);

/** Where the dissector has it: "vexamsg.node.port". "" for a repeated block. */
std::string key_of(const node &n);

/** A float's shortest text. */
std::string float_text(uint64_t bits);

std::string hex_text(std::span<const uint8_t> bytes);

} // namespace formats

#endif
