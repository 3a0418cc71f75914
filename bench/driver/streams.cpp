// Streams at a fixed pace.
#include "pair_group.h"
#include "sections.h"

#include <array>
#include <fmt/core.h>
#include <fstream>
#include <sstream>

namespace bench {
namespace {

constexpr auto k_paces = std::to_array<uint32_t>({1'000, 10'000, 50'000}); // [messages/s]
constexpr size_t k_size = 64;                                              // [bytes]

/// Datagrams that the system has dropped because a receiver's socket was full, since the network was made.
uint64_t dropped_at_sockets() {
    std::ifstream file{"/proc/self/net/snmp"};
    std::string names;
    std::string values;
    while (std::getline(file, names) && std::getline(file, values)) {
        std::istringstream name{names};
        std::istringstream value{values};
        std::string title;
        std::string number;
        while (name >> title && value >> number) {
            if (names.starts_with("Udp:") && title == "RcvbufErrors") {
                return std::stoull(number);
            }
        }
    }
    return 0;
}

/// Where messages were lost, as far as it is known.
std::string cause(const std::string &contender, uint64_t lost, uint64_t at_sockets, uint64_t in_queue) {
    std::string text;
    const auto add = [&text](uint64_t count, const char *where) {
        if (count > 0) {
            text += fmt::format("{}{} {}", text.empty() ? "" : ", ", count, where);
        }
    };
    add(std::min(lost, at_sockets), "at a full socket");
    add(std::min(lost, in_queue), "dropped by the full transmit queue");
    const uint64_t rest = lost - std::min(lost, at_sockets + in_queue);
    add(rest,
        contender == "vision_send_status" ? "replaced by a newer one before they were read" : "not known");
    return text;
}

} // namespace

void measure_streams(const settings &how, report &out) {
    pair_group group{how, false};
    for (const uint32_t pace : k_paces) {
        const uint32_t count = pace * static_cast<uint32_t>(how.stream_s);
        table filled{{"contender", "sent", "lost", "cause", "p50 [µs]", "p99 [µs]", "CPU per message [µs]"}};
        for (auto &[contender, pair] : group.pairs()) {
            const uint64_t at_sockets = dropped_at_sockets();
            const uint64_t in_queue = pair->dropped_by_queue();
            const double cpu = pair->stream(k_size, pace, count);
            const percentiles arrived = pair->arrivals();
            const uint64_t lost = count - std::min<uint64_t>(count, arrived.samples);
            filled.add({fmt::format("`{}`", contender), std::to_string(count), std::to_string(lost),
                        cause(contender, lost, dropped_at_sockets() - at_sockets,
                              pair->dropped_by_queue() - in_queue),
                        microseconds(arrived.p50_ns), microseconds(arrived.p99_ns), microseconds(cpu)});
        }
        out.heading(fmt::format("Stream of {} messages/s, {} B, one core", pace, k_size));
        out.paragraph("Time on the way, from the call that sends to the receiver's callback.");
        out.add(filled);
    }
}

} // namespace bench
