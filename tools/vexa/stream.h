/**
 * @file
 * One message, or a stream of them at a rate: how many, how fast, how long. The schedule is absolute, so that
 * a late message does not make the ones behind it late.
 *
 *     add_stream_options(*command, options->stream);
 *     const vexa::stream_result done = vexa::run_stream(options->stream, node, send_one);
 */
#ifndef VEXA_STREAM_H
#define VEXA_STREAM_H

#include "bus_node.h"
#include "subcommand.h"

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>

namespace vexa {

/** None given: one message. */
struct stream_options {
    std::optional<double> rate;       /**< [1/s]; 0: as fast as possible; not given: 10 */
    std::optional<uint64_t> count;    /**< messages */
    std::optional<double> duration_s; /**< [s] */
};

/** Adds --rate, --count and --duration. */
void add_stream_options(CLI::App &command, stream_options &options);

struct stream_result {
    uint64_t sent = 0;      /**< handed to the library, which took them */
    uint64_t refused = 0;   /**< refused by the library: the next hop is not active any more */
    uint64_t dropped = 0;   /**< of those sent, pushed out of the full transmit queue */
    double seconds = 0;     /**< from the first message to the end */
    bool was_ended = false; /**< by SIGINT or SIGTERM */

    [[nodiscard]] bool all_well() const { return refused == 0 && dropped == 0 && sent > 0; }
};

/** Sends one message; its number counts from 1. 0 when the library took it. */
using send_one = std::function<int(uint32_t number)>;

stream_result run_stream(const stream_options &options, bus_node &node, const send_one &send);

/** The result as the subcommands print it, with `what` in front; standard error says what was not well. */
void print_result(const stream_result &result, const nlohmann::ordered_json &what, const std::string &text,
                  bool in_json);

} // namespace vexa

#endif
