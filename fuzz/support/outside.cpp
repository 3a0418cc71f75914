// Stands between the library and the system. See outside.h.
#include "outside.h"

#include "check.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <mutex>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

using fuzz::bytes;
using fuzz::outside::answer;
using fuzz::outside::datagram;
using fuzz::outside::request;

constexpr uint8_t k_manager_kind = 2; // of a message, in its fourth byte

const std::thread::id own_thread = std::this_thread::get_id();
std::vector<datagram> sent;
std::mutex others; // held for what follows
std::condition_variable more_sent;
std::vector<datagram> sent_by_threads;
std::deque<answer> sends;
std::deque<answer> receives;
request last;
bytes interface;

bytes copy_of(const void *from, size_t size) {
    const auto *begin = static_cast<const uint8_t *>(from);
    bytes copied(size);
    if (size != 0) {
        memcpy(copied.data(), begin, size); // looked at by the address sanitizer, as the kernel would look
    }
    return copied;
}

ssize_t send_from_thread(datagram from_thread) {
    const std::lock_guard hold{others};
    const auto size = static_cast<ssize_t>(from_thread.content.size());
    if (from_thread.content.size() < 4 || from_thread.content[3] != k_manager_kind) {
        sent_by_threads.push_back(std::move(from_thread));
        more_sent.notify_all();
    }
    return size;
}

int refuse(int error) {
    errno = error;
    return -1;
}

answer next(std::deque<answer> &answers, int when_none_is_left) {
    if (answers.empty()) {
        return {when_none_is_left, {}};
    }
    answer taken = std::move(answers.front());
    answers.pop_front();
    return taken;
}

} // namespace

namespace fuzz::outside {

std::vector<datagram> take_sent() {
    return std::exchange(sent, {});
}

std::vector<datagram> await_sent_by_threads(size_t count) {
    std::unique_lock hold{others};
    const auto all_there = [count] { return sent_by_threads.size() >= count; };
    FUZZ_CHECK(more_sent.wait_for(hold, std::chrono::seconds(10), all_there));
    return std::exchange(sent_by_threads, {});
}

void plan_sends(std::deque<answer> answers) {
    sends = std::move(answers);
}

void plan_receives(std::deque<answer> answers) {
    receives = std::move(answers);
}

size_t receives_left() {
    return receives.size();
}

request take_request() {
    return std::exchange(last, {});
}

void plan_interface(const bytes &answer) {
    interface = answer;
}

} // namespace fuzz::outside

// The names are the linker's: --wrap=bind sends calls of bind to __wrap_bind.
// NOLINTBEGIN(bugprone-reserved-identifier)

#define WRAPPED(result, name, ...)                                                                           \
    extern "C" result __wrap_##name(__VA_ARGS__);                                                            \
    extern "C" result __wrap_##name(__VA_ARGS__)

WRAPPED(ssize_t, sendto, int fd, const void *buf, size_t n, int /*flags*/, const sockaddr *to,
        socklen_t len) {
    FUZZ_CHECK(fd > 0 && len == sizeof(sockaddr_in));
    sockaddr_in addr{};
    memcpy(&addr, to, sizeof addr);
    datagram whole{ntohl(addr.sin_addr.s_addr), ntohs(addr.sin_port), copy_of(buf, n)};
    if (std::this_thread::get_id() != own_thread) {
        return send_from_thread(std::move(whole));
    }
    const answer given = next(sends, 0);
    if (given.error != 0) {
        return refuse(given.error);
    }
    sent.push_back(std::move(whole));
    return static_cast<ssize_t>(n);
}

WRAPPED(ssize_t, recvfrom, int /*fd*/, void *buf, size_t n, int /*flags*/, sockaddr *from, socklen_t *len) {
    const answer given = next(receives, EAGAIN);
    if (given.error != 0) {
        return refuse(given.error);
    }
    memset(from, 0x5A, *len);
    *len += 12; // an address that did not fit is told by its whole length
    const size_t count = std::min(n, given.content.size());
    std::copy_n(given.content.begin(), count, static_cast<uint8_t *>(buf));
    return static_cast<ssize_t>(count);
}

WRAPPED(int, bind, int /*fd*/, const sockaddr *addr, socklen_t len) {
    if (std::this_thread::get_id() != own_thread) {
        return 0;
    }
    last.address = copy_of(addr, len);
    ++last.count;
    return 0;
}

WRAPPED(int, connect, int /*fd*/, const sockaddr *addr, socklen_t len) {
    last.address = copy_of(addr, len);
    ++last.count;
    return 0;
}

WRAPPED(int, setsockopt, int /*fd*/, int level, int name, const void *value, socklen_t len) {
    last.level = level;
    last.name = name;
    last.value = copy_of(value, len);
    ++last.count;
    return 0;
}

WRAPPED(int, chmod, const char *path, mode_t /*mode*/) {
    last.text = path;
    ++last.count;
    return 0;
}

WRAPPED(int, usleep, useconds_t /*us*/) {
    return 0;
}

WRAPPED(int, ioctl, int /*fd*/, unsigned long question, ...) {
    va_list args;
    va_start(args, question);
    auto *asked = va_arg(args, ifreq *);
    va_end(args);
    last.text = std::string(asked->ifr_name, strnlen(asked->ifr_name, sizeof asked->ifr_name));
    FUZZ_CHECK(last.text.size() < sizeof asked->ifr_name);
    ++last.count;
    if (interface.empty()) {
        return refuse(ENODEV);
    }
    memcpy(&asked->ifr_addr, interface.data(), std::min(interface.size(), sizeof asked->ifr_addr));
    return 0;
}

// NOLINTEND(bugprone-reserved-identifier)
