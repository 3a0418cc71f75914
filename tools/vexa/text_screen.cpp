// Lines and tables for terminals. See text_screen.h.
#include "text_screen.h"

#include <algorithm>
#include <numeric>

namespace vexa {
namespace {

constexpr size_t k_gap = 2; // blanks between columns

bool begins_character(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

/// Where the character with this number begins.
size_t byte_of(const std::string &text, size_t character) {
    size_t at = 0;
    for (; at < text.size(); ++at) {
        if (begins_character(text[at]) && character-- == 0) {
            break;
        }
    }
    return at;
}

const char *sequence_of(tone how) {
    switch (how) {
    case tone::strong:
        return "\x1b[1m";
    case tone::faint:
        return "\x1b[2m";
    case tone::good:
        return "\x1b[32m";
    case tone::bad:
        return "\x1b[1;31m";
    case tone::bar:
        return "\x1b[7m";
    default:
        return "";
    }
}

using widths = std::vector<std::optional<size_t>>;

size_t total_of(const widths &all) {
    size_t sum = 0;
    for (const auto &each : all) {
        sum += each ? *each + k_gap : 0;
    }
    return sum > 0 ? sum - k_gap : 0;
}

size_t natural_width(const text_table &table, size_t column) {
    size_t width = width_of(table.columns[column].title);
    for (const auto &row : table.rows) {
        width = std::max(width, width_of(row[column].text));
    }
    return width;
}

/// Narrows columns, those of the highest rank first, as far as they allow it.
void narrow(const text_table &table, const std::vector<size_t> &by_rank, widths &all, size_t width) {
    for (const size_t i : by_rank) {
        const size_t total = total_of(all);
        const size_t least = table.columns[i].least;
        if (total > width && all[i] && *all[i] > least) {
            all[i] = *all[i] - std::min(total - width, *all[i] - least);
        }
    }
}

std::string padding(size_t width, size_t used) {
    return std::string(width > used ? width - used : 0, ' ');
}

/// Without blanks behind the last column: a line that is not filled ends with its text.
void add_cell(text_line &line, const table_column &column, const span_text &cell, size_t width) {
    const std::string text = cut_to(cell.text, width, column.keeps_end);
    const std::string blanks = padding(width, width_of(text));
    line.add(line.width() > 0 ? std::string(k_gap, ' ') : "");
    if (column.right) {
        line.add(blanks).add(text, cell.how);
    } else {
        line.add(text, cell.how).add(blanks);
    }
}

} // namespace

size_t width_of(const std::string &text) {
    return static_cast<size_t>(std::ranges::count_if(text, begins_character));
}

std::string cut_to(const std::string &text, size_t width, bool keeps_end) {
    const size_t had = width_of(text);
    if (had <= width) {
        return text;
    }
    if (keeps_end || width == 0) {
        return text.substr(byte_of(text, had - width));
    }
    return text.substr(0, byte_of(text, width - 1)) + '~';
}

text_line &text_line::add(std::string text, tone how) {
    if (!text.empty()) {
        parts_.push_back({std::move(text), how});
    }
    return *this;
}

void text_line::limit(size_t width) {
    size_t used = 0;
    std::vector<span_text> kept;
    for (span_text &part : parts_) {
        part.text = cut_to(part.text, width - used);
        used += width_of(part.text);
        kept.push_back(std::move(part));
        if (used == width) {
            break;
        }
    }
    parts_ = std::move(kept);
}

void text_line::fill(size_t width) {
    add(padding(width, this->width()), parts_.empty() ? tone::plain : parts_.back().how);
}

size_t text_line::width() const {
    return std::accumulate(parts_.begin(), parts_.end(), size_t{0},
                           [](size_t sum, const span_text &part) { return sum + width_of(part.text); });
}

std::string text_line::plain() const {
    std::string text;
    for (const span_text &part : parts_) {
        text += part.text;
    }
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::string text_line::ansi() const {
    std::string text;
    for (const span_text &part : parts_) {
        const std::string begin = sequence_of(part.how);
        text += begin + part.text + (begin.empty() ? "" : "\x1b[0m");
    }
    return text;
}

void limit(text_screen &lines, screen_size to) {
    lines.resize(std::min(lines.size(), to.rows));
    for (text_line &line : lines) {
        line.limit(to.columns);
    }
}

std::vector<std::optional<size_t>> column_widths(const text_table &table, size_t width) {
    widths natural;
    for (size_t i = 0; i < table.columns.size(); ++i) {
        natural.emplace_back(natural_width(table, i));
    }
    std::vector<size_t> by_rank(table.columns.size());
    std::iota(by_rank.begin(), by_rank.end(), size_t{0});
    std::ranges::stable_sort(by_rank, std::greater<>{}, [&](size_t i) { return table.columns[i].rank; });
    for (size_t dropped = 0;; ++dropped) {
        widths all = natural;
        for (size_t i = 0; i < dropped; ++i) {
            all[by_rank[i]].reset();
        }
        narrow(table, by_rank, all, width);
        if (total_of(all) <= width || dropped + 1 >= by_rank.size()) {
            return all;
        }
    }
}

std::vector<text_line> lay_out(const text_table &table, size_t width) {
    const widths all = column_widths(table, width);
    std::vector<text_line> lines(1 + table.rows.size());
    for (size_t i = 0; i < table.columns.size(); ++i) {
        if (!all[i]) {
            continue;
        }
        const table_column &column = table.columns[i];
        const bool stands_out = table.marked == i;
        add_cell(lines[0], column, {column.title, stands_out ? tone::strong : tone::faint}, *all[i]);
        for (size_t row = 0; row < table.rows.size(); ++row) {
            add_cell(lines[row + 1], column, table.rows[row][i], *all[i]);
        }
    }
    return lines;
}

} // namespace vexa
