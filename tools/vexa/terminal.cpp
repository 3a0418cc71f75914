// The terminal. See terminal.h.
#include "terminal.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fmt/core.h>
#include <poll.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace vexa {
namespace {

// The second screen, no cursor, no wrapping of lines that are too long; and back, without any tone.
constexpr std::string_view k_begin = "\x1b[?1049h\x1b[?25l\x1b[?7l\x1b[2J";
constexpr std::string_view k_end = "\x1b[0m\x1b[?7h\x1b[?25h\x1b[?1049l";
constexpr auto k_crashes = std::to_array<int>({SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT});

// For the handler below, which cannot be given anything. Written before it is set.
termios settings_before; // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

bool write_all(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(written > 0 ? static_cast<size_t>(written) : 0);
    }
    return true;
}

void give_back(const termios &settings) {
    (void)write_all(k_end); // a terminal that has gone needs nothing back
    (void)tcsetattr(STDOUT_FILENO, TCSADRAIN, &settings);
}

/// Everything here may be called by a signal handler.
void on_crash(int signal) {
    give_back(settings_before);
    (void)raise(signal); // to whoever had it before: the handler was for once
}

void prepare_for_crashes(const termios &settings) {
    settings_before = settings;
    for (const int signal : k_crashes) {
        struct sigaction now {};
        (void)sigaction(signal, nullptr, &now);
        if (now.sa_handler == SIG_DFL) { // or a sanitizer's, which has its own to say
            now.sa_handler = on_crash;
            now.sa_flags = static_cast<int>(SA_RESETHAND);
            (void)sigaction(signal, &now, nullptr);
        }
    }
}

void forget_crashes() {
    for (const int signal : k_crashes) {
        struct sigaction now {};
        (void)sigaction(signal, nullptr, &now);
        if (now.sa_handler == on_crash) {
            now.sa_handler = SIG_DFL;
            (void)sigaction(signal, &now, nullptr);
        }
    }
}

/// Keys come from the terminal also where standard input is something else.
descriptor open_keyboard() {
    const int fd = isatty(STDIN_FILENO) != 0 ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                             : open("/dev/tty", O_RDONLY | O_CLOEXEC | O_NOCTTY);
    return descriptor{fd}; // without one, signals still end the program
}

descriptor open_signals() {
    sigset_t set;
    (void)sigemptyset(&set);
    for (const int signal : {SIGWINCH, SIGTSTP, SIGCONT, SIGHUP, SIGQUIT}) {
        (void)sigaddset(&set, signal);
    }
    if (sigprocmask(SIG_BLOCK, &set, nullptr) != 0) {
        fail_errno("sigprocmask");
    }
    descriptor signals{signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK)};
    if (signals.get() < 0) {
        fail_errno("signalfd");
    }
    return signals;
}

} // namespace

bool is_redrawable() {
    const char *kind = getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && (kind == nullptr || std::string_view{kind} != "dumb");
}

terminal::terminal() : keyboard_(open_keyboard()), signals_(open_signals()) {
    if (tcgetattr(STDOUT_FILENO, &settings_) != 0) {
        fail_errno("tcgetattr");
    }
    prepare_for_crashes(settings_);
    take_over();
}

terminal::~terminal() {
    give_back(settings_);
    forget_crashes();
}

void terminal::take_over() {
    termios raw = settings_;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    raw.c_iflag &= ~static_cast<tcflag_t>(IXON | ICRNL);
    raw.c_cc[VMIN] = 0; // whoever reads has been told that there is something
    raw.c_cc[VTIME] = 0;
    (void)tcsetattr(STDOUT_FILENO, TCSADRAIN,
                    &raw); // without it the picture is right, and keys wait for Enter
    shown_.clear();
    gone_ = !write_all(k_begin);
}

screen_size terminal::size() {
    winsize now{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &now) != 0 || now.ws_col == 0 || now.ws_row == 0) {
        return {};
    }
    return {now.ws_col, now.ws_row};
}

void terminal::show(const text_screen &lines) {
    std::string text;
    for (size_t i = 0; i < std::max(lines.size(), shown_.size()); ++i) {
        std::string line = i < lines.size() ? lines[i].ansi() : "";
        if (i >= shown_.size() || shown_[i] != line) {
            text += fmt::format("\x1b[{};1H{}\x1b[K", i + 1, line);
        }
        if (i < shown_.size()) {
            shown_[i] = std::move(line);
        } else {
            shown_.push_back(std::move(line));
        }
    }
    shown_.resize(lines.size());
    gone_ = gone_ || !write_all(text);
}

terminal_news terminal::take_news() {
    terminal_news news{.end = gone_};
    read_signals(news);
    read_keys(news);
    return news;
}

void terminal::read_keys(terminal_news &news) {
    std::array<char, 256> bytes{};
    pollfd one{keyboard_.get(), POLLIN, 0};
    if (poll(&one, 1, 0) <= 0) {
        return;
    }
    const ssize_t size = read(keyboard_.get(), bytes.data(), bytes.size());
    if (size > 0) {
        news.keys = reader_.take({bytes.data(), static_cast<size_t>(size)});
    } else if (size == 0 || errno != EINTR) {
        news.end = true; // hung up
    }
}

void terminal::read_signals(terminal_news &news) {
    signalfd_siginfo signal{};
    while (read(signals_.get(), &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal)) {
        switch (signal.ssi_signo) {
        case SIGTSTP:
            stop();
            break;
        case SIGCONT: // a shell has had it meanwhile
            take_over();
            news.redraw = true;
            break;
        case SIGWINCH:
            shown_.clear();
            gone_ = gone_ || !write_all("\x1b[2J");
            news.redraw = true;
            break;
        default:
            news.end = true;
        }
    }
}

/// Comes back when the program is continued, whose SIGCONT is then among the signals.
void terminal::stop() {
    give_back(settings_);
    (void)raise(SIGSTOP);
}

} // namespace vexa
