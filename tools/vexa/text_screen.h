/**
 * @file
 * What stands on a terminal, built as lines before anything is written: text with tones, cut to a width, and
 * tables whose columns give way when there is little room. Nothing here touches a terminal.
 *
 *     vexa::text_table table{.columns = {{.title = "NODE"}, {.title = "RATE", .right = true, .rank = 1}}};
 *     table.rows.push_back({{"soa(5)"}, {"10.0", vexa::tone::strong}});
 *     for (const vexa::text_line &line : vexa::lay_out(table, 80)) { fmt::print("{}\n", line.plain()); }
 *
 * A character counts as one column: what came from a datagram is shown in ASCII, the rest is this program's.
 */
#ifndef VEXA_TEXT_SCREEN_H
#define VEXA_TEXT_SCREEN_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace vexa {

enum class tone : uint8_t { plain, strong, faint, good, bad, bar };

struct span_text {
    std::string text;
    tone how = tone::plain;
};

/** Characters of UTF-8 text. */
size_t width_of(const std::string &text);

/** Cut to so many characters, the last of which is then a '~'; with `keeps_end` its end is kept as it is. */
std::string cut_to(const std::string &text, size_t width, bool keeps_end = false);

class text_line {
public:
    text_line() = default;
    explicit text_line(std::string text, tone how = tone::plain) { add(std::move(text), how); }

    text_line &add(std::string text, tone how = tone::plain);

    /** Cuts what is too long. */
    void limit(size_t width);

    /** Fills up with blanks of the last tone. */
    void fill(size_t width);

    [[nodiscard]] size_t width() const;

    /** Without tones, and without blanks at its end. */
    [[nodiscard]] std::string plain() const;

    /** With the sequences that a terminal shows tones by. */
    [[nodiscard]] std::string ansi() const;

private:
    std::vector<span_text> parts_;
};

struct screen_size {
    size_t columns = 80;
    size_t rows = 24;
};

/** At most as many lines as the screen has rows, none wider than it. */
using text_screen = std::vector<text_line>;

/** Leaves out the lines and cuts the texts for which there is no room. */
void limit(text_screen &lines, screen_size to);

constexpr size_t k_no_limit = std::numeric_limits<size_t>::max();

struct table_column {
    std::string title;
    bool right = false;        /**< aligned so */
    bool keeps_end = false;    /**< of a text that is cut, its end is the part to keep */
    size_t least = k_no_limit; /**< characters below which it is not narrowed; without it, it never is */
    int rank = 0;              /**< where there is no room for all, the highest ones are the first to go */
};

struct text_table {
    std::vector<table_column> columns;
    std::vector<std::vector<span_text>> rows = {}; /**< a cell for each column */
    std::optional<size_t> marked = std::nullopt;   /**< column whose title stands out */
};

/** Width of each column; nothing for one that is left out. */
std::vector<std::optional<size_t>> column_widths(const text_table &table, size_t width);

/** The titles' line, then the rows'. */
std::vector<text_line> lay_out(const text_table &table, size_t width = k_no_limit);

} // namespace vexa

#endif
