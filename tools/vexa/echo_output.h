/**
 * @file
 * How `vexa echo` shows a message: a line for people, all its fields below it, a row of a table, or a JSON
 * object. What came from a datagram is shown only in characters that a terminal does not act on. Each line is
 * flushed as it is written.
 */
#ifndef VEXA_ECHO_OUTPUT_H
#define VEXA_ECHO_OUTPUT_H

#include "message_filter.h"

#include <string>
#include <vector>

namespace vexa {

enum class echo_style { text, csv, json };

class echo_output {
public:
    /**
     * @param fields  names of fields to show besides: "dst", "node.port"; a field of that name anywhere in a
     * message, or "all"
     */
    echo_output(echo_style style, std::vector<std::string> fields)
        : style_(style), fields_(std::move(fields)) {}

    /** The first line of a table. */
    void begin() const;
    void message(const seen_message &message) const;

private:
    [[nodiscard]] std::string text(const seen_message &message) const;
    [[nodiscard]] std::string csv(const seen_message &message) const;
    [[nodiscard]] bool is_wanted(const formats::node &n) const;
    [[nodiscard]] bool wants_all() const;

    echo_style style_;
    std::vector<std::string> fields_;
};

/** "detection_tracking(9) -> vio(3)": nodes on the routing bus, addresses elsewhere. */
std::string way_text(const seen_message &message);

/** One line for people, without time and addresses: "heartbeat_set  VIO_MODE=511  (note: ...)". */
std::string message_text(const seen_message &message);

/** Everything about a message; the members are named in docs and --help and do not change. */
std::string message_json(const seen_message &message);

/** Whether there is a field of that name in any message. */
bool is_field_name(const std::string &name);

} // namespace vexa

#endif
