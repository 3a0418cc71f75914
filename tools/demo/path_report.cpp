// The demo's final table.
#include "path_report.h"

#include <algorithm>
#include <fmt/core.h>

namespace demo {
namespace {

bool arrived(const path &each) {
    return each.expected > 0 && each.delays_ns.size() == each.expected && each.missing.empty();
}

/// @param sorted  not empty
uint64_t median(const std::vector<uint64_t> &sorted) {
    const size_t middle = sorted.size() / 2;
    return sorted.size() % 2 == 1 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

std::string row(const path &each) {
    std::vector<uint64_t> sorted = each.delays_ns;
    std::sort(sorted.begin(), sorted.end());
    const std::string middle = sorted.empty() ? "-" : as_ms(median(sorted));
    const std::string worst = sorted.empty() ? "-" : as_ms(sorted.back());
    return fmt::format("  {:<44}{} {:>6} {:>9} {:>12} {:>12}", each.name, each.polled ? '*' : ' ',
                       each.expected, each.delays_ns.size(), middle, worst);
}

} // namespace

path &path_report::add(std::string name, bool polled) {
    // cppcheck-suppress returnTempReference; emplace_back returns a reference to what it has stored
    return paths_.emplace_back(path{std::move(name), polled, 0, {}, {}});
}

bool path_report::complete() const {
    return !paths_.empty() && std::all_of(paths_.begin(), paths_.end(), arrived);
}

void path_report::print(const transcript &out) const {
    out.line(
        fmt::format("\n  {:<45} {:>6} {:>9} {:>12} {:>12}", "PATH", "SENT", "RECEIVED", "MEDIAN", "WORST"),
        tone::title);
    for (const path &each : paths_) {
        out.line(row(each), arrived(each) ? tone::plain : tone::bad);
    }
    out.line("  SENT counts a message once for each node that must get it.", tone::faint);
    out.line("  * noticed by looking every millisecond, which is part of the time", tone::faint);
    for (const path &each : paths_) {
        for (const std::string &what : each.missing) {
            out.line(fmt::format("  {}: {}", each.name, what), tone::bad);
        }
    }
}

} // namespace demo
