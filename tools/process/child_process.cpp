// Child processes. Between fork and exec only calls that are safe in a process with other threads are made:
// no fork handlers either, for a library's may want the memory whose lock another thread held.
#include "child_process.h"

#include "descriptors.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

bool readable(int fd, steady_clock::time_point end) {
    pollfd one{fd, POLLIN, 0};
    int result = 0;
    do {
        result = poll(&one, 1, static_cast<int>(left_until(end).count()));
    } while (result < 0 && errno == EINTR);
    return result > 0;
}

void complain(std::string_view text) {
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
}

struct new_process {
    char *const *argv;
    int input;
    int output;
    int error;
    pid_t parent;
    bool apart;
};

[[noreturn]] void become(const new_process &what) {
    sigset_t none;
    (void)sigemptyset(&none);
    (void)sigprocmask(SIG_SETMASK, &none, nullptr);
    if (what.apart) {
        (void)setpgid(0, 0); // cannot fail for a process that was made just now
    }
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != what.parent) {
        _exit(k_cannot_run); // the parent is gone already: the signal would never come
    }
    if (dup2(what.input, STDIN_FILENO) >= 0 && dup2(what.output, STDOUT_FILENO) >= 0 &&
        dup2(what.error, STDERR_FILENO) >= 0) {
        execvp(what.argv[0], what.argv);
    }
    complain("cannot run ");
    complain(what.argv[0]);
    complain("\n");
    _exit(k_cannot_run);
}

int open_error_file(const std::string &name) {
    const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NOCTTY | O_CLOEXEC, 0644);
    if (fd < 0) {
        fail(name.c_str());
    }
    return fd;
}

} // namespace

child_process::child_process(const std::vector<std::string> &args, const settings &how) {
    std::vector<char *> argv;
    argv.reserve(args.size() + 1);
    for (const std::string &arg : args) {
        argv.push_back(const_cast<char *>(arg.c_str())); // exec does not write to them
    }
    argv.push_back(nullptr);
    // A socket pair takes lines without SIGPIPE when the child has gone.
    std::array<int, 2> in{};
    std::array<int, 2> out{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, in.data()) != 0) {
        fail("socketpair");
    }
    input_ = in[0];
    int childs_input = in[1];
    if (pipe2(out.data(), O_CLOEXEC) != 0) {
        close_all();
        close_if_open(childs_input);
        fail("pipe2");
    }
    output_ = out[0];
    int childs_output = out[1];
    int error_file = how.error_file.empty() ? -1 : open_error_file(how.error_file);
    const int error = error_file >= 0 ? error_file : how.merge_errors ? childs_output : STDERR_FILENO;
    const pid_t parent = getpid();
    pid_ = _Fork();
    if (pid_ == 0) {
        become({argv.data(), childs_input, childs_output, error, parent, how.apart});
    }
    close_if_open(childs_input);
    close_if_open(childs_output);
    close_if_open(error_file);
    if (pid_ < 0) {
        close_all();
        fail("fork");
    }
    watch_ = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)); // glibc 2.36 declares its wrapper for C only
    (void)fcntl(output_, F_SETFL, O_NONBLOCK);
}

child_process::~child_process() {
    if (!exit_) {
        signal(SIGKILL);
        (void)waitpid(pid_, nullptr, 0);
    }
    close_all();
}

void child_process::close_all() {
    close_if_open(watch_);
    close_if_open(input_);
    close_if_open(output_);
}

bool child_process::send_line(std::string_view line) const {
    const std::string text = std::string{line} + '\n';
    size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t result = send(input_, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (result < 0 && errno != EINTR) {
            return false;
        }
        sent += result > 0 ? static_cast<size_t>(result) : 0;
    }
    return true;
}

void child_process::end_input() {
    close_if_open(input_);
}

bool child_process::receive() {
    std::array<char, 4096> part{};
    for (;;) {
        const ssize_t size = read(output_, part.data(), part.size());
        if (size > 0) {
            received_.append(part.data(), static_cast<size_t>(size));
        } else if (size == 0) {
            return false;
        } else if (errno != EINTR) {
            return errno == EAGAIN;
        }
    }
}

std::optional<std::string> child_process::take_line() {
    const size_t end = received_.find('\n');
    if (end == std::string::npos) {
        return std::nullopt;
    }
    std::string line = received_.substr(0, end);
    received_.erase(0, end + 1);
    return line;
}

std::optional<std::string> child_process::wait_line(milliseconds patience) {
    const auto end = steady_clock::now() + patience;
    for (;;) {
        const bool more = receive();
        if (auto line = take_line()) {
            return line;
        }
        if (!more || !readable(output_, end)) {
            return std::nullopt;
        }
    }
}

void child_process::signal(int number) const {
    if (!exit_) {
        (void)kill(pid_, number); // not reaped yet, so the id is still this child's
    }
}

std::optional<int> child_process::wait_exit(milliseconds patience) {
    if (exit_ || !readable(watch_, steady_clock::now() + patience)) {
        return exit_;
    }
    int status = 0;
    if (waitpid(pid_, &status, 0) == pid_) {
        exit_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return exit_;
}
