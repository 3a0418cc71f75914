// A child process on a pseudo-terminal. See terminal_process.h.
#include "terminal_process.h"

#include "descriptors.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

winsize size_of(size_t columns, size_t rows) {
    winsize size{};
    size.ws_col = static_cast<unsigned short>(columns);
    size.ws_row = static_cast<unsigned short>(rows);
    return size;
}

std::chrono::microseconds sum_of(const rusage &use) {
    const auto time = [](const timeval &t) {
        return std::chrono::seconds(t.tv_sec) + std::chrono::microseconds(t.tv_usec);
    };
    return time(use.ru_utime) + time(use.ru_stime);
}

[[noreturn]] void become(char *const *argv, int terminal, pid_t parent) {
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && getppid() == parent && login_tty(terminal) == 0) {
        execvp(argv[0], argv);
    }
    _exit(k_cannot_run);
}

} // namespace

terminal_process::terminal_process(const std::vector<std::string> &args, size_t columns, size_t rows)
    : grid_(columns, rows) {
    std::vector<char *> argv;
    argv.reserve(args.size() + 1);
    for (const std::string &arg : args) {
        argv.push_back(const_cast<char *>(arg.c_str())); // exec does not write to them
    }
    argv.push_back(nullptr);
    const winsize size = size_of(columns, rows);
    if (openpty(&master_, &slave_, nullptr, nullptr, &size) != 0) {
        fail("openpty");
    }
    (void)fcntl(master_, F_SETFD, FD_CLOEXEC);
    (void)fcntl(slave_, F_SETFD, FD_CLOEXEC);
    const pid_t parent = getpid();
    pid_ = _Fork(); // without handlers, as for any child_process
    if (pid_ == 0) {
        become(argv.data(), slave_, parent);
    }
    if (pid_ < 0) {
        hang_up();
        fail("fork");
    }
    watch_ = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)); // glibc 2.36 declares its wrapper for C only
}

terminal_process::~terminal_process() {
    if (!exit_) {
        signal(SIGKILL);
        (void)waitpid(pid_, nullptr, 0);
    }
    close_if_open(watch_);
    hang_up();
}

/// What it writes next. False when it has ended, with everything taken in, or the time has passed.
bool terminal_process::take_in(milliseconds patience) {
    std::array<pollfd, 2> both = {pollfd{master_, POLLIN, 0}, pollfd{watch_, POLLIN, 0}};
    if (poll(both.data(), both.size(), static_cast<int>(patience.count())) <= 0) {
        return false;
    }
    if ((both[0].revents & POLLIN) == 0) {
        return false;
    }
    std::array<char, 65536> bytes{};
    const ssize_t size = read(master_, bytes.data(), bytes.size());
    if (size > 0) {
        grid_.feed({bytes.data(), static_cast<size_t>(size)});
    }
    return size > 0;
}

bool terminal_process::wait_for(const std::function<bool(const terminal_grid &)> &wanted,
                                milliseconds patience) {
    const auto end = steady_clock::now() + patience;
    while (!wanted(grid_)) {
        if (!take_in(left_until(end))) {
            return wanted(grid_);
        }
    }
    return true;
}

void terminal_process::press(std::string_view keys) const {
    while (!keys.empty()) {
        const ssize_t written = write(master_, keys.data(), keys.size());
        if (written < 0 && errno != EINTR) {
            fail("write to a terminal");
        }
        keys.remove_prefix(written > 0 ? static_cast<size_t>(written) : 0);
    }
}

void terminal_process::resize(size_t columns, size_t rows) {
    grid_.resize(columns, rows);
    const winsize size = size_of(columns, rows);
    if (ioctl(master_, TIOCSWINSZ, &size) != 0) {
        fail("TIOCSWINSZ");
    }
}

void terminal_process::signal(int number) const {
    if (!exit_) {
        (void)kill(pid_, number); // not reaped yet, so the id is still this child's
    }
}

std::optional<int> terminal_process::wait_exit(milliseconds patience) {
    if (exit_) {
        return exit_;
    }
    const auto end = steady_clock::now() + patience;
    while (master_ >= 0 && take_in(left_until(end))) {
    }
    pollfd one{watch_, POLLIN, 0};
    int status = 0;
    rusage use{};
    if (poll(&one, 1, static_cast<int>(left_until(end).count())) > 0 &&
        wait4(pid_, &status, 0, &use) == pid_) {
        exit_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        processor_time_ = sum_of(use);
    }
    return exit_;
}

bool terminal_process::wait_stopped(milliseconds patience) {
    const auto end = steady_clock::now() + patience;
    while (steady_clock::now() < end) {
        int status = 0;
        if (waitpid(pid_, &status, WUNTRACED | WNOHANG) == pid_) {
            if (!WIFSTOPPED(status)) {
                exit_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            }
            return WIFSTOPPED(status);
        }
        (void)take_in(milliseconds(10)); // so that it can write what it has to say before
    }
    return false;
}

termios terminal_process::settings() const {
    termios now{};
    if (tcgetattr(slave_, &now) != 0) {
        fail("tcgetattr");
    }
    return now;
}

void terminal_process::hang_up() {
    close_if_open(master_);
    close_if_open(slave_);
}
