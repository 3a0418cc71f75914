// Other ids and addresses. See remapping.h.
#include "remapping.h"

#include "bench_socket.h"
#include "formats.h"
#include "message_filter.h"

#include "utils/ut_le.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <fmt/core.h>
#include <netinet/in.h>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace vexa {
namespace {

using formats::node;

std::pair<std::string, std::string> halves(const std::string &text, const char *example) {
    const size_t middle = text.find('=');
    if (middle == std::string::npos) {
        throw std::invalid_argument(fmt::format("'{}' is not like {}", text, example));
    }
    return {text.substr(0, middle), text.substr(middle + 1)};
}

uint16_t single_node(const std::string &text) {
    const std::optional<uint16_t> id = node_id_of(text);
    if (!id || *id >= VX_NODE_COUNT) {
        throw std::invalid_argument(fmt::format("'{}' is no node; there are 0 to {}, and names such as vio",
                                                text, VX_NODE_COUNT - 1));
    }
    return *id;
}

/// With a port or without one, which is 0 then.
endpoint address_of(const std::string &text) {
    const size_t colon = text.find(':');
    uint16_t port = 0;
    if (colon != std::string::npos) {
        const char *end = text.data() + text.size();
        const auto read = std::from_chars(text.data() + colon + 1, end, port);
        if (read.ec != std::errc{} || read.ptr != end || port == 0) {
            throw std::invalid_argument(fmt::format("'{}' has no port behind the colon", text));
        }
    }
    return parse_endpoint(text.substr(0, colon), port);
}

const node *find(const std::vector<node> &fields, std::string_view name) {
    const auto found = std::ranges::find_if(fields, [name](const node &n) {
        return n.in == &formats::k_node_block && n.what != nullptr && name == n.what->name;
    });
    return found == fields.end() ? nullptr : &*found;
}

std::optional<uint32_t> ip_in(const node &text) {
    const std::string ip(text.bytes.begin(), std::ranges::find(text.bytes, 0));
    in_addr address{};
    return inet_pton(AF_INET, ip.c_str(), &address) == 1 ? std::optional{ntohl(address.s_addr)}
                                                         : std::nullopt;
}

/// An address is never longer than its field.
void put_ip(std::span<uint8_t> field, uint32_t ip) {
    const std::string text = to_text({ip, 0});
    std::ranges::fill(field, uint8_t{0});
    std::ranges::copy(std::string_view(text).substr(0, text.find(':')), field.begin());
}

} // namespace

void remapping::add_id(const std::string &text) {
    const auto [from, to] = halves(text, "5=7");
    ids_[single_node(from)] = single_node(to);
}

void remapping::add_address(const std::string &text) {
    const auto [from, to] = halves(text, "192.168.1.2=127.0.0.1 or 192.168.1.2:9005=127.0.0.1:9007");
    addresses_.push_back({address_of(from), address_of(to)});
}

uint16_t remapping::id(uint64_t old) const {
    const auto row = ids_.find(static_cast<uint16_t>(old));
    return row != ids_.end() ? row->second : static_cast<uint16_t>(old);
}

endpoint remapping::moved(endpoint old, bool by_node_id) const {
    endpoint result = old;
    if (by_node_id && old.port >= VX_NODE_PORT_BASE && old.port < VX_NODE_PORT_BASE + VX_NODE_COUNT) {
        const auto node = static_cast<uint16_t>(old.port - VX_NODE_PORT_BASE);
        result.port = static_cast<uint16_t>(VX_NODE_PORT_BASE + id(node));
    }
    const auto row = std::ranges::find_if(addresses_, [&](const address_row &each) {
        return each.from.ip == old.ip && (each.from.port == 0 || each.from.port == old.port);
    });
    if (row != addresses_.end()) {
        result = {row->to.ip, row->to.port != 0 ? row->to.port : result.port};
    }
    return result;
}

endpoint remapping::apply(std::span<uint8_t> bytes, endpoint to) const {
    if (ids_.empty() && addresses_.empty()) {
        return to;
    }
    const std::vector<uint8_t> old(bytes.begin(), bytes.end()); // what is read does not change meanwhile
    const formats::decoded read =
        formats::decode({.bytes = old, .wire_size = old.size(), .dst_port = to.port});
    const bool by_node_id = read.wire != nullptr && read.wire->by_node_id;
    if (by_node_id) {
        change_ids(bytes, read.fields);
        change_records(bytes, read.fields);
    }
    return moved(to, by_node_id);
}

void remapping::change_ids(std::span<uint8_t> bytes, const std::vector<node> &fields) const {
    for (const node &each : fields) {
        if (each.what == nullptr) {
            change_ids(bytes, each.parts);
        } else if (each.what->names == &formats::k_node_ids && each.size == sizeof(uint16_t)) {
            ut_put_le16(&bytes[each.offset], id(each.raw));
        }
    }
}

/// A record stands by itself, or in a row of them.
void remapping::change_records(std::span<uint8_t> bytes, const std::vector<node> &fields) const {
    for (const node &each : fields) {
        if (each.what == nullptr) {
            change_records(bytes, each.parts);
        }
    }
    const node *ip = find(fields, "ip");
    const node *port = find(fields, "port");
    const std::optional<uint32_t> address = ip != nullptr ? ip_in(*ip) : std::nullopt;
    if (!address || port == nullptr) {
        return;
    }
    const endpoint old{*address, static_cast<uint16_t>(port->raw)};
    const endpoint now = moved(old, true);
    if (now.ip != old.ip) {
        put_ip(bytes.subspan(ip->offset, ip->size), now.ip);
    }
    ut_put_le16(&bytes[port->offset], now.port);
}

} // namespace vexa
