/**
 * @file
 * A line plot as SVG, both axes logarithmic.
 */
#ifndef BENCH_SVG_PLOT_H
#define BENCH_SVG_PLOT_H

#include <string>
#include <utility>
#include <vector>

namespace bench {

struct plot_line {
    std::string name;
    std::vector<std::pair<double, double>> points; ///< all greater than 0
};

struct plot {
    std::string title;
    std::string x_name;
    std::string y_name;
    std::vector<plot_line> lines;
};

std::string svg(const plot &what);

/** @throws std::runtime_error when the file cannot be written */
void write_file(const std::string &path, const std::string &text);

} // namespace bench

#endif
