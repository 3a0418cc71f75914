/**
 * @file
 * What the sources of the socket layer share: the address builder, the descriptor of an object, and the one
 * retry loop with its three rules.
 */
#ifndef NETAPI_IMPL_H
#define NETAPI_IMPL_H

#include "utils/netapi.h"

#include "vx_log.h"

#include <arpa/inet.h>
#include <cerrno>
#include <initializer_list>
#include <netinet/in.h>
#include <sys/select.h>
#include <unistd.h>

namespace netapi {

constexpr char k_unit[] = "src/utils/netapi"; // one unit in the log, whichever source a line is in

/// A failure of the layer's own making.
inline int refuse(int error) {
    errno = error;
    return -1;
}

/// Keeps errno for the caller while a failure is logged and cleaned up after.
class errno_kept {
public:
    errno_kept() = default;
    ~errno_kept() { errno = error_; }
    errno_kept(const errno_kept &) = delete;
    errno_kept &operator=(const errno_kept &) = delete;

private:
    int error_ = errno;
};

/// -1 is closed, and no object is as good as a closed one: the system call then answers EBADF.
inline int fd_of(const net_sockfd_t *sockobj) {
    return sockobj == nullptr ? -1 : sockobj->sockfd;
}

/// Reads four decimal numbers between dots, and nothing else, as inet_pton does, but without a call out of
/// the library: every message that is sent comes by here. Leaves the address zero for a text that is none.
bool parse_ipv4(const char *text, in_addr &address);

/// An IPv4 address for the kernel.
class ipv4_addr {
public:
    ipv4_addr(const char *ip, unsigned short port) {
        addr_.sin_family = AF_INET;
        addr_.sin_port = htons(port);
        (void)parse_ipv4(ip, addr_.sin_addr); // no text and wrong text both mean 0.0.0.0
    }
    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&addr_); }

    static constexpr socklen_t k_size = sizeof(sockaddr_in);

private:
    sockaddr_in addr_{};
};
static_assert(ipv4_addr::k_size == 16);

/// When a system call that failed is made again, and how soon.
struct retry_rule {
    bool on_again;       ///< EAGAIN too, not only EINTR
    useconds_t pause_us; ///< 0: at once
};
constexpr retry_rule k_stream{false, 1000};
constexpr retry_rule k_patient{true, 1000};
constexpr retry_rule k_at_once{true, 0};

/// Makes a system call until it succeeds or fails for a reason that the rule does not name.
template <class Call>
auto retried(const retry_rule &rule, Call call) {
    for (;;) {
        const auto result = call();
        if (result >= 0 || !(errno == EINTR || (rule.on_again && errno == EAGAIN))) {
            return result;
        }
        if (rule.pause_us != 0) {
            (void)usleep(rule.pause_us); // a signal that ends it early only brings the next try forward
        }
    }
}

/// Whether a descriptor has a place in a descriptor set. FD_SET beyond its end would write over other memory.
inline bool selectable(int fd) {
    if (fd < 0 || fd >= FD_SETSIZE) {
        (void)refuse(fd < 0 ? EBADF : EINVAL);
        return false;
    }
    return true;
}

/// Waits once for one descriptor, for whichever of the two sets is given. The sets are filled here.
inline int select_one(int fd, fd_set *readable, fd_set *writable, timeval *left) {
    if (!selectable(fd)) {
        return -1;
    }
    for (fd_set *set : {readable, writable}) {
        if (set != nullptr) {
            FD_ZERO(set);
            FD_SET(fd, set);
        }
    }
    return select(fd + 1, readable, writable, nullptr, left);
}

/// Reads an option of the socket level that is an int.
inline int get_int_option(int fd, int name, int &value) {
    socklen_t len = sizeof value;
    return getsockopt(fd, SOL_SOCKET, name, &value, &len);
}

} // namespace netapi

#endif
