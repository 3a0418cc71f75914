/**
 * @file
 * `vexa` on a terminal, for tests: its window, and what stands in it.
 *
 *     on_terminal top({"top", "-i", "lo"});
 *     ASSERT_TRUE(top.shows("soa(5)"));
 */
#ifndef TEST_TERMINAL_BENCH_H
#define TEST_TERMINAL_BENCH_H

#include "bench.h"
#include "terminal_process.h"

class on_terminal : public terminal_process {
public:
    explicit on_terminal(std::vector<std::string> arguments, size_t columns = 120, size_t rows = 24)
        : terminal_process(command(std::move(arguments)), columns, rows) {}

    /** Waits until a text stands anywhere on the screen. */
    bool shows(const std::string &text) {
        return wait_for(
            [&](const terminal_grid &grid) { return grid.text().find(text) != std::string::npos; },
            bench::k_patience);
    }

    /** Waits until it does not. */
    bool hides(const std::string &text) {
        return wait_for(
            [&](const terminal_grid &grid) { return grid.text().find(text) == std::string::npos; },
            bench::k_patience);
    }

    /** Waits until a row begins so. */
    bool shows_in_row(size_t row, const std::string &beginning) {
        return wait_for([&](const terminal_grid &grid) { return grid.row(row).starts_with(beginning); },
                        bench::k_patience);
    }

    /** The exit status; -1 when it does not end. */
    int end() { return wait_exit(bench::k_patience).value_or(-1); }

    /** Whether the terminal is as a shell has it. */
    [[nodiscard]] bool is_given_back() const {
        const tcflag_t usual = ICANON | ECHO | ISIG;
        return !screen().is_second_screen() && screen().shows_cursor() && screen().wraps() &&
               (settings().c_lflag & usual) == usual && (settings().c_iflag & ICRNL) != 0;
    }

private:
    static std::vector<std::string> command(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"env", "TERM=xterm-256color", "LC_ALL=C.UTF-8", VEXA_PROGRAM});
        return arguments;
    }
};

#endif
