// Socket descriptions: the result and the address are those that the grammar gives, and an address goes to
// text and back unchanged. Then addresses made of any bytes go to text: whatever they hold, the text stays in
// its room.
#include "support/check.h"
#include "support/input.h"
#include "support/outside.h"
#include "utils/ut_sock.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <strings.h>

namespace {

constexpr int k_untouched = -77;
constexpr size_t k_longest_path = 107;

/// A block, because the address is to end with its last byte.
struct address {
    fuzz::exact_block block{sizeof(ut_addr_t)};
    ut_addr_t *get() { return reinterpret_cast<ut_addr_t *>(block.data()); }
};

struct parsed {
    int result = 0;
    int sock_type = k_untouched;
    unsigned family = 0; // the rest is of a result 0
    in_addr ip{};
    uint16_t port = 0;
    std::string path;
};

parsed refused(int result) {
    parsed p;
    p.result = result;
    return p;
}

parsed of_type(int sock_type) {
    parsed p;
    p.sock_type = sock_type;
    return p;
}

parsed parse_host_port(parsed so_far, const std::string &rest) {
    const size_t colon = rest.find(':');
    if (colon == std::string::npos) {
        so_far.result = -3;
    } else if (inet_pton(AF_INET, rest.substr(0, colon).c_str(), &so_far.ip) != 1) {
        so_far.result = -4;
    } else {
        so_far.family = AF_INET;
        so_far.port = static_cast<uint16_t>(strtoul(rest.c_str() + colon + 1, nullptr, 0));
    }
    return so_far;
}

parsed parse(const std::string &text) {
    const size_t at = text.find('@');
    if (at == std::string::npos) {
        return refused(-1);
    }
    const std::string scheme = text.substr(0, at);
    const std::string rest = text.substr(at + 1);
    const auto is = [&](const char *name) { return strcasecmp(scheme.c_str(), name) == 0; };
    if (is("tcp") || is("udp")) {
        return parse_host_port(of_type(is("tcp") ? SOCK_STREAM : SOCK_DGRAM), rest);
    }
    if (!is("stream") && !is("dgram") && !is("seqpacket")) {
        return refused(-2);
    }
    parsed local = of_type(is("stream") ? SOCK_STREAM : is("dgram") ? SOCK_DGRAM : SOCK_SEQPACKET);
    local.family = AF_UNIX;
    local.path = rest;
    local.result = rest.size() > k_longest_path ? -5 : 0;
    return local;
}

std::string human(ut_addr_t *addr) {
    fuzz::exact_block text(UT_SOCK_HUMAN_ADDR_SIZE);
    FUZZ_CHECK(ut_sock_human_addr_s(addr, text.chars()) == text.chars());
    FUZZ_CHECK(memchr(text.data(), 0, text.size()) != nullptr);
    FUZZ_CHECK(strcmp(ut_sock_human_addr(addr), text.chars()) == 0);
    return text.chars();
}

std::string ip_of(ut_addr_t *addr) {
    fuzz::exact_block text(UT_SOCK_IP_SIZE);
    FUZZ_CHECK(ut_sock_ip_s(addr, text.chars()) == text.chars());
    FUZZ_CHECK(memchr(text.data(), 0, text.size()) != nullptr);
    FUZZ_CHECK(strcmp(ut_sock_ip(addr), text.chars()) == 0);
    return text.chars();
}

void check_back_from_text(ut_addr_t *addr) {
    address again;
    int sock_type = 0;
    const std::string text = "udp@" + human(addr);
    FUZZ_CHECK(ut_sock_cfg_parse(text.c_str(), again.get(), &sock_type) == 0);
    FUZZ_CHECK(again.get()->in.sin_addr.s_addr == addr->in.sin_addr.s_addr);
    FUZZ_CHECK(again.get()->in.sin_port == addr->in.sin_port);
}

void check_parse(const std::string &text) {
    const parsed expected = parse(text);
    fuzz::exact_block cfg(text);
    address addr;
    int sock_type = k_untouched;
    FUZZ_CHECK(ut_sock_cfg_parse(cfg.chars(), addr.get(), &sock_type) == expected.result);
    FUZZ_CHECK(sock_type == expected.sock_type);
    FUZZ_CHECK(text == cfg.chars()); // not cut in place
    if (expected.result != 0) {
        return;
    }
    FUZZ_CHECK(addr.get()->family == expected.family);
    if (expected.family == AF_UNIX) {
        FUZZ_CHECK(addr.get()->addrlen == 110 && addr.get()->un.sun_path == expected.path);
        FUZZ_CHECK(human(addr.get()) == "unix:" + expected.path && ip_of(addr.get()).empty());
        return;
    }
    FUZZ_CHECK(addr.get()->addrlen == 16 && addr.get()->in.sin_family == AF_INET);
    FUZZ_CHECK(addr.get()->in.sin_addr.s_addr == expected.ip.s_addr);
    FUZZ_CHECK(ntohs(addr.get()->in.sin_port) == expected.port);
    check_back_from_text(addr.get());
}

void check_any_bytes(const fuzz::bytes &content) {
    constexpr unsigned families[] = {AF_INET, AF_INET6, AF_UNIX, 77};
    address addr;
    std::copy_n(content.begin(), std::min(content.size(), addr.block.size()), addr.block.data());
    for (const unsigned family : families) {
        addr.get()->family = family;
        const std::string ip = ip_of(addr.get());
        const std::string text = human(addr.get());
        FUZZ_CHECK(ip.empty() == (family == AF_UNIX || family == 77));
        FUZZ_CHECK(text.empty() == (family == 77));
        FUZZ_CHECK(text.compare(0, ip.size(), ip) == 0);
        (void)fuzz::outside::take_request();
        FUZZ_CHECK(ut_sock_set_mode(addr.get(), 0600) == 0);
        const fuzz::outside::request asked = fuzz::outside::take_request();
        FUZZ_CHECK(asked.count == (family == AF_UNIX ? 1 : 0));
        FUZZ_CHECK(family != AF_UNIX || "unix:" + asked.text == text);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    check_parse(in.text(size));
    check_any_bytes(in.rest());
    return 0;
}
