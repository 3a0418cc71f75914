// Runs a program on a terminal and writes what is on its screen after a while as SVG. The text in the picture
// is the program's own, cell by cell.
#include "terminal_process.h"

#include <CLI/CLI.hpp>
#include <array>
#include <chrono>
#include <exception>
#include <fmt/core.h>
#include <fstream>
#include <string>
#include <vector>

namespace {

constexpr double k_cell_width = 8.4; // of a character of 14 pixels in the fonts named below
constexpr size_t k_cell_height = 18;
constexpr size_t k_margin = 12;
constexpr size_t k_bar_height = 28; // of the window's
constexpr char k_back[] = "#1d2026";
constexpr char k_front[] = "#d7dae0";

struct picture_options {
    size_t columns = 120;
    size_t rows = 24;
    double seconds = 5;
    std::string keys;
    std::string title;
    std::string file;
    std::vector<std::string> command;
};

std::string escaped(const std::string &text) {
    std::string result;
    for (const char c : text) {
        result += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
    }
    return result;
}

std::string colour_of(const terminal_grid::tones &how) {
    constexpr std::array<const char *, 8> colours = {"#4b5263", "#e8646e", "#93c379", "#e2bf78",
                                                     "#5fadec", "#c478dd", "#58b6c2", "#d7dae0"};
    return how.inverse ? k_back : how.colour >= 0 ? colours.at(static_cast<size_t>(how.colour)) : k_front;
}

double left_of(size_t column) {
    return static_cast<double>(k_margin) + static_cast<double>(column) * k_cell_width;
}

size_t top_of(size_t row) {
    return k_bar_height + k_margin + row * k_cell_height;
}

/// Cells of one row that look alike, from `begin` to before `end`.
std::string run_text(const terminal_grid &grid, size_t row, size_t begin, size_t end) {
    std::string text;
    for (size_t column = begin; column < end; ++column) {
        text += grid.at(column, row).character;
    }
    const auto &how = grid.at(begin, row).how;
    const double width = static_cast<double>(end - begin) * k_cell_width;
    std::string svg;
    if (how.inverse) {
        svg += fmt::format("<rect x=\"{:.1f}\" y=\"{}\" width=\"{:.1f}\" height=\"{}\" fill=\"{}\"/>\n",
                           left_of(begin), top_of(row), width, k_cell_height, k_front);
    }
    if (text.find_first_not_of(' ') != std::string::npos) {
        svg += fmt::format("<text x=\"{:.1f}\" y=\"{}\" textLength=\"{:.1f}\" fill=\"{}\"{}{}>{}</text>\n",
                           left_of(begin), top_of(row) + 13, width, colour_of(how),
                           how.bold ? " font-weight=\"bold\"" : "", how.faint ? " opacity=\"0.6\"" : "",
                           escaped(text));
    }
    return svg;
}

std::string row_text(const terminal_grid &grid, size_t row) {
    std::string svg;
    for (size_t begin = 0; begin < grid.columns();) {
        size_t end = begin + 1;
        while (end < grid.columns() && grid.at(end, row).how == grid.at(begin, row).how) {
            ++end;
        }
        svg += run_text(grid, row, begin, end);
        begin = end;
    }
    return svg;
}

std::string svg_of(const terminal_grid &grid, const std::string &title) {
    const double width = left_of(grid.columns()) + static_cast<double>(k_margin);
    std::string svg = fmt::format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {0:.1f} {1}\" width=\"{0:.1f}\" "
        "height=\"{1}\" font-family=\"'DejaVu Sans Mono', Menlo, Consolas, monospace\" font-size=\"14\" "
        "xml:space=\"preserve\">\n<title>{2}</title>\n",
        width, top_of(grid.rows()) + k_margin, escaped(title));
    svg += fmt::format("<rect width=\"100%\" height=\"100%\" rx=\"8\" fill=\"{}\"/>\n", k_back);
    svg +=
        fmt::format("<text x=\"50%\" y=\"19\" text-anchor=\"middle\" fill=\"{}\" opacity=\"0.7\">{}</text>\n",
                    k_front, escaped(title));
    for (size_t row = 0; row < grid.rows(); ++row) {
        svg += row_text(grid, row);
    }
    return svg + "</svg>\n";
}

int take_picture(const picture_options &options) {
    terminal_process program(options.command, options.columns, options.rows);
    const auto wait =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::duration<double>(options.seconds));
    (void)program.wait_for([](const terminal_grid &) { return false; }, wait);
    if (!options.keys.empty()) {
        program.press(options.keys);
        (void)program.wait_for([](const terminal_grid &) { return false; }, std::chrono::seconds(1));
    }
    if (!program.screen().is_second_screen()) {
        fmt::print(stderr, "picture: the program has not taken over the terminal:\n{}",
                   program.screen().text());
        return 1;
    }
    std::ofstream out{options.file};
    out << svg_of(program.screen(), options.title) << std::flush;
    program.press("q");
    (void)program.wait_exit(std::chrono::seconds(5));
    return out ? 0 : 1;
}

int run(int argc, char **argv) {
    picture_options options;
    CLI::App app{"Writes what a program shows on a terminal as SVG."};
    app.add_option("--columns", options.columns)->capture_default_str();
    app.add_option("--rows", options.rows)->capture_default_str();
    app.add_option("--after", options.seconds, "seconds until the picture is taken")->capture_default_str();
    app.add_option("--keys", options.keys, "pressed a second before it");
    app.add_option("--title", options.title, "of the window");
    app.add_option("file", options.file)->required();
    app.add_option("command", options.command, "with its arguments, behind --")->required();
    CLI11_PARSE(app, argc, argv);
    return take_picture(options);
}

} // namespace

int main(int argc, char **argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception &failure) {
        fmt::print(stderr, "picture: {}\n", failure.what());
        return 1;
    }
}
