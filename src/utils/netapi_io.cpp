// The socket layer: sending, receiving, waiting. See netapi.cpp.
#include "utils/netapi_impl.h"

using namespace netapi;

namespace {

/// One datagram, one system call unless the network says "again". The send path of the message bus.
int send_datagram(int fd, const void *buf, int len, const sockaddr *to, int to_len) {
    if (len < 0 || to_len < 0) {
        return refuse(EINVAL);
    }
    return static_cast<int>(retried(k_patient, [&] {
        return sendto(fd, buf, static_cast<size_t>(len), 0, to, static_cast<socklen_t>(to_len));
    }));
}

} // namespace

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
