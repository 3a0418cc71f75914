// Keys from standard input. See keyboard.h.
#include "keyboard.h"

#include <array>
#include <cerrno>
#include <poll.h>
#include <unistd.h>

namespace vexa {

keyboard::keyboard()
    : there_(isatty(STDIN_FILENO) == 1 && tcgetpgrp(STDIN_FILENO) == getpgrp() &&
             tcgetattr(STDIN_FILENO, &settings_) == 0) {
    if (!there_) {
        return;
    }
    termios raw = settings_;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    there_ = tcsetattr(STDIN_FILENO, TCSADRAIN, &raw) == 0;
}

keyboard::~keyboard() {
    give_back();
}

void keyboard::give_back() {
    if (there_) {
        (void)tcsetattr(STDIN_FILENO, TCSADRAIN, &settings_); // a terminal that has gone needs nothing back
        there_ = false;
    }
}

int keyboard::fd() const {
    return there_ ? STDIN_FILENO : -1;
}

std::vector<key> keyboard::take() {
    std::array<char, 64> bytes{};
    pollfd one{fd(), POLLIN, 0};
    if (poll(&one, 1, 0) <= 0) {
        return {};
    }
    const ssize_t size = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (size <= 0 && (size == 0 || errno != EINTR)) {
        give_back(); // hung up
    }
    return size > 0 ? reader_.take({bytes.data(), static_cast<size_t>(size)}) : std::vector<key>{};
}

} // namespace vexa
