/**
 * @file
 * A child process on a terminal of its own: a real pseudo-terminal, with somebody who reads the screen,
 * presses keys and pulls at the window. It never outlives its parent.
 *
 *     terminal_process top({"vexa", "top"}, 80, 24);
 *     top.wait_for([](const terminal_grid &grid) { return grid.row(0).starts_with(" vexa top"); }, 10s);
 *     top.press("q");
 *     top.wait_exit(10s);
 *
 * @par Threads One object is used by one thread; the child dies with the thread that started it.
 */
#ifndef TERMINAL_PROCESS_H
#define TERMINAL_PROCESS_H

#include "terminal_grid.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <termios.h>
#include <vector>

class terminal_process {
public:
    /** @throws std::system_error when no process or no terminal can be had */
    terminal_process(const std::vector<std::string> &args, size_t columns, size_t rows);
    ~terminal_process();
    terminal_process(const terminal_process &) = delete;
    terminal_process &operator=(const terminal_process &) = delete;

    /** Takes in what it writes until the screen is as wanted. False when the time passes or it ends before.
     */
    bool wait_for(const std::function<bool(const terminal_grid &)> &wanted,
                  std::chrono::milliseconds patience);

    void press(std::string_view keys) const;

    /** Gives the window another size, of which the program is told by SIGWINCH. */
    void resize(size_t columns, size_t rows);

    void signal(int number) const;

    /** Waits for its end, taking in what it writes. The exit status, or 128 + the signal that ended it. */
    std::optional<int> wait_exit(std::chrono::milliseconds patience);

    /** Whether it is stopped, as by Ctrl-Z, after waiting for it. */
    bool wait_stopped(std::chrono::milliseconds patience);

    /** Processor time that it has taken; of a process that has ended. */
    [[nodiscard]] std::chrono::microseconds processor_time() const { return processor_time_; }

    [[nodiscard]] const terminal_grid &screen() const { return grid_; }

    /** How the terminal is set, for what is done with keys. */
    [[nodiscard]] termios settings() const;

    /** Closes the window. */
    void hang_up();

private:
    bool take_in(std::chrono::milliseconds patience);

    terminal_grid grid_;
    pid_t pid_ = -1;
    int watch_ = -1;  // a descriptor for the process, readable at its end
    int master_ = -1; // this end of the terminal
    int slave_ = -1;  // its own, so that the terminal and its settings stay when it ends
    std::optional<int> exit_;
    std::chrono::microseconds processor_time_{0};
};

#endif
