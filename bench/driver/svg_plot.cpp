// Draws a plot. See svg_plot.h.
#include "svg_plot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/core.h>
#include <fstream>
#include <set>
#include <stdexcept>

namespace bench {
namespace {

constexpr double k_width = 860;
constexpr double k_height = 460;
constexpr double k_left = 70;
constexpr double k_right = 230; // with the names of the lines
constexpr double k_top = 40;
constexpr double k_bottom = 55;
constexpr double k_name_height = 15;
constexpr auto k_colours =
    std::to_array<const char *>({"#1b6ca8", "#d1495b", "#2e933c", "#8f5db7", "#e08e0b", "#5c4d3c", "#00a6a6",
                                 "#c03a9c", "#6b7280", "#111827", "#a3a500", "#ff7f6e"});

/// A logarithmic scale from one end of an axis to the other.
class scale {
public:
    scale(double low, double high, double from, double to)
        : low_(std::log(low)), high_(std::log(high)), from_(from), to_(to) {}
    double operator()(double value) const {
        const double span = high_ > low_ ? high_ - low_ : 1;
        return from_ + (std::log(value) - low_) / span * (to_ - from_);
    }

private:
    double low_, high_, from_, to_;
};

struct area {
    double x_low, x_high, y_low, y_high;
    std::set<double> x_values;
};

area area_of(const plot &what) {
    area all{1e300, 0, 1e300, 0, {}};
    for (const plot_line &line : what.lines) {
        for (const auto &[x, y] : line.points) {
            all.x_low = std::min(all.x_low, x);
            all.x_high = std::max(all.x_high, x);
            all.y_low = std::min(all.y_low, y);
            all.y_high = std::max(all.y_high, y);
            all.x_values.insert(x);
        }
    }
    all.y_low /= 1.15;
    all.y_high *= 1.15;
    return all;
}

/// 1, 2 and 5 times the powers of ten that lie within.
std::vector<double> ticks(double low, double high) {
    std::vector<double> found;
    for (double power = std::pow(10, std::floor(std::log10(low))); power <= high; power *= 10) {
        for (const double step : {1.0, 2.0, 5.0}) {
            if (power * step >= low && power * step <= high) {
                found.push_back(power * step);
            }
        }
    }
    return found;
}

std::string text(double x, double y, const char *anchor, const std::string &words,
                 const char *colour = "#333") {
    return fmt::format("<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"{}\" fill=\"{}\">{}</text>\n", x, y,
                       anchor, colour, words);
}

std::string grid(const area &all, const scale &x, const scale &y) {
    std::string out;
    for (const double tick : ticks(all.y_low, all.y_high)) {
        out += fmt::format("<line x1=\"{}\" x2=\"{}\" y1=\"{:.1f}\" y2=\"{:.1f}\" stroke=\"#ddd\"/>\n",
                           k_left, k_width - k_right, y(tick), y(tick));
        out += text(k_left - 8, y(tick) + 4, "end", fmt::format("{:g}", tick));
    }
    for (const double value : all.x_values) {
        out += text(x(value), k_height - k_bottom + 18, "middle", fmt::format("{:g}", value));
    }
    return out;
}

std::string curve(const plot_line &line, const char *colour, const scale &x, const scale &y) {
    std::string points;
    std::string dots;
    for (const auto &[at, value] : line.points) {
        points += fmt::format("{:.1f},{:.1f} ", x(at), y(value));
        dots += fmt::format("<circle cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"3\" fill=\"{}\"/>\n", x(at), y(value),
                            colour);
    }
    return fmt::format("<polyline points=\"{}\" fill=\"none\" stroke=\"{}\" stroke-width=\"2\"/>\n", points,
                       colour) +
           dots;
}

/// The lines' names beside their ends, from the highest to the lowest and none over another.
std::string names(const plot &what, const scale &y) {
    std::vector<std::pair<double, size_t>> ends;
    for (size_t i = 0; i < what.lines.size(); ++i) {
        ends.emplace_back(y(what.lines[i].points.back().second), i);
    }
    std::ranges::sort(ends);
    std::string out;
    double free_from = 0;
    for (const auto &[end, i] : ends) {
        const double at = std::max(end + 4, free_from);
        free_from = at + k_name_height;
        out += text(k_width - k_right + 12, at, "start", what.lines[i].name, k_colours[i % k_colours.size()]);
    }
    return out;
}

} // namespace

std::string svg(const plot &what) {
    const area all = area_of(what);
    const scale x{all.x_low, all.x_high, k_left + 20, k_width - k_right - 10};
    const scale y{all.y_low, all.y_high, k_height - k_bottom, k_top};
    std::string out = fmt::format("<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {} {}\" "
                                  "font-family=\"sans-serif\" font-size=\"12\">\n"
                                  "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n",
                                  k_width, k_height);
    out += text(k_left, k_top - 18, "start", what.title + ": " + what.y_name, "#000");
    out += text((k_left + k_width - k_right) / 2, k_height - 12, "middle", what.x_name);
    out += grid(all, x, y);
    for (size_t i = 0; i < what.lines.size(); ++i) {
        out += curve(what.lines[i], k_colours[i % k_colours.size()], x, y);
    }
    return out + names(what, y) + "</svg>\n";
}

void write_file(const std::string &path, const std::string &text) {
    std::ofstream file{path};
    file << text;
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

} // namespace bench
