// Streams of messages. See stream.h.
#include "stream.h"

#include "library_log.h"

#include <algorithm>
#include <fmt/core.h>
#include <limits>

namespace vexa {
namespace {

using clock = bus_node::clock;

constexpr double k_usual_rate = 10;

clock::duration seconds(double s) {
    return std::chrono::duration_cast<clock::duration>(std::chrono::duration<double>(s));
}

/// Without a bound of its own a stream with a rate goes on until it is ended.
uint64_t most_messages(const stream_options &options) {
    const bool endless = options.duration_s || options.rate;
    return options.count.value_or(endless ? std::numeric_limits<uint32_t>::max() : 1);
}

} // namespace

void add_stream_options(CLI::App &command, stream_options &options) {
    command.add_option("--count", options.count, "send so many messages (default: 1)")
        ->check(CLI::Range(uint64_t{1}, uint64_t{std::numeric_limits<uint32_t>::max()}))
        ->type_name("N");
    command
        .add_option(
            "--rate", options.rate,
            "messages a second of a stream (default: 10); 0: as fast as possible. Without --count and "
            "--duration it goes on until Ctrl-C")
        ->check(CLI::Range(0.0, 1e6))
        ->type_name("HZ");
    command.add_option("--duration", options.duration_s, "send for so many seconds")
        ->check(CLI::Range(0.001, 1e9))
        ->type_name("S");
}

stream_result run_stream(const stream_options &options, bus_node &node, const send_one &send) {
    const double rate = options.rate.value_or(k_usual_rate);
    const uint64_t most = most_messages(options);
    const uint64_t drops_before = library_log::queue_drops();
    const auto start = clock::now();
    const auto end = options.duration_s ? start + seconds(*options.duration_s) : clock::time_point::max();
    stream_result result;
    for (uint64_t number = 1; number <= most; ++number) {
        const auto due = rate > 0 ? start + seconds(static_cast<double>(number - 1) / rate) : start;
        if (due >= end || (due == start && clock::now() >= end)) {
            result.was_ended = node.sleep_until(end); // lasts as long as it was asked to
            break;
        }
        if (node.sleep_until(due)) {
            result.was_ended = true;
            break;
        }
        ++(send(static_cast<uint32_t>(number)) == 0 ? result.sent : result.refused);
    }
    result.seconds = std::chrono::duration<double>(clock::now() - start).count();
    result.dropped = library_log::queue_drops() - drops_before;
    return result;
}

void print_result(const stream_result &result, const nlohmann::ordered_json &what, const std::string &text,
                  bool in_json) {
    if (in_json) {
        nlohmann::ordered_json line = what;
        line["sent"] = result.sent;
        line["refused"] = result.refused;
        line["dropped"] = result.dropped;
        line["seconds"] = result.seconds;
        fmt::print("{}\n", line.dump());
    } else {
        fmt::print("{}: {} message{} in {:.3f} s\n", text, result.sent, result.sent == 1 ? "" : "s",
                   result.seconds);
    }
    if (result.refused > 0) {
        fmt::print(stderr, "vexa: {} messages were refused: the next hop was not active any more\n",
                   result.refused);
    }
    if (result.dropped > 0) {
        fmt::print(stderr,
                   "vexa: {} messages were pushed out of the library's full transmit queue and never sent; "
                   "choose a lower --rate\n",
                   result.dropped);
    }
}

} // namespace vexa
