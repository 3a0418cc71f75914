/**
 * @file
 * Children of the test's process.
 */
#ifndef TEST_FORKED_H
#define TEST_FORKED_H

#include "wait.h"

#include <csignal>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

/** A child's exit status; 128 + the signal that ended it. One that does not end is killed. */
inline int status_of(pid_t child) {
    int status = 0;
    if (!wait_until([&] { return waitpid(child, &status, WNOHANG) == child; })) {
        (void)kill(child, SIGKILL);
        (void)waitpid(child, &status, 0);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/** Does something in a child that ends with its result, without any clearing up. */
inline pid_t forked(const std::function<int()> &work) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(work());
    }
    return child;
}

#endif
