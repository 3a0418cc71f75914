// Progress on a terminal. See progress_line.h.
#include "progress_line.h"

#include <cstdio>
#include <fmt/core.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace vexa {
namespace {

constexpr auto k_interval = std::chrono::milliseconds(200);
constexpr size_t k_usual_width = 80;

size_t terminal_width() {
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col : k_usual_width;
}

} // namespace

progress_line::progress_line() : on_terminal_(isatty(STDERR_FILENO) == 1) {
}

bool progress_line::is_due() const {
    return on_terminal_ && std::chrono::steady_clock::now() - last_ >= k_interval;
}

void progress_line::show(const std::string &text) {
    if (on_terminal_) {
        fmt::print(stderr, "\r\033[K{}", text.substr(0, terminal_width() - 1));
        shown_ = true;
        last_ = std::chrono::steady_clock::now();
    }
}

void progress_line::clear() {
    if (shown_) {
        fmt::print(stderr, "\r\033[K");
        shown_ = false;
    }
}

} // namespace vexa
