/**
 * @file
 * The program vexa on a terminal: a pseudo-terminal is its standard input and standard error.
 *
 *     terminal screen({"replay", "bus.pcapng", "--pause"});
 *     screen.press("s");
 *     EXPECT_TRUE(screen.shows("1 messages"));
 */
#ifndef TEST_TERMINAL_H
#define TEST_TERMINAL_H

#include <array>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>
#include <vector>

class terminal {
public:
    explicit terminal(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), VEXA_PROGRAM);
        std::vector<char *> argv;
        for (std::string &each : arguments) {
            argv.push_back(each.data());
        }
        argv.push_back(nullptr);
        winsize size{.ws_row = 24, .ws_col = 120, .ws_xpixel = 0, .ws_ypixel = 0};
        EXPECT_EQ(openpty(&fd_, &slave_, nullptr, nullptr, &size), 0);
        pid_ = _Fork(); // without handlers, as for any child_process
        if (pid_ == 0) {
            (void)close(fd_);
            (void)login_tty(slave_);
            (void)execv(argv[0], argv.data());
            _exit(127);
        }
    }
    ~terminal() {
        if (pid_ > 0) {
            (void)kill(pid_, SIGKILL);
            (void)waitpid(pid_, nullptr, 0);
        }
        (void)close(slave_);
        (void)close(fd_);
    }
    terminal(const terminal &) = delete;
    terminal &operator=(const terminal &) = delete;

    void press(const std::string &keys) {
        EXPECT_EQ(write(fd_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    /** Waits until a text has been written behind the one that was found last. */
    bool shows(const std::string &text, std::chrono::seconds patience = std::chrono::seconds(60)) {
        const auto end = std::chrono::steady_clock::now() + patience;
        for (;;) {
            const size_t at = seen_.find(text, found_);
            if (at != std::string::npos) {
                found_ = at + text.size();
                return true;
            }
            pollfd one{fd_, POLLIN, 0};
            std::array<char, 1024> bytes{};
            if (std::chrono::steady_clock::now() > end || poll(&one, 1, 1000) < 0) {
                return false;
            }
            const ssize_t size = one.revents != 0 ? read(fd_, bytes.data(), bytes.size()) : 0;
            seen_.append(bytes.data(), size > 0 ? static_cast<size_t>(size) : 0);
        }
    }

    /** Whether what is typed is shown by the terminal itself, as it is outside of programs with keys. */
    [[nodiscard]] bool echoes() const {
        termios settings{};
        return tcgetattr(slave_, &settings) == 0 && (settings.c_lflag & ECHO) != 0;
    }

    /** Waits for its end; the exit status. */
    int end() {
        int status = 0;
        EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    int fd_ = -1;
    int slave_ = -1; // held, so that what the program wrote last is not lost with it
    pid_t pid_ = -1;
    std::string seen_;
    size_t found_ = 0;
};

#endif
