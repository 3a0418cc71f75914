// The soak's last page. See report.h.
#include "report.h"

#include "traffic.h"

#include <algorithm>
#include <fmt/format.h>

namespace soak {
namespace {

constexpr size_t k_most_found = 20; // lines that are shown

std::string head_row() {
    return fmt::format("  {:<25} {:>9} {:>8} {:>8} {:>9} {:>7} {:>7} {:>8} {:>8} {:>8} {:>9} {:>11} {:>11}\n",
                       "WAY", "SENT", "REFUSED", "INACTIVE", "OVERSTOCK", "ASTRAY", "KERNEL", "LOST",
                       "DAMAGED", "DOUBLED", "DELIVERED", "OVERWRITTEN", "UNEXPLAINED");
}

std::string row_of(const char *name, const way_balance &one) {
    return fmt::format("  {:<25} {:>9} {:>8} {:>8} {:>9} {:>7} {:>7} {:>8} {:>8} {:>8} {:>9} {:>11} {:>11}\n",
                       name, one.sent + one.made_up, one.refused, one.inactive, one.overstocked, one.astray,
                       one.kernel, one.lost, one.damaged, one.doubled, one.delivered, one.overwritten,
                       one.difference());
}

uint64_t relay_sum(const snapshot &end, event what) {
    uint64_t sum = 0;
    end.counted.relay.each(
        [&sum, what](const tally_key &key, uint64_t count) { sum += key.what == what ? count : 0; });
    return sum;
}

std::string table_of(const snapshot &end) {
    const balance rows = balance_of(end.counted);
    std::string text = head_row();
    for (size_t row = 1; row < rows.size(); ++row) {
        text += row_of(info_of(static_cast<way>(row)).name, rows.at(row));
    }
    text += "  SENT + DOUBLED = all others; a broadcast counts once for each node that it is for. "
            "OVERWRITTEN, of the\n"
            "  delivered: replaced in the receive queue before it was polled. ASTRAY: to an address, and in "
            "SENT too\n"
            "  to an id, that a damaged node table made up. KERNEL: no room in a socket.\n";
    text += fmt::format(
        "  The relay has delayed {} datagrams, put {} behind their successors and made {} of garbage.\n",
        relay_sum(end, event::delayed), relay_sum(end, event::held_back), rows[0].sent);
    return text;
}

std::string outcomes_of(const snapshot &end) {
    std::string text = "  what nodes made of all that they have read:\n";
    const auto sums = read_as(end.counted);
    for (size_t row = 0; row < sums.size(); ++row) {
        if (sums.at(row) != 0) {
            text += fmt::format("  {:>10}  {}\n", sums.at(row), name_of(static_cast<outcome>(row)));
        }
    }
    return text;
}

std::string manager_line(const result &all) {
    if (all.manager_events.empty()) {
        return {};
    }
    std::vector<std::string> events;
    for (const auto &[what, count] : all.manager_events) {
        events.push_back(fmt::format("{} {}", what, count));
    }
    return fmt::format(
        "  nodes in the eyes of the node manager: {}; all node tables were whole {:.1f} s after the last "
        "fault\n",
        fmt::join(events, ", "), static_cast<double>(all.repair.count()) / 1000);
}

} // namespace

std::string page_of(const result &all, bool given_back) {
    std::string text =
        fmt::format("\nSoak of the {} build: {:.1f} s of traffic, {} nodes, seed {}; compared at {} quiet "
                    "points; {:.2f} cores used\n\n",
                    all.build, static_cast<double>(all.lasted.count()) / 1000, all.end.counted.ids.size(),
                    all.seed, all.looks, all.cores);
    if (!all.end.counted.nodes.empty()) {
        text += table_of(all.end) + outcomes_of(all.end) + manager_line(all);
        for (const std::string &line : memory_summary(all.baseline.memory, all.end.memory, given_back)) {
            text += "  " + line + "\n";
        }
    }
    for (size_t i = 0; i < std::min(all.found.size(), k_most_found); ++i) {
        text += "UNEXPLAINED: " + all.found[i] + "\n";
    }
    if (all.found.size() > k_most_found) {
        text += fmt::format("UNEXPLAINED: and {} more\n", all.found.size() - k_most_found);
    }
    return text +
           fmt::format("\n{}: {}\n", all.build, all.found.empty() ? "everything is explained" : "FAILED");
}

std::string progress_of(const snapshot &now) {
    way_balance sum;
    for (const way_balance &one : balance_of(now.counted)) {
        sum.sent += one.sent;
        sum.lost += one.lost;
        sum.damaged += one.damaged;
        sum.doubled += one.doubled;
        sum.delivered += one.delivered;
    }
    return fmt::format("{} messages, {} lost, {} damaged, {} doubled, {} delivered whole", sum.sent, sum.lost,
                       sum.damaged, sum.doubled, sum.delivered);
}

} // namespace soak
