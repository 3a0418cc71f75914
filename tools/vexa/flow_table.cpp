// Flows. See flow_table.h.
#include "flow_table.h"

#include "formats.h"
#include "show.h"

#include <algorithm>
#include <fmt/core.h>
#include <optional>
#include <string_view>
#include <tuple>
#include <utility>

namespace vexa {
namespace {

constexpr auto k_kept_fields = std::to_array<std::string_view>({"src", "dst", "msg_type", "key"});

int place_of(const formats::envelope *wire) {
    return static_cast<int>(std::ranges::find(formats::k_envelopes, wire) - formats::k_envelopes.begin());
}

/// A message may begin with anything, such as a counter: only words that are types tell messages apart.
int32_t type_of(const formats::glance &seen) {
    if (!seen.key) {
        return -1;
    }
    const bool is_status = seen.kind == MSTP_USER_DATA_OVER_WRITE;
    const bool is_known = !formats::value_name_of(formats::k_msg_types, *seen.key).empty();
    return is_status || is_known ? *seen.key : -1;
}

flow_key key_of(const udp_datagram &datagram, const formats::glance &seen,
                std::optional<formats::severity> worst) {
    flow_key key{.kind = seen.kind, .type = type_of(seen), .envelope = place_of(seen.wire)};
    key.form = seen.what != nullptr ? static_cast<int>(seen.what - seen.wire->forms.data()) : -1;
    if (seen.wire == &formats::k_route) {
        key.src = seen.src;
        key.dst = seen.dst;
    } else {
        key.from_address = datagram.src;
        key.to_address = datagram.dst;
    }
    key.damage = worst && *worst != formats::severity::note ? static_cast<uint8_t>(*worst) : 0;
    return key;
}

/// "vio_cfg(2)", as a filter takes it.
std::string type_text(int32_t type) {
    if (type < 0) {
        return "";
    }
    std::string name = formats::value_name_of(formats::k_msg_types, type);
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
    return name.empty() ? fmt::format("0x{:04x}", type)
                        : fmt::format("{}({})", name.substr(name.starts_with("msg_") ? 4 : 0), type);
}

flow_names names_of(const flow_key &key, const formats::decoded &read) {
    const bool by_id = read.wire == &formats::k_route;
    return {.from = by_id ? node_text(key.src) : to_text(key.from_address),
            .to = by_id ? node_text(key.dst) : to_text(key.to_address),
            .kind = by_id ? fmt::format("{} {}", key.kind, read.name()) : read.name(),
            .type = type_text(key.type),
            .damage = key.damage != 0 ? formats::name_of(static_cast<formats::severity>(key.damage))
                                      : std::string()};
}

/// What is large goes: whatever a filter asks for is a number of the header, the key or a finding.
std::shared_ptr<const flow_sample> sample_of(const udp_datagram &datagram, formats::decoded &&read) {
    auto sample = std::make_shared<flow_sample>(flow_sample{datagram, std::move(read)});
    sample->datagram.bytes = {};
    std::erase_if(sample->read.fields, [](const formats::node &n) {
        return n.what == nullptr || std::ranges::find(k_kept_fields, n.name()) == k_kept_fields.end();
    });
    for (formats::node &n : sample->read.fields) {
        n.bytes = {};
    }
    return sample;
}

} // namespace

bool flow_table::see(const udp_datagram &datagram) {
    const formats::datagram payload{.bytes = datagram.bytes,
                                    .wire_size = datagram.wire_size,
                                    .dst_port = datagram.dst.port,
                                    .incomplete = datagram.incomplete};
    const formats::glance seen = formats::look(payload);
    if (seen.wire == nullptr) {
        ++others_;
        return false;
    }
    formats::decoded read = formats::decode_as(*seen.wire, payload);
    const flow_key key = key_of(datagram, seen, read.worst());
    auto &flow = flow_of(key, datagram, std::move(read));
    flow.meter.add(datagram.time_ns, datagram.wire_size);
    return true;
}

flow &flow_table::flow_of(const flow_key &key, const udp_datagram &datagram, formats::decoded &&read) {
    const auto known = flows_.find(key);
    if (known != flows_.end()) {
        return known->second;
    }
    if (flows_.size() >= most_) {
        forget_one();
    }
    flow fresh{.meter = {}, .names = names_of(key, read), .sample = nullptr};
    fresh.sample = sample_of(datagram, std::move(read));
    return flows_.emplace(key, std::move(fresh)).first->second;
}

void flow_table::forget_one() {
    flows_.erase(
        std::ranges::min_element(flows_, {}, [](const auto &each) { return each.second.meter.last_ns(); }));
    ++forgotten_;
}

} // namespace vexa
