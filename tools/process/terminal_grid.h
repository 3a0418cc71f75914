/**
 * @file
 * What a terminal would show of what a program writes to it: the part of a terminal that this project's
 * programs use. For tests, and for pictures in documents.
 *
 *     terminal_grid grid(80, 24);
 *     grid.feed("\x1b[2;1Hhello");
 *     grid.row(1); // "hello"
 */
#ifndef TERMINAL_GRID_H
#define TERMINAL_GRID_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

class terminal_grid {
public:
    struct tones {
        bool bold = false;
        bool faint = false;
        bool inverse = false;
        int colour = -1; /**< 0 to 7, of the foreground; -1: the terminal's own */
        bool operator==(const tones &) const = default;
    };
    struct cell {
        std::string character = " "; /**< one, in UTF-8 */
        tones how = {};
    };

    terminal_grid(size_t columns, size_t rows) : columns_(columns), rows_(rows), cells_(columns * rows) {}

    /** Takes what the program has written; a sequence may come in pieces. */
    void feed(std::string_view bytes);

    /** Gives it another size; all cells are empty then. */
    void resize(size_t columns, size_t rows);

    /** A row's text without the blanks at its end; rows count from 0. */
    [[nodiscard]] std::string row(size_t number) const;

    /** All rows, each with a line end. */
    [[nodiscard]] std::string text() const;

    [[nodiscard]] const cell &at(size_t column, size_t row) const {
        return cells_.at(row * columns_ + column);
    }
    [[nodiscard]] size_t columns() const { return columns_; }
    [[nodiscard]] size_t rows() const { return rows_; }
    [[nodiscard]] bool is_second_screen() const { return second_; }
    [[nodiscard]] bool shows_cursor() const { return cursor_; }
    [[nodiscard]] bool wraps() const { return wraps_; }

    /** Characters that found no room in their row, which a terminal would have wrapped or left out. */
    [[nodiscard]] size_t overflowed() const { return overflowed_; }

    /** Sequences that are not known here. */
    [[nodiscard]] size_t unknown() const { return unknown_; }

private:
    size_t take_one(std::string_view bytes);
    size_t take_sequence(std::string_view bytes);
    void put(std::string_view character);
    void set_mode(std::string_view parameters, bool on);
    void set_tones(std::string_view parameters);
    void act(char letter, std::string_view parameters);
    void clear(size_t begin, size_t end);

    size_t columns_;
    size_t rows_;
    std::vector<cell> cells_;
    std::vector<cell> first_screen_;
    size_t column_ = 0;
    size_t row_ = 0;
    tones how_;
    bool second_ = false;
    bool cursor_ = true;
    bool wraps_ = true;
    size_t overflowed_ = 0;
    size_t unknown_ = 0;
    std::string rest_; // of a sequence or a character that is not whole
};

#endif
