// The border between the library and the system: the program's own sendto and recvfrom stand before the
// system's, for the library as for everybody in the process, and tell the record what passes.
#include "node_record.h"

#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <sys/socket.h>

namespace {

using send_function = ssize_t (*)(int, const void *, size_t, int, const sockaddr *, socklen_t);
using receive_function = ssize_t (*)(int, void *, size_t, int, sockaddr *, socklen_t *);

/// The next definition of a function behind the program's own: the system's, or a sanitizer's before it.
template <class Function>
Function next_definition(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

bool will_be_repeated(int error) {
    return error == EINTR || error == EAGAIN;
}

} // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the system names them with underscores
extern "C" {

ssize_t sendto(int fd, const void *buf, size_t len, int flags, const sockaddr *to, socklen_t to_len) {
    static const auto system_sendto = next_definition<send_function>("sendto");
    const ssize_t sent = system_sendto(fd, buf, len, flags, to, to_len);
    const int error = errno;
    if ((sent >= 0 || !will_be_repeated(error)) && to_len == sizeof(sockaddr_in)) {
        sockaddr_in address{};
        memcpy(&address, to, sizeof address);
        soak::record_sent({static_cast<const uint8_t *>(buf), len}, address, sent >= 0);
    }
    errno = error;
    return sent;
}

ssize_t recvfrom(int fd, void *buf, size_t len, int flags, sockaddr *from, socklen_t *from_len) {
    static const auto system_recvfrom = next_definition<receive_function>("recvfrom");
    const ssize_t size = system_recvfrom(fd, buf, len, flags, from, from_len);
    if (size >= 0) {
        soak::record_read({static_cast<const uint8_t *>(buf), static_cast<size_t>(size)});
    }
    return size;
}

} // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
