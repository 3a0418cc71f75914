// The known lines of the log. See log_line.h.
#include "log_line.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace soak {
namespace {

struct known_line {
    log_line line;
    const char *name;
    const char *format; // as the library passes it
};

constexpr auto k_lines = std::to_array<known_line>({
    {log_line::too_short, "shorter than a header", "drop datagram of %d bytes, shorter than a header\n"},
    {log_line::wrong_magic, "wrong magic", "mgic check error\n"},
    {log_line::wrong_ids, "ids out of range", "node check  error, src %u, dst %u\n"},
    {log_line::irrelevant_kind, "unknown kind", "mgr server receive irreletive msg\n"},
    {log_line::status_cut_short, "status cut short", "drop msg of node %u, length %u, arrived %d\n"},
    {log_line::status_foreign, "status of no node", "msg src %u >= %u"},
    {log_line::record_skipped, "table record of no node", "skip record of node %u, not stored\n"},
    {log_line::field_unknown, "heartbeat marker", "set heartbeat, %d is a invalid field\n"},
    {log_line::field_senseless, "unknown heartbeat field", ""},
    {log_line::too_long, "long message", "msg too long %u\n"},
    {log_line::grown, "longer status than kept", "alloc another one\n"},
    {log_line::rx_overstocked, "receive queue full", "rxq overstocked, drop the oldest one\n"},
    {log_line::tx_overstocked, "transmit queue full", "node %u, rxq overstocked, drop the oldest one\n"},
    {log_line::inactive, "next hop inactive", "dst node (%s, %u), inactived\n"},
    {log_line::refused, "refused, next hop inactive",
     "dst node %u, route by next_hop node_id %u inactived, may be unreachable\n"},
    {log_line::unexpected, "unexpected line", ""},
});
static_assert(k_lines.size() == static_cast<size_t>(log_line::number_of_lines));
static_assert(std::ranges::all_of(k_lines, [](const known_line &row) {
    return static_cast<size_t>(row.line) == static_cast<size_t>(&row - k_lines.data());
}));

} // namespace

const char *name_of(log_line line) {
    return k_lines.at(static_cast<size_t>(line)).name;
}

log_line log_line_of(const char *format, bool severe) {
    const auto *found = std::ranges::find_if(k_lines, [format](const known_line &row) {
        return *format != '\0' && strcmp(row.format, format) == 0;
    });
    if (found != k_lines.end()) {
        return found->line;
    }
    return severe ? log_line::unexpected : log_line::number_of_lines;
}

} // namespace soak
