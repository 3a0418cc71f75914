// The socket layer: options, blocking modes, interface queries. See netapi.cpp.
#include "utils/netapi_impl.h"

#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>

using namespace netapi;

namespace {

constexpr int k_probe_interval_s = 10;
constexpr int k_probes = 3;      // unanswered before the connection is given up
constexpr size_t k_mac_size = 6; // [bytes]

/// 1 for success, 0 for failure: the convention of the three operations that are made of it.
int set_nonblocking(int fd, bool on) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0) {
        return 0;
    }
    return fcntl(fd, F_SETFL, on ? flags | O_NONBLOCK : flags & ~O_NONBLOCK) < 0 ? 0 : 1;
}

template <class Value>
int set_option(net_sockfd_t *sockobj, int level, int name, const Value &value) {
    return setsockopt(fd_of(sockobj), level, name, &value, sizeof value);
}

/// Joins or leaves a multicast group.
int change_membership(const char *function, net_sockfd_t *sockobj, int option, const char *ip) {
    ip_mreq request{}; // interface 0.0.0.0: the routing table chooses
    if (!parse_ipv4(ip, request.imr_multiaddr) || !IN_MULTICAST(ntohl(request.imr_multiaddr.s_addr))) {
        VX_LOG_AS(function, INFO, "address is not multicast address \n");
        return refuse(EINVAL);
    }
    return set_option(sockobj, IPPROTO_IP, option, request);
}

/// Asks the kernel about an interface, through a socket that lives only for the question.
int ask_interface(const char *ifname, unsigned long question, ifreq &answer) {
    if (ifname == nullptr) {
        return refuse(EINVAL);
    }
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) {
        return -1;
    }
    answer = {};
    strncpy(answer.ifr_name, ifname, sizeof answer.ifr_name - 1); // the last byte stays its end
    const int result = ioctl(fd, question, &answer);
    const errno_kept keep;
    (void)close(fd); // nothing was written through it
    return result < 0 ? -1 : 0;
}

} // namespace

int net_set_socket_noblock(net_sockfd_t *sockobj) {
    return net_set_fd_noblock(fd_of(sockobj));
}

int net_set_fd_noblock(int fd) {
    return set_nonblocking(fd, true);
}

int net_set_socket_block(net_sockfd_t *sockobj) {
    return set_nonblocking(fd_of(sockobj), false);
}

int net_set_reuse_addr(net_sockfd_t *sockobj, int flag) {
    const int result = set_option(sockobj, SOL_SOCKET, SO_REUSEADDR, flag);
    if (result < 0) {
        const errno_kept keep;
        VX_LOG(INFO, "setsockopt(SO_REUSEADDR) error \n");
    }
    return result;
}

int net_set_sendbuf_size(net_sockfd_t *sockobj, int isize) {
    const int result = set_option(sockobj, SOL_SOCKET, SO_SNDBUF, isize);
    if (result < 0) {
        const errno_kept keep;
        VX_LOG(INFO, "SetSocketSendBufSize error \n");
    }
    return result;
}

int net_get_sendbuf_size(net_sockfd_t *sockobj) {
    int size = 0;
    if (get_int_option(fd_of(sockobj), SO_SNDBUF, size) < 0) {
        const errno_kept keep;
        VX_LOG(INFO, "GetSendBufferSize() error ");
        return -1;
    }
    return size;
}

int net_set_recvbuf_size(net_sockfd_t *sockobj, int isize) {
    const int result = set_option(sockobj, SOL_SOCKET, SO_RCVBUF, isize);
    if (result < 0) {
        const errno_kept keep;
        VX_LOG(INFO, "SetSocketRcvBufSize error \n");
    }
    return result;
}

int net_get_recvbuf_size(net_sockfd_t *sockobj) {
    int size = 0;
    if (get_int_option(fd_of(sockobj), SO_RCVBUF, size) < 0) {
        const errno_kept keep;
        VX_LOG(INFO, "GetRecvBufferSize() error ");
        return -1;
    }
    return size;
}

unsigned net_set_keep_alive_time(net_sockfd_t *sockobj, unsigned requestedtime) {
    int sum = set_option(sockobj, SOL_SOCKET, SO_KEEPALIVE, 1);
    sum += set_option(sockobj, IPPROTO_TCP, TCP_KEEPIDLE, requestedtime);
    sum += set_option(sockobj, IPPROTO_TCP, TCP_KEEPINTVL, k_probe_interval_s);
    sum += set_option(sockobj, IPPROTO_TCP, TCP_KEEPCNT, k_probes);
    return static_cast<unsigned>(sum);
}

int mcast_join(net_sockfd_t *sockobj, const char *ip) {
    return change_membership(__func__, sockobj, IP_ADD_MEMBERSHIP, ip);
}

int net_mcast_leave(net_sockfd_t *sockobj, const char *ip) {
    return change_membership(__func__, sockobj, IP_DROP_MEMBERSHIP, ip);
}

int net_set_multicast_loop(net_sockfd_t *sockobj) {
    return set_option(sockobj, IPPROTO_IP, IP_MULTICAST_LOOP, 1);
}

int net_bcast_join(net_sockfd_t *sockobj) {
    return set_option(sockobj, SOL_SOCKET, SO_BROADCAST, 1);
}

int net_get_hwaddr(const char *ifname, unsigned char *mac) {
    ifreq answer;
    if (mac == nullptr) {
        return refuse(EINVAL);
    }
    if (ask_interface(ifname, SIOCGIFHWADDR, answer) < 0) {
        return -1;
    }
    memcpy(mac, answer.ifr_hwaddr.sa_data, k_mac_size);
    return 0;
}

char *net_get_ifaddr(const char *ifname) {
    ifreq answer;
    if (ask_interface(ifname, SIOCGIFADDR, answer) < 0) {
        return nullptr;
    }
    sockaddr_in addr{};
    memcpy(&addr, &answer.ifr_addr, sizeof addr);
    return inet_ntoa(addr.sin_addr);
}
