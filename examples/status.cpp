// status OWN-ID PEER-ID: sends a structure as a status and reads the one that the peer has sent.
#include "node_mapping.h"
#include "utils/ut_le.h"
#include "vision_service_route_funcs.h"

#include <array>
#include <chrono>
#include <iostream>
#include <optional>
#include <thread>

namespace {

using namespace std::chrono_literals;

// The distance to an obstacle, as it travels: type, direction [degrees], distance [mm], all little-endian.
struct obstacle {
    uint16_t direction_deg;
    uint32_t distance_mm;
};
using packed = std::array<uint8_t, 8>;

packed pack(const obstacle &o) {
    packed bytes{};
    ut_put_le16(bytes.data(), MSG_SOA_DISTANCES); // what the receiver finds it by
    ut_put_le16(bytes.data() + 2, o.direction_deg);
    ut_put_le32(bytes.data() + 4, o.distance_mm);
    return bytes;
}

std::optional<obstacle> newest() {
    std::array<uint8_t, 8192> bytes; // any sender may send the largest
    MsgExtra extra;
    if (vision_recv_status(MSG_SOA_DISTANCES, bytes.data(), bytes.size(), &extra) != sizeof(packed)) {
        return std::nullopt;
    }
    return obstacle{ut_get_le16(bytes.data() + 2), ut_get_le32(bytes.data() + 4)};
}

} // namespace

int main(int argc, char **argv) {
    const auto id = [&](int i) { return static_cast<NodeID>(std::stoi(argv[i])); };
    if (argc != 3 || vision_msg_component_init(id(1), "status", "192.168.1.2", nullptr) != 0) {
        return 1;
    }
    while (nmapping_get_stat(static_cast<uint16_t>(id(2))) != NODE_STAT_ACTIVED) {
        std::this_thread::sleep_for(10ms);
    }
    const packed own = pack({.direction_deg = 90, .distance_mm = 12500});
    std::cout << "sent: " << vision_send_status(id(2), own.data(), own.size()) << std::endl;
    std::optional<obstacle> seen;
    while (!(seen = newest())) {
        std::this_thread::sleep_for(10ms);
    }
    std::cout << seen->distance_mm << " mm at " << seen->direction_deg << " degrees" << std::endl;
    vision_msg_component_deinit();
}
