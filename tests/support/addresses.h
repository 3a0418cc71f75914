/**
 * @file
 * Socket addresses for the tests, made without the functions under test where they are what is expected.
 */
#ifndef ADDRESSES_H
#define ADDRESSES_H

#include "utils/ut_sock.h"

#include <arpa/inet.h>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

constexpr int k_untouched = 4711; // stands in an int that a function is to leave alone

/// An address full of something that no function writes.
inline ut_addr_t scribbled() {
    ut_addr_t addr;
    memset(&addr, 0x5A, sizeof addr);
    return addr;
}

/// An address of zeros up to its last byte, which {} does not promise for a union.
inline ut_addr_t cleared() {
    ut_addr_t addr;
    memset(&addr, 0, sizeof addr);
    return addr;
}

inline std::vector<unsigned char> bytes_of(const ut_addr_t &addr) {
    std::vector<unsigned char> bytes(sizeof addr);
    memcpy(bytes.data(), &addr, sizeof addr);
    return bytes;
}

inline ut_addr_t ipv4(const char *ip, uint16_t port) {
    ut_addr_t addr = cleared();
    addr.family = AF_INET;
    addr.addrlen = 16;
    addr.in.sin_family = AF_INET;
    addr.in.sin_port = htons(port);
    EXPECT_EQ(inet_pton(AF_INET, ip, &addr.in.sin_addr), 1);
    return addr;
}

inline ut_addr_t ipv6(const char *ip, uint16_t port) {
    ut_addr_t addr = cleared();
    addr.family = AF_INET6;
    addr.addrlen = 28;
    addr.in6.sin6_family = AF_INET6;
    addr.in6.sin6_port = htons(port);
    EXPECT_EQ(inet_pton(AF_INET6, ip, &addr.in6.sin6_addr), 1);
    return addr;
}

inline ut_addr_t local(const std::string &path) {
    ut_addr_t addr = cleared();
    EXPECT_EQ(ut_sock_addr_fill_unix(&addr, path.c_str()), 0);
    return addr;
}

#endif
