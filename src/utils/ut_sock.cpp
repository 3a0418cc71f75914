// Socket addresses as text and back, and socket options by name.
//
// Runs on the caller's thread and never logs. The only state are the two buffers behind the functions that
// return text without being given a place for it.
#include "utils/ut_sock.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <netinet/tcp.h>
#include <strings.h>
#include <sys/stat.h>

namespace {

constexpr size_t k_path_room =
    sizeof(sockaddr_un::sun_path); // [bytes] a path that the system gives may fill it

constinit char human_addr_text[UT_SOCK_HUMAN_ADDR_SIZE]; // last result of ut_sock_human_addr
constinit char ip_text[48];                              // last result of ut_sock_ip

static_assert(sizeof(sockaddr_in) == 16 && sizeof(sockaddr_in6) == 28 && sizeof(sockaddr_un) == 110,
              "the lengths that callers are told");
static_assert(sizeof ip_text >= UT_SOCK_IP_SIZE && UT_SOCK_IP_SIZE == INET6_ADDRSTRLEN);
static_assert(UT_SOCK_HUMAN_ADDR_SIZE > sizeof "unix:" + k_path_room);

struct scheme_t {
    const char *name;
    int sock_type;
    bool is_local; ///< a path follows; otherwise host and port
};
constexpr auto k_schemes = std::to_array<scheme_t>({
    {"tcp", SOCK_STREAM, false},
    {"udp", SOCK_DGRAM, false},
    {"stream", SOCK_STREAM, true},
    {"dgram", SOCK_DGRAM, true},
    {"seqpacket", SOCK_SEQPACKET, true},
});

const scheme_t *find_scheme(const char *name) {
    for (const scheme_t &scheme : k_schemes) {
        if (strcasecmp(scheme.name, name) == 0) {
            return &scheme;
        }
    }
    return nullptr;
}

struct free_memory {
    void operator()(char *memory) const { free(memory); }
};
using text_copy = std::unique_ptr<char, free_memory>;

text_copy copy_of(const char *text) {
    const size_t size = strlen(text) + 1;
    text_copy copy{static_cast<char *>(malloc(size))};
    if (copy) {
        memcpy(copy.get(), text, size);
    }
    return copy;
}

int parse_host_port(char *text, ut_addr_t *addr) {
    char *colon = strchr(text, ':');
    if (colon == nullptr) {
        return -3;
    }
    *colon = '\0';
    memset(addr, 0, sizeof *addr);
    // What ends at the first colon cannot be an IPv6 address, so IPv4 is all there is to try. Callers count
    // on the refusal; do not widen this.
    if (inet_pton(AF_INET, text, &addr->in.sin_addr) != 1) {
        return -4;
    }
    addr->in.sin_family = AF_INET;
    addr->in.sin_port = htons(static_cast<uint16_t>(strtoul(colon + 1, nullptr, 0)));
    addr->family = AF_INET;
    addr->addrlen = sizeof addr->in;
    return 0;
}

/// A local address's path as a string: one that came from the system may fill its field without a NUL.
struct local_path {
    explicit local_path(const ut_addr_t &addr) { memcpy(text, addr.un.sun_path, k_path_room); }
    char text[k_path_room + 1] = {};
};

unsigned int host_order_port(const ut_addr_t &addr) {
    return ntohs(addr.family == AF_INET ? addr.in.sin_port : addr.in6.sin6_port);
}

/// Takes what getpeername or getsockname says. Goes through a cleared address, because the system writes
/// nothing behind a short one and no NUL.
template <class Ask>
int ask_addr(Ask ask, int sockfd, ut_addr_t *addr) {
    sockaddr_un told{};
    socklen_t len = sizeof told;
    addr->addrlen = len;
    if (ask(sockfd, reinterpret_cast<sockaddr *>(&told), &len) != 0) {
        return -1;
    }
    memcpy(&addr->un, &told, sizeof told);
    addr->addrlen = len;
    addr->family = told.sun_family; // at the same place in an address of any family
    return 0;
}

int get_option(int sockfd, int name, int *value) {
    socklen_t len = sizeof *value;
    return getsockopt(sockfd, SOL_SOCKET, name, value, &len);
}

int set_option(int sockfd, int level, int name, int value) {
    return setsockopt(sockfd, level, name, &value, sizeof value);
}

} // namespace

int ut_sock_cfg_parse(const char *cfg, ut_addr_t *addr, int *sock_type) {
    const text_copy copy = copy_of(cfg);
    if (!copy) {
        return -6;
    }
    char *at = strchr(copy.get(), '@');
    if (at == nullptr) {
        return -1;
    }
    *at = '\0';
    const scheme_t *scheme = find_scheme(copy.get());
    if (scheme == nullptr) {
        return -2;
    }
    *sock_type = scheme->sock_type;
    if (scheme->is_local) {
        return ut_sock_addr_fill_unix(addr, at + 1) == 0 ? 0 : -5;
    }
    return parse_host_port(at + 1, addr);
}

int ut_sock_addr_fill_unix(ut_addr_t *addr, const char *unix_path) {
    const size_t size = strlen(unix_path) + 1;
    if (size > k_path_room) {
        return -1;
    }
    addr->un.sun_family = AF_UNIX;
    memmove(addr->un.sun_path, unix_path, size); // the path may be the address's own
    addr->family = AF_UNIX;
    addr->addrlen = sizeof addr->un;
    return 0;
}

char *ut_sock_human_addr(ut_addr_t *addr) {
    return ut_sock_human_addr_s(addr, human_addr_text);
}

char *ut_sock_human_addr_s(ut_addr_t *addr, char *dest) {
    dest[0] = '\0';
    if (addr->family == AF_INET || addr->family == AF_INET6) {
        char ip[UT_SOCK_IP_SIZE];
        (void)snprintf(dest, UT_SOCK_HUMAN_ADDR_SIZE, "%s:%u", ut_sock_ip_s(addr, ip),
                       host_order_port(*addr));
    } else if (addr->family == AF_UNIX) {
        (void)snprintf(dest, UT_SOCK_HUMAN_ADDR_SIZE, "%s:%s", "unix", local_path{*addr}.text);
    }
    return dest;
}

char *ut_sock_ip(ut_addr_t *addr) {
    return ut_sock_ip_s(addr, ip_text);
}

char *ut_sock_ip_s(ut_addr_t *addr, char *ip) {
    ip[0] = '\0';
    if (addr->family == AF_INET) {
        (void)inet_ntop(AF_INET, &addr->in.sin_addr, ip, UT_SOCK_IP_SIZE); // there is room for every address
    } else if (addr->family == AF_INET6) {
        (void)inet_ntop(AF_INET6, &addr->in6.sin6_addr, ip, UT_SOCK_IP_SIZE);
    }
    return ip;
}

int ut_sock_set_mode(ut_addr_t *addr, mode_t mode) {
    return addr->family == AF_UNIX ? chmod(local_path{*addr}.text, mode) : 0;
}

int ut_sock_peer_addr(int sockfd, ut_addr_t *addr) {
    return ask_addr(getpeername, sockfd, addr);
}

int ut_sock_host_addr(int sockfd, ut_addr_t *addr) {
    return ask_addr(getsockname, sockfd, addr);
}

int ut_sock_errno(int sockfd) {
    int pending = 0;
    if (get_option(sockfd, SO_ERROR, &pending) == 0) {
        return pending;
    }
    return errno != 0 ? errno : EBADFD;
}

int ut_sock_get_send_buf(int sockfd, int *buf_size) {
    return get_option(sockfd, SO_SNDBUF, buf_size);
}

int ut_sock_get_recv_buf(int sockfd, int *buf_size) {
    return get_option(sockfd, SO_RCVBUF, buf_size);
}

int ut_sock_set_send_buf(int sockfd, int buf_size) {
    return set_option(sockfd, SOL_SOCKET, SO_SNDBUF, buf_size);
}

int ut_sock_set_recv_buf(int sockfd, int buf_size) {
    return set_option(sockfd, SOL_SOCKET, SO_RCVBUF, buf_size);
}

int ut_sock_set_nonblock(int sockfd) {
    const int flags = fcntl(sockfd, F_GETFL, 0);
    return flags < 0 ? -1 : fcntl(sockfd, F_SETFL, flags | O_NONBLOCK);
}

int ut_sock_set_no_delay(int sockfd) {
    return set_option(sockfd, IPPROTO_TCP, TCP_NODELAY, 1);
}

int ut_sock_set_reuse_addr(int sockfd) {
    return set_option(sockfd, SOL_SOCKET, SO_REUSEADDR, 1);
}
