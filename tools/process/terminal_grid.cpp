// A terminal's picture. See terminal_grid.h.
#include "terminal_grid.h"

#include <algorithm>
#include <charconv>

namespace {

constexpr char k_escape = '\x1b';

/// Bytes of the UTF-8 character that begins so.
size_t length_of(char first) {
    const auto byte = static_cast<unsigned char>(first);
    return byte < 0x80 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

std::vector<size_t> numbers_in(std::string_view text) {
    std::vector<size_t> all;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find(';', begin), text.size());
        size_t value = 0;
        (void)std::from_chars(text.data() + begin, text.data() + end, value);
        all.push_back(value);
        begin = end + 1;
    }
    return all;
}

} // namespace

void terminal_grid::feed(std::string_view bytes) {
    rest_ += bytes;
    size_t at = 0;
    while (at < rest_.size()) {
        const size_t taken = take_one(std::string_view{rest_}.substr(at));
        if (taken == 0) {
            break;
        }
        at += taken;
    }
    rest_.erase(0, at);
}

/// How many bytes it was; 0 when it is not whole.
size_t terminal_grid::take_one(std::string_view bytes) {
    switch (bytes.front()) {
    case k_escape:
        return take_sequence(bytes);
    case '\r':
        column_ = 0;
        return 1;
    case '\n':
        row_ = std::min(row_ + 1, rows_ - 1);
        return 1;
    default:
        break;
    }
    const size_t length = length_of(bytes.front());
    if (length > bytes.size()) {
        return 0;
    }
    put(bytes.substr(0, length));
    return length;
}

size_t terminal_grid::take_sequence(std::string_view bytes) {
    if (bytes.size() < 2) {
        return 0;
    }
    if (bytes[1] != '[') {
        ++unknown_;
        return 2;
    }
    const auto *const last =
        std::find_if(bytes.begin() + 2, bytes.end(), [](char c) { return c >= '@' && c <= '~'; });
    if (last == bytes.end()) {
        return 0;
    }
    const auto length = static_cast<size_t>(last - bytes.begin()) + 1;
    act(*last, bytes.substr(2, length - 3));
    return length;
}

void terminal_grid::act(char letter, std::string_view parameters) {
    const std::vector<size_t> numbers = numbers_in(parameters);
    const size_t here = row_ * columns_ + std::min(column_, columns_ - 1);
    switch (letter) {
    case 'H':
        row_ = std::min(std::max<size_t>(numbers.front(), 1), rows_) - 1;
        column_ = numbers.size() > 1 ? std::min(std::max<size_t>(numbers[1], 1), columns_) - 1 : 0;
        break;
    case 'K': // to the end of the row
        if (column_ < columns_) {
            clear(here, (row_ + 1) * columns_);
        }
        break;
    case 'J':
        clear(numbers.front() == 2 ? 0 : here, cells_.size());
        break;
    case 'm':
        set_tones(parameters);
        break;
    case 'h':
    case 'l':
        set_mode(parameters, letter == 'h');
        break;
    default:
        ++unknown_;
    }
}

void terminal_grid::set_mode(std::string_view parameters, bool on) {
    if (parameters == "?1049") {
        if (on != second_) {
            first_screen_.resize(cells_.size());
            std::swap(cells_, first_screen_);
            second_ = on;
        }
    } else if (parameters == "?25") {
        cursor_ = on;
    } else if (parameters == "?7") {
        wraps_ = on;
    } else {
        ++unknown_;
    }
}

void terminal_grid::set_tones(std::string_view parameters) {
    for (const size_t number : numbers_in(parameters)) {
        switch (number) {
        case 0:
            how_ = {};
            break;
        case 1:
            how_.bold = true;
            break;
        case 2:
            how_.faint = true;
            break;
        case 7:
            how_.inverse = true;
            break;
        default:
            if (number >= 30 && number <= 37) {
                how_.colour = static_cast<int>(number - 30);
            } else {
                ++unknown_;
            }
        }
    }
}

void terminal_grid::put(std::string_view character) {
    if (column_ >= columns_) {
        ++overflowed_;
        return;
    }
    cells_[row_ * columns_ + column_] = {std::string(character), how_};
    ++column_;
}

void terminal_grid::clear(size_t begin, size_t end) {
    std::fill(cells_.begin() + static_cast<std::ptrdiff_t>(begin),
              cells_.begin() + static_cast<std::ptrdiff_t>(end), cell{});
}

void terminal_grid::resize(size_t columns, size_t rows) {
    columns_ = columns;
    rows_ = rows;
    cells_.assign(columns * rows, {});
    first_screen_.assign(columns * rows, {});
    column_ = 0;
    row_ = 0;
}

std::string terminal_grid::row(size_t number) const {
    std::string text;
    for (size_t column = 0; column < columns_; ++column) {
        text += at(column, number).character;
    }
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::string terminal_grid::text() const {
    std::string text;
    for (size_t number = 0; number < rows_; ++number) {
        text += row(number) + '\n';
    }
    return text;
}
