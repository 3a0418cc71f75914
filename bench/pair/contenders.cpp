// The table of all contenders.
#include "contenders.h"

#include <algorithm>
#include <array>

namespace bench {
namespace {

#ifdef BENCH_CYCLONEDDS
constexpr make_side k_cyclonedds = make_cyclonedds;
#else
constexpr make_side k_cyclonedds = nullptr;
#endif
#ifdef BENCH_LCM
constexpr make_side k_lcm = make_lcm;
#else
constexpr make_side k_lcm = nullptr;
#endif
#ifdef BENCH_MOSQUITTO
constexpr make_side k_mosquitto = make_mosquitto;
#else
constexpr make_side k_mosquitto = nullptr;
#endif
#ifdef BENCH_NNG
constexpr make_side k_nng = make_nng;
#else
constexpr make_side k_nng = nullptr;
#endif
#ifdef BENCH_ZEROMQ
constexpr make_side k_zeromq = make_zeromq;
#else
constexpr make_side k_zeromq = nullptr;
#endif

constexpr auto k_contenders = std::to_array<contender>({
    {"bare-udp", make_bare_udp, ""},
    {"bare-loop", make_bare_loop, ""},
    {"vision_send_msg", make_bus_direct, ""},
    {"bare-queue", make_bare_queue, ""},
    {"vxmsg_send_general", make_bus_queued, ""},
    {"vision_brocast_msg", make_bus_broadcast, ""},
    {"vision_send_status", make_bus_polled, ""},
    {"lcm", k_lcm, "liblcm-dev"},
    {"zeromq", k_zeromq, "libzmq3-dev"},
    {"nng", k_nng, "libnng-dev"},
    {"cyclonedds", k_cyclonedds, "cyclonedds-dev"},
    {"mosquitto", k_mosquitto, "libmosquitto-dev"},
});

} // namespace

std::span<const contender> contenders() {
    return k_contenders;
}

const contender *find_contender(const std::string &name) {
    const auto *found =
        std::ranges::find_if(k_contenders, [&](const contender &c) { return c.name == name; });
    return found == k_contenders.end() ? nullptr : found;
}

} // namespace bench
