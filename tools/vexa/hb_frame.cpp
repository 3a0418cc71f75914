// The heartbeat frame by name. See hb_frame.h.
#include "hb_frame.h"

#include "hb_fields.h"
#include "named_value.h"
#include "utils/ut_le.h"
#include "vision_service_route_funcs.h"
#include "vx_msg_def.h"

#include <cstring>
#include <fmt/core.h>
#include <limits>
#include <optional>
#include <stdexcept>

namespace vexa {
namespace {

const hb_field_t &row_of(HeartBeatField field) {
    return k_hb_fields.at(static_cast<size_t>(field));
}

/// Everything that 32 bits can hold, with a sign or without.
std::optional<int> parse_value(const std::string &text) {
    try {
        size_t used = 0;
        const long long value = std::stoll(text, &used, 0);
        const bool fits = value >= std::numeric_limits<int32_t>::min() &&
                          value <= static_cast<long long>(std::numeric_limits<uint32_t>::max());
        return used == text.size() && fits ? std::optional{static_cast<int>(static_cast<uint32_t>(value))}
                                           : std::nullopt;
    } catch (const std::logic_error &) { // no number, or none that long long holds
        return std::nullopt;
    }
}

} // namespace

frame_bytes own_frame() {
    VPHeartbeatFrame frame{};
    (void)vision_get_hearbeat(&frame); // always 0
    frame_bytes bytes{};
    memcpy(bytes.data(), &frame, bytes.size());
    return bytes;
}

unsigned value_in(const frame_bytes &frame, HeartBeatField field) {
    const hb_field_t &row = row_of(field);
    const unsigned shifted = frame.at(row.first_bit / 8U) >> (row.first_bit % 8U);
    return shifted & ((1U << row.width) - 1U);
}

unsigned width_of(HeartBeatField field) {
    return row_of(field).width;
}

std::vector<uint8_t> encode_pairs(std::span<const HeartBeatPair> pairs) {
    std::vector<uint8_t> bytes(pairs.size() * VX_HB_PAIR_SIZE);
    for (size_t i = 0; i < pairs.size(); ++i) {
        ut_put_le32(&bytes[i * VX_HB_PAIR_SIZE], static_cast<uint32_t>(pairs[i].field));
        ut_put_le32(&bytes[i * VX_HB_PAIR_SIZE + 4], static_cast<uint32_t>(pairs[i].value));
    }
    return bytes;
}

HeartBeatPair parse_pair(const std::string &text) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos) {
        throw std::invalid_argument(fmt::format("'{}' is not FIELD=VALUE", text));
    }
    const std::string name = text.substr(0, equals);
    const auto field = find_value(k_field_names, name);
    if (!field) {
        throw std::invalid_argument(
            fmt::format("there is no heartbeat field '{}'; the names are those of HeartBeatField", name));
    }
    const auto value = parse_value(text.substr(equals + 1));
    if (!value) {
        throw std::invalid_argument(fmt::format("'{}' is not a number of 32 bits", text.substr(equals + 1)));
    }
    return {static_cast<HeartBeatField>(*field), *value};
}

} // namespace vexa
