/**
 * @file
 * A terminal taken over for a while: its second screen, no cursor, keys one by one; given back as it was,
 * however the program ends, by SIGKILL only not. It is given back too while the program is stopped by Ctrl-Z.
 *
 *     vexa::terminal screen;
 *     screen.show(lines);
 *     // when one of screen.fds() is readable:
 *     const vexa::terminal_news news = screen.take_news();
 *
 * @par Threads  One object in a program, used by one thread, made before any other thread.
 */
#ifndef VEXA_TERMINAL_H
#define VEXA_TERMINAL_H

#include "bench_socket.h"
#include "key_reader.h"
#include "text_screen.h"

#include <array>
#include <termios.h>
#include <vector>

namespace vexa {

/** Whether standard output is a terminal on which lines can be redrawn. */
bool is_redrawable();

struct terminal_news {
    std::vector<key> keys = {};
    bool redraw = false; /**< its size is another one, or it was somebody else's for a while */
    bool end = false;    /**< the program is asked to end by SIGHUP or SIGQUIT, or the terminal has gone */
};

class terminal {
public:
    /** Takes over the terminal that is standard output. @throws std::system_error */
    terminal();
    ~terminal();
    terminal(const terminal &) = delete;
    terminal &operator=(const terminal &) = delete;

    [[nodiscard]] static screen_size size();

    /** Shows these lines; writes only those that are others than the last time. */
    void show(const text_screen &lines);

    /** Become readable when there is news. */
    [[nodiscard]] std::array<int, 2> fds() const { return {keyboard_.get(), signals_.get()}; }

    /** Never waits. */
    terminal_news take_news();

private:
    void take_over();
    void read_keys(terminal_news &news);
    void read_signals(terminal_news &news);
    void stop();

    descriptor keyboard_;
    descriptor signals_;
    key_reader reader_;
    termios settings_{}; // as they were
    std::vector<std::string> shown_;
    bool gone_ = false;
};

} // namespace vexa

#endif
