// The socket layer: opening, binding, connecting and closing. Sending, receiving and waiting are in
// netapi_io.cpp, options and interface queries in netapi_opt.cpp.
//
// Runs on the caller's thread and keeps no state. A server or connection that is opened in several steps is
// closed again when a later step fails, so that the caller's object never holds half a socket.
#include "utils/netapi_impl.h"

#include <cstring>
#include <sys/select.h>
#include <sys/un.h>

using namespace netapi;

namespace {

constexpr int k_backlog = 5; // connections that may wait to be accepted

int close_failed(net_sockfd_t *sockobj) {
    const errno_kept keep;
    (void)net_close(sockobj); // always 0
    return -1;
}

/// What has become of a connect that is under way, after at most `timeout_s`.
int connect_outcome(int fd, int timeout_s) {
    fd_set readable;
    fd_set writable;
    timeval left{timeout_s, 0};
    if (!selectable(fd)) { // the sets are looked at below even when select has failed
        return -1;
    }
    if (select_one(fd, &readable, &writable, &left) == 0) {
        return refuse(ETIMEDOUT);
    }
    // A failed select leaves the sets as they were filled, so it counts as ready: the error state decides.
    const bool ready = FD_ISSET(fd, &readable) || FD_ISSET(fd, &writable);
    int error = 0;
    if (!ready || get_int_option(fd, SO_ERROR, error) < 0) {
        return -1;
    }
    return error == 0 ? 0 : refuse(error);
}

/// One of the four numbers, and how it ends. Null when it is none.
const char *parse_byte(const char *text, char end, uint8_t &byte) {
    const char *const first = text;
    unsigned value = 0;
    for (; *text >= '0' && *text <= '9' && value <= UINT8_MAX; ++text) {
        value = value * 10 + static_cast<unsigned>(*text - '0');
    }
    const bool padded = *first == '0' && text - first > 1;
    if (text == first || value > UINT8_MAX || padded || *text != end) {
        return nullptr;
    }
    byte = static_cast<uint8_t>(value);
    return text + 1;
}

} // namespace

bool netapi::parse_ipv4(const char *text, in_addr &address) {
    constexpr char ends[] = "..."; // and the text's own
    uint8_t bytes[sizeof ends]{};
    address.s_addr = INADDR_ANY;
    for (size_t i = 0; i < sizeof ends && text != nullptr; ++i) {
        text = parse_byte(text, ends[i], bytes[i]);
    }
    if (text == nullptr) {
        return false;
    }
    memcpy(&address.s_addr, bytes, sizeof bytes); // in the network's order, as in the text
    return true;
}

int net_socket(net_sockfd_t *sockobj, int domain, int type) {
    if (sockobj == nullptr) {
        return refuse(EBADF);
    }
    sockobj->sockfd = socket(domain, type, 0);
    if (sockobj->sockfd < 0) {
        const errno_kept keep;
        VX_LOG(INFO, "socket : %s\n", strerror(errno));
        return -1;
    }
    return sockobj->sockfd;
}

int net_bind(net_sockfd_t *sockobj, const char *ip, unsigned short port) {
    const ipv4_addr addr{ip, port};
    const int result = bind(fd_of(sockobj), addr.get(), ipv4_addr::k_size);
    if (result < 0) {
        const errno_kept keep;
        VX_LOG(INFO, "bind : %s\n", strerror(errno));
    }
    return result;
}

int net_listen(net_sockfd_t *sockobj, int num) {
    if (listen(fd_of(sockobj), num) < 0) {
        const errno_kept keep;
        VX_LOG(INFO, "listen : %s\n", strerror(errno));
        return -1;
    }
    return 0;
}

int net_accept(net_sockfd_t *sockobj, net_sockfd_t *sock_conn) {
    if (sock_conn == nullptr) {
        return refuse(EINVAL);
    }
    socklen_t len = sizeof sock_conn->remote_addr;
    sock_conn->sockfd = accept(fd_of(sockobj), reinterpret_cast<sockaddr *>(&sock_conn->remote_addr), &len);
    return sock_conn->sockfd;
}

int net_connect_domain(net_sockfd_t *sockobj, const char *local_domain) {
    if (local_domain == nullptr) {
        return refuse(EINVAL);
    }
    sockaddr_un addr{};
    const size_t len = strnlen(local_domain, sizeof addr.sun_path);
    if (len == sizeof addr.sun_path) { // no room for the NUL
        return refuse(ENAMETOOLONG);
    }
    addr.sun_family = AF_UNIX;
    memcpy(addr.sun_path, local_domain, len);
    return connect(fd_of(sockobj), reinterpret_cast<const sockaddr *>(&addr), sizeof addr);
}

int net_connect(net_sockfd_t *sockobj, const char *remote_addr, unsigned short remote_port) {
    const ipv4_addr addr{remote_addr, remote_port};
    return connect(fd_of(sockobj), addr.get(), ipv4_addr::k_size);
}

int net_connect_nonb(net_sockfd_t *sockobj, const char *remote_addr, unsigned short remote_port,
                     int timeout) {
    if (net_connect(sockobj, remote_addr, remote_port) == 0) {
        return 0;
    }
    return errno == EINPROGRESS ? connect_outcome(fd_of(sockobj), timeout) : -1;
}

int net_tcp_connect_block(net_sockfd_t *sockobj, const char *ip, int port) {
    if (net_socket(sockobj, AF_INET, SOCK_STREAM) < 0) {
        return -1;
    }
    // Narrowed, not refused: a caller may keep a high port in a signed short.
    return net_connect(sockobj, ip, static_cast<unsigned short>(port)) < 0 ? close_failed(sockobj) : 0;
}

int net_tcp_connect(net_sockfd_t *sockobj, const char *ip, int port, int timeout) {
    if (net_socket(sockobj, AF_INET, SOCK_STREAM) < 0) {
        return -1;
    }
    (void)net_set_socket_noblock(sockobj); // if it fails, the connect below blocks, and is still right
    return net_connect_nonb(sockobj, ip, static_cast<unsigned short>(port), timeout) < 0
               ? close_failed(sockobj)
               : 0;
}

int net_tcp_server(net_sockfd_t *sockobj, const char *ip, unsigned short port, int blockflag) {
    if (net_socket(sockobj, AF_INET, SOCK_STREAM) < 0) {
        return -1;
    }
    (void)net_set_reuse_addr(sockobj, 1); // a server without it still serves
    if (blockflag != 0) {                 // the flag's sense is the contract: set means NON-blocking
        (void)net_set_socket_noblock(sockobj);
    }
    if (net_bind(sockobj, ip, port) < 0 || net_listen(sockobj, k_backlog) < 0) {
        return close_failed(sockobj);
    }
    return 0;
}

int net_udp_server(net_sockfd_t *sockobj, const char *ip, unsigned short port) {
    if (sockobj == nullptr) {
        return refuse(EBADF);
    }
    *sockobj = {};
    if (net_socket(sockobj, AF_INET, SOCK_DGRAM) < 0) {
        return -1;
    }
    (void)net_set_reuse_addr(sockobj, 1); // a server without it still serves
    (void)net_set_socket_noblock(sockobj);
    return net_bind(sockobj, ip, port) < 0 ? close_failed(sockobj) : 0;
}

int net_udp_client(net_sockfd_t *sockobj) {
    return net_socket(sockobj, AF_INET, SOCK_DGRAM) < 0 ? -1 : 0;
}

int net_close(net_sockfd_t *sockobj) {
    if (fd_of(sockobj) == -1) {
        return 0;
    }
    (void)close(sockobj->sockfd); // the descriptor is gone whatever it says
    sockobj->sockfd = -1;
    return 0;
}
