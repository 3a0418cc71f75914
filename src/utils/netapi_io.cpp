// The socket layer: sending, receiving, waiting. See netapi.cpp.
#include "utils/netapi_impl.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <poll.h>

using namespace netapi;

namespace {

constexpr int k_write_wait_ms = 10000; // how long net_writen_timedwait waits before each write

/// One datagram, one system call unless the network says "again". The send path of the message bus.
int send_datagram(int fd, const void *buf, int len, const sockaddr *to, int to_len) {
    if (len < 0 || to_len < 0) {
        return refuse(EINVAL);
    }
    return static_cast<int>(retried(k_patient, [&] {
        return sendto(fd, buf, static_cast<size_t>(len), 0, to, static_cast<socklen_t>(to_len));
    }));
}

/// All of a buffer, in as many sends as the stream asks for.
int send_stream(int fd, const void *buf, int len, const retry_rule &rule) {
    const char *bytes = static_cast<const char *>(buf);
    int sent = 0;
    while (sent < len) {
        const ssize_t step =
            retried(rule, [&] { return send(fd, bytes + sent, static_cast<size_t>(len - sent), 0); });
        if (step < 0) {
            return static_cast<int>(step);
        }
        if (step == 0) {
            break;
        }
        sent += static_cast<int>(step);
    }
    return sent;
}

/// Prints the failure of a call to standard error, and leaves errno as the call has set it.
void print_error(const char *what) {
    const errno_kept keep;
    perror(what);
}

enum class wait_for { reading, writing };

int wait_by_select(int fd, wait_for what, int timeout_ms) {
    return retried(k_at_once, [&] {
        fd_set set;
        timeval left{timeout_ms / 1000, timeout_ms % 1000 * 1000L};
        return what == wait_for::reading ? select_one(fd, &set, nullptr, &left)
                                         : select_one(fd, nullptr, &set, &left);
    });
}

int wait_by_poll(int fd, short events, int timeout_ms) {
    return retried(k_at_once, [&] {
        pollfd one{fd, events, 0};
        return poll(&one, 1, timeout_ms);
    });
}

/// Waits for room, then writes once. 0 only when the descriptor took nothing.
ssize_t net_write_timedwait(int fd, const void *buf, size_t count, int milliseconds) {
    const int ready = net_wait_writeable(fd, milliseconds);
    if (ready < 1) {
        const int error = ready == 0 ? ETIMEDOUT : errno;
        VX_LOG(INFO, "net write fail\n");
        return refuse(error);
    }
    return retried(k_at_once, [&] { return write(fd, buf, count); });
}

} // namespace

int net_send(net_sockfd_t *sockobj, const void *buf, int len) {
    return send_stream(fd_of(sockobj), buf, len, k_stream);
}

int net_sendn(net_sockfd_t *sockobj, const void *buf, int len) {
    return send_stream(fd_of(sockobj), buf, len, k_patient);
}

int net_send_timeout(net_sockfd_t *sockobj, const char *inData, const int inLength,
                     struct timeval *tvTimeOut) {
    const int fd = fd_of(sockobj);
    int sent = 0;
    while (sent < inLength) {
        fd_set writable;
        const int ready = select_one(fd, nullptr, &writable, tvTimeOut);
        if (ready < 0) {
            print_error("select error");
            return -1;
        }
        if (ready == 0) {
            break;
        }
        const ssize_t step = send(fd, inData + sent, static_cast<size_t>(inLength - sent), 0);
        if (step < 0) {
            print_error("Send error");
            if (errno != EINTR && errno != EAGAIN) {
                return -1;
            }
            continue;
        }
        sent += static_cast<int>(step);
    }
    return sent;
}

int net_sendto2_fd(int fd, const void *buf, int buff_len, const struct sockaddr *ptr_addr, int addr_len) {
    if (fd < 1) { // 0 too: more likely a context that was never filled in than a socket
        VX_LOG(INFO, "invalid fd %d\n", fd);
        return refuse(EBADF);
    }
    return send_datagram(fd, buf, buff_len, ptr_addr, addr_len);
}

int net_sendto_fd(int fd, const void *buf, int len, const char *ip, unsigned short port) {
    const ipv4_addr addr{ip, port};
    return net_sendto2_fd(fd, buf, len, addr.get(), ipv4_addr::k_size);
}

int net_sendto2(net_sockfd_t *sockobj, const void *buf, int buff_len, const struct sockaddr *ptr_addr,
                int addr_len) {
    return send_datagram(fd_of(sockobj), buf, buff_len, ptr_addr, addr_len);
}

int net_sendto(net_sockfd_t *sockobj, const void *buf, int len, const char *ip, unsigned short port) {
    const ipv4_addr addr{ip, port};
    return net_sendto2(sockobj, buf, len, addr.get(), ipv4_addr::k_size);
}

int net_sendto_peer(net_sockfd_t *sockobj, const void *buf, int buff_len) {
    if (sockobj == nullptr) {
        return refuse(EBADF);
    }
    return send_datagram(sockobj->sockfd, buf, buff_len,
                         reinterpret_cast<const sockaddr *>(&sockobj->remote_addr), ipv4_addr::k_size);
}

int net_recv(net_sockfd_t *sockobj, void *buf, int len) {
    if (len < 0) { // as a size it would be nearly all of the memory
        return refuse(EINVAL);
    }
    return static_cast<int>(
        retried(k_patient, [&] { return recv(fd_of(sockobj), buf, static_cast<size_t>(len), 0); }));
}

int net_recvfrom(net_sockfd_t *sockobj, void *buf, int buff_len) {
    if (sockobj == nullptr || buff_len < 0) {
        return refuse(sockobj == nullptr ? EBADF : EINVAL);
    }
    auto *from = reinterpret_cast<sockaddr *>(&sockobj->remote_addr);
    socklen_t from_len = sizeof sockobj->remote_addr;
    return static_cast<int>(retried(k_patient, [&] {
        return recvfrom(sockobj->sockfd, buf, static_cast<size_t>(buff_len), 0, from, &from_len);
    }));
}

int net_read_timeout(net_sockfd_t *sockobj, int timeout) {
    return wait_by_select(fd_of(sockobj), wait_for::reading, timeout);
}

int net_write_timeout(net_sockfd_t *sockobj, int timeout) {
    return wait_by_select(fd_of(sockobj), wait_for::writing, timeout);
}

int net_readn_timeout(net_sockfd_t *sockobj, void *buf, int len, unsigned timeout) {
    const int timeout_ms = static_cast<int>(std::min<unsigned>(timeout, INT_MAX)); // 24 days are enough
    const int ready = net_read_timeout(sockobj, timeout_ms);
    if (ready < 1) {
        return ready == 0 ? refuse(ETIMEDOUT) : -1;
    }
    const int received = net_recv(sockobj, buf, len);
    return received < 1 ? -1 : received;
}

int net_wait_readable(int sockfd, int milliseconds) {
    return wait_by_poll(sockfd, POLLIN, milliseconds);
}

int net_wait_writeable(int sockfd, int milliseconds) {
    return wait_by_poll(sockfd, POLLOUT, milliseconds);
}

int net_recv_timedwait(net_sockfd_t *sockobj, void *buf, size_t count, int milliseconds) {
    const int ready = net_wait_readable(fd_of(sockobj), milliseconds);
    if (ready < 1) {
        return ready;
    }
    return net_recv(sockobj, buf, static_cast<int>(std::min<size_t>(count, INT_MAX)));
}

int net_read_timedwait(int fd, void *buf, size_t count, int milliseconds) {
    const int ready = net_wait_readable(fd, milliseconds);
    if (ready < 1) {
        const errno_kept keep;
        VX_LOG(INFO, "net read fail\n");
        return ready;
    }
    const size_t most = std::min<size_t>(count, INT_MAX); // what the result can tell
    return static_cast<int>(retried(k_at_once, [&] { return read(fd, buf, most); }));
}

int net_writen_timedwait(int fd, const void *buf, size_t count) {
    if (count > INT_MAX) { // the result could not tell
        return refuse(EINVAL);
    }
    const char *bytes = static_cast<const char *>(buf);
    for (size_t left = count; left > 0;) {
        const ssize_t step = net_write_timedwait(fd, bytes, left, k_write_wait_ms);
        if (step < 1) {
            return -1;
        }
        bytes += step;
        left -= static_cast<size_t>(step);
    }
    return static_cast<int>(count);
}
