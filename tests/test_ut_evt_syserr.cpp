// What happens when a system call fails inside libev: one line to syslog and standard error, then libev tries
// again.
#include "faults.h"
#include "utils/ut_evt.h"
#include "utils/ut_timer.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

namespace {

struct report {
    std::string identity;
    int options;
    int facility;
    int priority;
    std::string format;
    bool closed;
};

std::vector<report> reports; // what went to syslog, oldest first

/// libev's way of telling about an error, as the library installed it.
void (*told)(const char *msg) noexcept = nullptr;

template <class Function>
Function real(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

// These come before the C library's and libev's own when the program is loaded; each passes its call on.

extern "C" void openlog(const char *ident, int option, int facility) {
    reports.push_back({ident, option, facility, -1, "", false});
    real<decltype(&openlog)>("openlog")(ident, option, facility);
}

extern "C" void syslog(int pri, const char *fmt, ...) {
    reports.back().priority = pri;
    reports.back().format = fmt;
    va_list args;
    va_start(args, fmt);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" // the compiler checked it at the call
    vsyslog(pri, fmt, args);
#pragma GCC diagnostic pop
    va_end(args);
}

extern "C" void closelog() {
    reports.back().closed = true;
    real<decltype(&closelog)>("closelog")();
}

extern "C" void ev_set_syserr_cb(void (*callback)(const char *msg) noexcept) noexcept {
    told = callback;
    real<decltype(&ev_set_syserr_cb)>("ev_set_syserr_cb")(callback);
}

namespace {

std::string own_name() {
    return program_invocation_short_name;
}

/// Standard error, kept in memory for the length of a scope.
class captured_stderr {
public:
    captured_stderr() : saved_(dup(STDERR_FILENO)), file_(memfd_create("stderr", 0)) {
        (void)dup2(file_, STDERR_FILENO);
    }
    ~captured_stderr() { (void)text(); }
    captured_stderr(const captured_stderr &) = delete;
    captured_stderr &operator=(const captured_stderr &) = delete;

    /// What was written; puts the true standard error back.
    std::string text() {
        if (saved_ < 0) {
            return "";
        }
        (void)dup2(saved_, STDERR_FILENO);
        close(saved_);
        saved_ = -1;
        std::string all(static_cast<size_t>(lseek(file_, 0, SEEK_END)), '\0');
        EXPECT_EQ(pread(file_, all.data(), all.size(), 0), static_cast<ssize_t>(all.size()));
        close(file_);
        return all;
    }

private:
    int saved_;
    int file_;
};

/// The descriptor on which libev waits.
int epoll_descriptor() {
    DIR *all = opendir("/proc/self/fd");
    int found = -1;
    while (const dirent *entry = readdir(all)) {
        char target[64] = {};
        (void)readlinkat(dirfd(all), entry->d_name, target, sizeof target - 1);
        if (strcmp(target, "anon_inode:[eventpoll]") == 0) {
            found = static_cast<int>(strtol(entry->d_name, nullptr, 10));
        }
    }
    closedir(all);
    return found;
}

int epoll_fd = -1;    // libev's
int epoll_saved = -1; // the same one, while its number stands for something that cannot be waited on

void repair() {
    (void)dup2(epoll_saved, epoll_fd);
}

} // namespace

TEST(SystemErrors, AreToldToTheLibraryOnceThereIsALoop) {
    ut_loop_init();
    EXPECT_NE(told, nullptr);
}

TEST(SystemErrors, GoToSyslogUnderTheProgramsNameAndToStandardError) {
    ut_loop_init();
    ASSERT_NE(told, nullptr);
    captured_stderr err;
    told("100% wrong");
    EXPECT_EQ(err.text(), own_name() + "[" + std::to_string(getpid()) + "]: 100% wrong\n");
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].identity, own_name());
    EXPECT_EQ(reports[0].options, 0x21);
    EXPECT_EQ(reports[0].facility, 24);
    EXPECT_EQ(reports[0].priority, 3);
    EXPECT_EQ(reports[0].format, "%s");
    EXPECT_TRUE(reports[0].closed); // or syslog would go on with a name that is gone
}

TEST(SystemErrors, GoUnderTheLibrarysNameWhenTheProgramsCannotBeRead) {
    ut_loop_init();
    ASSERT_NE(told, nullptr);
    faults::fail(faults::call::readlink, EACCES, 1);
    captured_stderr err;
    told("wrong");
    EXPECT_EQ(err.text(), "vexamsg[" + std::to_string(getpid()) + "]: wrong\n");
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].identity, "vexamsg");
    EXPECT_TRUE(reports[0].closed);
}

TEST(SystemErrors, InsideTheLoopAreReportedAndTheLoopGoesOn) {
    int fired = 0;
    ut_timer timer{};
    ut_timer_set(
        &timer, 0.02, false, [](ut_timer *, void *count) { ++*static_cast<int *>(count); }, &fired);
    ut_timer_start(&timer);
    epoll_fd = epoll_descriptor();
    ASSERT_GE(epoll_fd, 0);
    epoll_saved = dup(epoll_fd);
    const int no_epoll = open("/dev/null", O_RDONLY);
    ASSERT_EQ(dup2(no_epoll, epoll_fd), epoll_fd);
    faults::before(faults::call::readlink, repair); // the report is the first thing after the failure
    captured_stderr err;
    ut_loop_run();
    EXPECT_EQ(err.text(), own_name() + "[" + std::to_string(getpid()) + "]: (libev) epoll_wait\n");
    EXPECT_EQ(reports.size(), 1U);
    EXPECT_EQ(fired, 1);
    close(no_epoll);
    close(epoll_saved);
}
