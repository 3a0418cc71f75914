// The socket layer's functions that take texts (addresses, paths, interface names): what reaches the system
// is what the text says, or what a text that says nothing stands for.
#include "support/check.h"
#include "support/input.h"
#include "support/outside.h"
#include "utils/netapi.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <sys/un.h>

namespace {

namespace outside = fuzz::outside;

constexpr int k_fd = 77; // the system behind it is the fuzzer's
constexpr size_t k_longest_path = 107;
constexpr size_t k_longest_interface = 15;

net_sockfd_t object() {
    net_sockfd_t sock{};
    sock.sockfd = k_fd;
    return sock;
}

bool parses(const std::string &text, in_addr &address) {
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

in_addr address_of(const std::string &text) {
    in_addr address{};
    return parses(text, address) ? address : in_addr{};
}

void check_internet_address(const fuzz::bytes &given, const std::string &text, uint16_t port) {
    sockaddr_in addr{};
    FUZZ_CHECK(given.size() == sizeof addr);
    memcpy(&addr, given.data(), sizeof addr);
    FUZZ_CHECK(addr.sin_family == AF_INET && ntohs(addr.sin_port) == port);
    FUZZ_CHECK(addr.sin_addr.s_addr == address_of(text).s_addr);
}

void check_bind_and_connect(const std::string &text, uint16_t port) {
    fuzz::exact_block ip(text);
    net_sockfd_t sock = object();
    FUZZ_CHECK(net_bind(&sock, ip.chars(), port) == 0);
    check_internet_address(outside::take_request().address, text, port);
    FUZZ_CHECK(net_connect(&sock, ip.chars(), port) == 0);
    check_internet_address(outside::take_request().address, text, port);
}

void check_send(const std::string &text, uint16_t port, const fuzz::bytes &content) {
    fuzz::exact_block ip(text);
    const fuzz::exact_block datagram(content);
    net_sockfd_t sock = object();
    const int len = static_cast<int>(datagram.size());
    FUZZ_CHECK(net_sendto_fd(k_fd, datagram.data(), len, ip.chars(), port) == len);
    FUZZ_CHECK(net_sendto(&sock, datagram.data(), len, ip.chars(), port) == len);
    const std::vector<outside::datagram> sent = outside::take_sent();
    FUZZ_CHECK(sent.size() == 2);
    for (const outside::datagram &one : sent) {
        FUZZ_CHECK(one.ip == ntohl(address_of(text).s_addr) && one.port == port && one.content == content);
    }
}

void check_multicast(const std::string &text) {
    fuzz::exact_block ip(text);
    in_addr address{};
    const bool is_group = parses(text, address) && (ntohl(address.s_addr) >> 28) == 0xE;
    for (const int option : {IP_ADD_MEMBERSHIP, IP_DROP_MEMBERSHIP}) {
        net_sockfd_t sock = object();
        const int result =
            option == IP_ADD_MEMBERSHIP ? mcast_join(&sock, ip.chars()) : net_mcast_leave(&sock, ip.chars());
        const outside::request asked = outside::take_request();
        FUZZ_CHECK(result == (is_group ? 0 : -1) && asked.count == (is_group ? 1 : 0));
        if (is_group) {
            FUZZ_CHECK(asked.level == IPPROTO_IP && asked.name == option &&
                       asked.value.size() == sizeof(ip_mreq));
            FUZZ_CHECK(memcmp(asked.value.data(), &address, sizeof address) == 0);
        }
    }
}

void check_domain(const std::string &text) {
    fuzz::exact_block path(text);
    net_sockfd_t sock = object();
    errno = 0;
    const int result = net_connect_domain(&sock, path.chars());
    const outside::request asked = outside::take_request();
    if (text.size() > k_longest_path) {
        FUZZ_CHECK(result == -1 && errno == ENAMETOOLONG && asked.count == 0);
        return;
    }
    sockaddr_un addr{};
    FUZZ_CHECK(result == 0 && asked.address.size() == sizeof addr);
    memcpy(&addr, asked.address.data(), sizeof addr);
    FUZZ_CHECK(addr.sun_family == AF_UNIX && text == addr.sun_path);
}

void check_interface(const std::string &text, const fuzz::bytes &answer) {
    fuzz::exact_block name(text);
    outside::plan_interface(answer);
    fuzz::exact_block mac(6);
    FUZZ_CHECK(net_get_hwaddr(name.chars(), mac.data()) == (answer.empty() ? -1 : 0));
    FUZZ_CHECK(outside::take_request().text == text.substr(0, k_longest_interface));
    const char *ip = net_get_ifaddr(name.chars());
    FUZZ_CHECK((ip != nullptr) == !answer.empty());
    FUZZ_CHECK(outside::take_request().text == text.substr(0, k_longest_interface));
    if (answer.size() >= sizeof(sockaddr)) {
        FUZZ_CHECK(memcmp(mac.data(), &answer[2], mac.size()) == 0);
        in_addr told{};
        memcpy(&told, &answer[4], sizeof told);
        FUZZ_CHECK(address_of(ip).s_addr == told.s_addr);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    const uint8_t what = in.u8() % 5;
    const uint16_t port = in.u16();
    const std::string text = in.text(size);
    (void)outside::take_request();
    if (what == 0) {
        check_bind_and_connect(text, port);
    } else if (what == 1) {
        check_send(text, port, in.rest());
    } else if (what == 2) {
        check_multicast(text);
    } else if (what == 3) {
        check_domain(text);
    } else {
        check_interface(text, in.take(sizeof(sockaddr)));
    }
    return 0;
}
