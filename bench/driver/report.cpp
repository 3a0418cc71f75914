// Writes the report. See report.h.
#include "report.h"

#include <algorithm>
#include <fmt/core.h>

namespace bench {
namespace {

std::string row_of(const std::vector<std::string> &cells) {
    std::string text = "|";
    for (const std::string &cell : cells) {
        text += fmt::format(" {} |", cell);
    }
    return text + "\n";
}

} // namespace

std::string table::markdown() const {
    std::string text = row_of(columns_);
    text += row_of(std::vector<std::string>(columns_.size(), "---"));
    for (const auto &row : rows_) {
        text += row_of(row);
    }
    return text;
}

void report::heading(const std::string &text) {
    body_ += fmt::format("\n## {}\n", text);
}

void report::paragraph(const std::string &text) {
    body_ += fmt::format("\n{}\n", text);
}

void report::add(const table &filled) {
    body_ += fmt::format("\n{}", filled.markdown());
}

void report::picture(const std::string &file, const std::string &meaning) {
    body_ += fmt::format("\n![{}]({})\n", meaning, file);
}

std::string report::goals() const {
    table all{{"work, on one core", "goal", "measured", ""}};
    for (const goal &g : goals_) {
        all.add(
            {g.work, fmt::format("≤ {:.2f}", g.most), fmt::format("{:.3f}", g.ratio),
             g.ratio <= g.most ? "held" : fmt::format("missed by {:.1f} %", (g.ratio / g.most - 1) * 100)});
    }
    return goals_.empty() ? "" : fmt::format("\n## Goals\n\n{}", all.markdown());
}

std::string report::markdown() const {
    return goals() + body_;
}

double median(std::vector<double> values) {
    if (values.empty()) {
        return 0;
    }
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

std::string microseconds(double ns) {
    if (ns == 0) {
        return "—"; // nothing came
    }
    return fmt::format("{:.{}f}", ns / 1000, ns < 100'000 ? 2 : 0);
}

} // namespace bench
