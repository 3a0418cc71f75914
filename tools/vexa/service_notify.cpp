// One datagram to a Unix socket. See service_notify.h.
#include "service_notify.h"

#include "bench_socket.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>

namespace vexa {

int notify_service_manager(std::string_view state) {
    const char *name = getenv("NOTIFY_SOCKET");
    if (name == nullptr || *name == '\0') {
        return 0;
    }
    const std::string_view path{name};
    sockaddr_un to{};
    if ((path.front() != '/' && path.front() != '@') || path.size() >= sizeof to.sun_path) {
        return path.size() >= sizeof to.sun_path ? ENAMETOOLONG : EAFNOSUPPORT;
    }
    to.sun_family = AF_UNIX;
    memcpy(to.sun_path, path.data(), path.size());
    if (path.front() == '@') {
        to.sun_path[0] = '\0';
    }
    // An abstract name ends with its last byte: a NUL more would be part of it.
    const size_t size = offsetof(sockaddr_un, sun_path) + path.size() + (path.front() == '/' ? 1 : 0);

    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return errno;
    }
    const descriptor owner{fd};
    const ssize_t sent = sendto(fd, state.data(), state.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                                reinterpret_cast<const sockaddr *>(&to), static_cast<socklen_t>(size));
    return sent < 0 ? errno : 0;
}

} // namespace vexa
