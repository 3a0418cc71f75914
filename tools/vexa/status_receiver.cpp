// Statuses by polling. See status_receiver.h.
#include "status_receiver.h"

#include "named_value.h"
#include "payload.h"
#include "subcommand.h"
#include "vx_msg_def.h"

#include <array>
#include <cstdio>
#include <fmt/core.h>
#include <nlohmann/json.hpp>
#include <optional>

namespace vexa {
namespace {

constexpr size_t k_own_bytes = sizeof(uint16_t); // a status begins with its type

/// A status as the library's queue holds it. The same one is found again and again.
struct held_status {
    MsgExtra extra{};
    std::vector<uint8_t> payload;

    /// Two that differ in nothing, and have arrived in the same microsecond of a second, are taken for one.
    bool operator==(const held_status &other) const {
        return extra.src == other.extra.src && extra.recv_time == other.extra.recv_time &&
               payload == other.payload;
    }
};

std::optional<held_status> poll_status(uint16_t type) {
    static std::array<uint8_t, VX_MSG_MAX_PAYLOAD> room;
    held_status found;
    const int size = vision_recv_status(static_cast<MsgType>(type), room.data(),
                                        static_cast<int>(room.size()), &found.extra);
    if (size <= 0) {
        return std::nullopt;
    }
    found.payload.assign(room.begin(), room.begin() + size);
    return found;
}

void print(const held_status &status, uint16_t type, bool in_json) {
    const size_t own = std::min(k_own_bytes, status.payload.size()); // its type, which is known
    const std::vector<uint8_t> rest(status.payload.begin() + static_cast<ptrdiff_t>(own),
                                    status.payload.end());
    const auto src = static_cast<uint16_t>(status.extra.src);
    if (in_json) {
        const nlohmann::ordered_json line = {{"event", "status"},
                                             {"type", type},
                                             {"src", src},
                                             {"dst", static_cast<uint16_t>(status.extra.dst)},
                                             {"recv_time_ns", status.extra.recv_time},
                                             {"payload", hex_text(rest)}};
        fmt::print("{}\n", line.dump());
    } else {
        fmt::print("{} from {}, {} bytes behind the type: {}\n", named(k_type_names, type),
                   named(k_node_names, src), rest.size(), hex_text(rest));
    }
    (void)std::fflush(stdout);
}

} // namespace

int run_status_receiver(const status_receiver_options &options) {
    bus_node node{options.node};
    node.wait_registered();
    fmt::print(stderr, "vexa: waiting as node {} at {}\n", node.id(), node.ip());
    const auto end = bus_node::clock::now() + std::chrono::duration_cast<bus_node::clock::duration>(
                                                  std::chrono::duration<double>(options.wait_s));
    std::optional<held_status> last;
    uint64_t received = 0;
    const auto look = [&] {
        const auto found = poll_status(options.type);
        if (found && (!last || !(*found == *last))) {
            last = found;
            ++received;
            print(*found, options.type, options.json);
        }
        return received >= options.count;
    };
    try {
        if (node.wait_until(end, look)) {
            return k_ok;
        }
    } catch (const interrupted &) {
        return k_ok;
    }
    fmt::print(stderr, "vexa: {} of {} statuses of type {} came in {} s\n", received, options.count,
               named(k_type_names, options.type), options.wait_s);
    return k_failed;
}

} // namespace vexa
