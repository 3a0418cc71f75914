/* The same with what a node's start is made of: a thread for the loop, one that says hello and one that
   waits, two pipes, a second socket for the message. What a node takes beyond this is the library's own
   doing. */
#include "bare_start.h"

#include <fcntl.h>
#include <pthread.h>
#include <stdlib.h>
#include <unistd.h>

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t never = PTHREAD_COND_INITIALIZER;

static void *wait_for_ever(void *unused) {
    (void)pthread_mutex_lock(&lock);
    for (;;) {
        (void)pthread_cond_wait(&never, &lock);
    }
    return unused;
}

static void *say_hello(void *unused) {
    send_bytes(sock, k_hello_bytes);
    return wait_for_ever(unused);
}

static void start(void *(*body)(void *)) {
    pthread_t thread;
    if (pthread_create(&thread, NULL, body, NULL) != 0) {
        exit(EXIT_FAILURE);
    }
}

static void *run_loop(void *unused) {
    if (open_socket() != 0) {
        exit(EXIT_FAILURE);
    }
    ev_io readable;
    struct ev_loop *loop = make_loop(&readable);
    start(say_hello);
    ev_run(loop, 0);
    return unused;
}

static int answering_socket(void) {
    const int made = socket(AF_INET, SOCK_DGRAM, 0);
    (void)fcntl(made, F_SETFD, FD_CLOEXEC);
    return made;
}

static void make_pipe(int flags) {
    int ends[2];
    if (pipe(ends) != 0) {
        exit(EXIT_FAILURE);
    }
    for (int i = 0; i < 2; ++i) {
        (void)fcntl(ends[i], F_SETFD, FD_CLOEXEC);
        if (flags != 0) {
            (void)fcntl(ends[i], F_SETFL, fcntl(ends[i], F_GETFL) | flags);
        }
    }
}

int main(void) {
    make_pipe(O_NONBLOCK);
    make_pipe(0);
    start(run_loop);
    start(wait_for_ever);
    for (;;) {
        (void)pause();
    }
}
