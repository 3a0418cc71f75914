// Datagrams of the vision link, read. See link_decode.h.
#include "link_decode.h"

#include "json.h"
#include "link_format.h"

#include <algorithm>

namespace vexa {
namespace {

using formats::decoded;
using formats::finding_code;

std::optional<uint16_t> word(const decoded &read, const char *name) {
    const formats::node *found = read.find(name);
    return found != nullptr ? std::optional{static_cast<uint16_t>(found->raw)} : std::nullopt;
}

/// What stands behind the header; nothing of a payload that is not as long as it must be.
nlohmann::ordered_json payload_fields(const decoded &read) {
    const bool of_wrong_size = std::ranges::any_of(
        read.findings, [](const formats::finding &f) { return f.code == finding_code::payload_size; });
    if (read.what == nullptr || of_wrong_size) {
        return {};
    }
    nlohmann::ordered_json fields = nlohmann::ordered_json::object();
    for (const formats::node &n : read.fields) {
        if (n.in != &read.wire->head) {
            fields[n.name()] = formats::json_of(n);
        }
    }
    return fields;
}

} // namespace

link_datagram decode_link(link_end end, std::span<const uint8_t> bytes) {
    const uint16_t port = end == link_end::camera ? VISION_CAMERA_PORT : VISION_FLIGHT_PORT;
    const decoded read =
        formats::decode_as(formats::k_link, {.bytes = bytes, .wire_size = bytes.size(), .dst_port = port});
    link_datagram result;
    result.name = read.name();
    result.msg_type = word(read, "msg_type");
    result.sequence = word(read, "sequence");
    result.fields = payload_fields(read);
    std::ranges::transform(read.findings, std::back_inserter(result.faults), &formats::finding::text);
    return result;
}

} // namespace vexa
