/**
 * @file
 * The words with which a user says which messages to show.
 *
 *     const vexa::message_filter wanted("from 9 and (type vio_cfg or family heartbeat)");
 *     if (wanted.matches(seen)) { ... }
 *
 * A filter is conditions, put together by "and", "or", "not" and parentheses; "and" may be left out. A
 * condition is a word, or a word and its values with commas between: any one of them will do.
 */
#ifndef VEXA_MESSAGE_FILTER_H
#define VEXA_MESSAGE_FILTER_H

#include "datagrams.h"
#include "decoder.h"

#include <functional>
#include <stdexcept>
#include <string>

namespace vexa {

/** A datagram and what has been read of it. */
struct seen_message {
    const udp_datagram &datagram;
    const formats::decoded &read;
};

/** Says what is wrong with a filter, and where. */
class filter_error : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

class message_filter {
public:
    /** Lets everything pass that is this system's. */
    message_filter() = default;

    /** @throws filter_error */
    explicit message_filter(const std::string &text);

    [[nodiscard]] bool matches(const seen_message &message) const;

    /** The grammar, for --help. */
    static const char *help();

private:
    std::function<bool(const seen_message &)> condition_;
};

/** The id of a node by its number or by any part of its name that follows "NODE_": "9", "vio", "broadcast".
 */
std::optional<uint16_t> node_id_of(const std::string &text);

/** "vio(3)", or only the number of a node without a name. */
std::string node_text(uint64_t id);

} // namespace vexa

#endif
