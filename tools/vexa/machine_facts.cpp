// The machine's own facts. See machine_facts.h.
#include "machine_facts.h"

#include "bench_socket.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <sys/socket.h>

namespace vexa {
namespace {

constexpr uint32_t k_loopback_net = 127;

std::optional<uint64_t> read_number(const char *file) {
    std::ifstream in{file};
    uint64_t value = 0;
    return (in >> value) ? std::optional{value} : std::nullopt;
}

uint32_t ip_of(const sockaddr *address) {
    sockaddr_in internet{};
    memcpy(&internet, address, sizeof internet);
    return to_endpoint(internet).ip;
}

std::vector<own_address> addresses() {
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0) {
        fail_errno("getifaddrs");
    }
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs *)> keeper{list, freeifaddrs};
    std::vector<own_address> all;
    for (const ifaddrs *each = list; each != nullptr; each = each->ifa_next) {
        if (each->ifa_addr != nullptr && each->ifa_netmask != nullptr &&
            each->ifa_addr->sa_family == AF_INET && (each->ifa_flags & IFF_UP) != 0) {
            all.push_back({each->ifa_name, ip_of(each->ifa_addr), std::popcount(ip_of(each->ifa_netmask))});
        }
    }
    return all;
}

/// Whether the system would send from this machine to itself: also true for the rest of a network that stands
/// on the loopback device.
bool stays_here(uint32_t ip) {
    const descriptor socket{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    const sockaddr_in address = to_sockaddr({ip, 0});
    return bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

std::optional<std::string> why_no_way(endpoint manager) {
    const descriptor socket{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    const sockaddr_in to = to_sockaddr(manager);
    if (connect(socket.get(), reinterpret_cast<const sockaddr *>(&to), sizeof to) == 0) {
        return std::nullopt;
    }
    return strerror(errno);
}

} // namespace

bool machine_facts::is_own(uint32_t ip) const {
    const bool listed = std::any_of(addresses.begin(), addresses.end(),
                                    [ip](const own_address &each) { return each.ip == ip; });
    return ip != 0 && (listed || ip >> 24 == k_loopback_net || stays_here(ip));
}

const udp_socket *machine_facts::receiver_at(uint32_t ip, uint16_t port) const {
    const auto found = std::find_if(sockets.begin(), sockets.end(), [ip, port](const udp_socket &each) {
        return each.local.port == port && (each.local.ip == 0 || each.local.ip == ip);
    });
    return found == sockets.end() ? nullptr : &*found;
}

machine_facts look_at_machine(endpoint manager) {
    return {addresses(), udp_sockets(), why_no_way(manager), read_number("/proc/sys/net/core/rmem_default"),
            read_number("/proc/sys/net/core/rmem_max")};
}

} // namespace vexa
