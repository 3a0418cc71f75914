// Messages and statuses from the command line. See user_message.h.
#include "user_message.h"

#include "named_value.h"
#include "node_mapping.h"

#include <fmt/core.h>
#include <fmt/ranges.h>

namespace vexa {
namespace {

using nlohmann::ordered_json;

constexpr size_t k_type_bytes = 2; // a status begins with its type

bool is_status(const message_options &options) {
    return options.kind == MSTP_USER_DATA_OVER_WRITE;
}

/// The way that the options ask for, one of the library's sending functions.
int send(const message_options &options, const std::vector<uint8_t> &payload) {
    const auto size = static_cast<int>(payload.size());
    if (options.broadcast) {
        return is_status(options) ? vision_broadcast_status(payload.data(), size)
                                  : vision_brocast_msg(payload.data(), size);
    }
    if (options.queued) {
        return vxmsg_send_general(options.to, options.kind, payload.data(), size);
    }
    const auto to = static_cast<NodeID>(options.to);
    return is_status(options) ? vision_send_status(to, payload.data(), size)
                              : vision_send_msg(to, payload.data(), size);
}

std::vector<uint8_t> with_type(const message_options &options, std::vector<uint8_t> payload) {
    if (is_status(options)) {
        const uint8_t type[k_type_bytes] = {static_cast<uint8_t>(options.type),
                                            static_cast<uint8_t>(options.type >> 8)};
        payload.insert(payload.begin(), std::begin(type), std::end(type));
    }
    return payload;
}

void warn_of_size(size_t bytes) {
    constexpr size_t arrives = VX_MSG_MAX_READ - VX_MSG_HEAD_SIZE;
    if (bytes > arrives) {
        fmt::print(stderr, "vexa: of these {} bytes of payload a receiver reads the first {}\n", bytes,
                   arrives);
    }
}

/// Who will get it, for the line at the end.
std::string destination_text(const message_options &options, const std::vector<uint16_t> &audience) {
    if (options.broadcast) {
        return fmt::format("broadcast to {}", fmt::join(audience, ", "));
    }
    const uint16_t hop = nmapping_get_next_hop(options.to);
    return fmt::format("{} to {}{}", options.queued ? "queued" : "sent", named(k_node_names, options.to),
                       hop == options.to ? "" : fmt::format(" by way of {}", named(k_node_names, hop)));
}

ordered_json destination_json(const message_options &options, const bus_node &node,
                              const std::vector<uint16_t> &audience) {
    ordered_json what = {{"event", "sent"}, {"from", node.id()}};
    if (options.broadcast) {
        what["to"] = "broadcast";
        what["reaches"] = audience;
    } else {
        what["to"] = options.to;
        what["next_hop"] = nmapping_get_next_hop(options.to);
    }
    what["way"] = options.broadcast || options.queued ? "queued" : "direct";
    return what;
}

} // namespace

void add_message_options(CLI::App &command, message_options &options) {
    CLI::Option *to =
        add_named(command, "--to", options.to, k_node_names, "destination; from 127 up by way of the proxy");
    CLI::Option *broadcast = command.add_flag("--broadcast", options.broadcast,
                                              "to every active node whose id is below this node's own");
    to->excludes(broadcast);
    command
        .add_flag("--queued", options.queued,
                  "through the library's queue and I/O thread, not from this thread at once")
        ->excludes(broadcast);
    add_payload_options(command, options.payload);
    add_stream_options(command, options.stream);
    add_node_options(command, options.node);
    command.add_flag("--json", options.json, "the result as one JSON object");
}

int run_messages(const message_options &options) {
    const payload_source source{options.payload, is_status(options) ? k_type_bytes : 0};
    bus_node node{options.node};
    node.wait_registered();
    if (options.broadcast) {
        node.wait_audience();
    } else {
        node.wait_active(options.to);
    }
    const std::vector<uint16_t> audience = node.audience();
    warn_of_size(with_type(options, source.make(1)).size());
    const stream_result result = run_stream(options.stream, node, [&](uint32_t number) {
        return send(options, with_type(options, source.make(number)));
    });
    print_result(result, destination_json(options, node, audience), destination_text(options, audience),
                 options.json);
    return result.all_well() || result.was_ended ? k_ok : k_failed;
}

} // namespace vexa
