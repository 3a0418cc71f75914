/** @file Where a datagram comes from or goes to. */
#ifndef VEXA_ENDPOINT_H
#define VEXA_ENDPOINT_H

#include <compare>
#include <cstdint>
#include <string>

namespace vexa {

/** An IPv4 address and a UDP port, both as numbers of the host. */
struct endpoint {
    uint32_t ip = 0;
    uint16_t port = 0;
    auto operator<=>(const endpoint &) const = default;
};

/** "192.168.1.5:9005". */
std::string to_text(endpoint where);

} // namespace vexa

#endif
