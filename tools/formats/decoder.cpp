// The reader that follows the tables. Two lengths go with every datagram: what travelled, by which its own
// lengths are judged, and what was captured, beyond which nothing is read.
#include "decoder.h"

#include "link_format.h"
#include "route_format.h"
#include "show.h"

#include <algorithm>
#include <fmt/core.h>

namespace formats {
namespace {

/// Little-endian; the caller has measured.
uint64_t number_at(std::span<const uint8_t> bytes, size_t at, size_t size) {
    uint64_t value = 0;
    for (size_t i = size; i > 0; --i) {
        value = (value << 8) | bytes[at + i - 1];
    }
    return value;
}

uint64_t sign_extended(uint64_t value, field_type type) {
    if (type == field_type::i16) {
        return static_cast<uint64_t>(static_cast<int64_t>(static_cast<int16_t>(value)));
    }
    if (type == field_type::i32) {
        return static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(value)));
    }
    return value;
}

uint64_t read_number(std::span<const uint8_t> bytes, size_t at, field_type type) {
    return sign_extended(number_at(bytes, at, element_size(type)), type);
}

bool has(const datagram &from, size_t at, size_t size) {
    return at <= from.bytes.size() && size <= from.bytes.size() - at;
}

/// The header's field, when it has one of that name and it was captured.
std::optional<uint64_t> head_number(const datagram &from, const envelope &wire, const char *name) {
    const field *f = find_field(wire.head, name);
    return f != nullptr && has(from, f->offset, element_size(f->type))
               ? std::optional{read_number(from.bytes, f->offset, f->type)}
               : std::nullopt;
}

bool magic_is_right(const datagram &from, const envelope &wire) {
    const field &magic = wire.head.fields.front();
    return has(from, 0, element_size(magic.type)) &&
           read_number(from.bytes, 0, magic.type) == static_cast<uint64_t>(magic.must);
}

/// Where the payload lies.
struct extent {
    size_t begin;
    size_t end;       // as it travelled
    uint64_t stated;  // what the header counts
    uint64_t arrived; // what the header should count
};

extent payload_of(const datagram &from, const envelope &wire) {
    const size_t tail = wire.tail != nullptr ? wire.tail->size : 0;
    const size_t around = wire.head.size + tail;
    const size_t room = from.wire_size > around ? from.wire_size - around : 0;
    const auto bias = static_cast<size_t>(wire.length_bias);
    const uint64_t stated = head_number(from, wire, wire.length_field).value_or(room + bias);
    const uint64_t inside = stated > bias ? stated - bias : 0;
    return {wire.head.size, wire.head.size + std::min<size_t>(inside, room), stated, room + bias};
}

const form *find_form(const datagram &from, const envelope &wire, const extent &payload) {
    const std::optional<uint64_t> selector = head_number(from, wire, wire.selector_field);
    const bool has_command =
        payload.end - payload.begin >= sizeof(int16_t) && has(from, payload.begin, sizeof(int16_t));
    const uint64_t command = has_command ? number_at(from.bytes, payload.begin, sizeof(int16_t)) : 0;
    const auto meant = [&](const form &f) {
        return f.selector == selector &&
               (f.if_payload == k_any || payload.end - payload.begin == static_cast<size_t>(f.if_payload)) &&
               (f.if_command == k_any || command == static_cast<uint64_t>(f.if_command));
    };
    const auto row = std::ranges::find_if(wire.forms, meant);
    return row == wire.forms.end() ? nullptr : &*row;
}

uint16_t frame_crc(std::span<const uint8_t> covered, uint8_t msgid) {
    uint16_t crc = crc_calculate(covered.data(), static_cast<uint16_t>(covered.size()));
    crc_accumulate(vxlink_message_crcs[msgid], &crc);
    return crc;
}

/// A frame all of whose bytes agree: what stands at no port of the link must be beyond doubt.
bool is_whole_frame(const datagram &from) {
    if (from.bytes.size() < VXLINK_FRAME_HEAD_LEN + VXLINK_CRC_LEN || !magic_is_right(from, k_frame)) {
        return false;
    }
    const extent payload = payload_of(from, k_frame);
    unsigned sum = 0;
    for (const uint8_t byte : from.bytes.first(VXLINK_FRAME_HEAD_LEN - 1)) {
        sum += byte;
    }
    return payload.stated == payload.arrived && from.bytes[VXLINK_FRAME_HEAD_LEN - 1] == (sum & 0xFF);
}

bool is_whole_link_datagram(const datagram &from) {
    const auto version = head_number(from, k_link, "version");
    return magic_is_right(from, k_link) && version == VISION_MSG_VERSION &&
           head_number(from, k_link, k_link.length_field) == from.wire_size;
}

bool is_node_port(uint16_t port) {
    return port >= VX_NODE_PORT_BASE && port < VX_NODE_PORT_BASE + VX_NODE_COUNT;
}

class reader {
public:
    reader(const datagram &from, decoded &to) : from_(from), to_(to) {}

    void run() {
        const envelope &wire = *to_.wire;
        if (from_.wire_size < wire.head.size) {
            say(finding_code::short_head, from_.wire_size, from_.wire_size, wire.head.size);
            return;
        }
        if (from_.incomplete) {
            say(finding_code::fragment, from_.bytes.size());
        } else if (from_.bytes.size() < from_.wire_size) {
            say(finding_code::capture_cut, from_.bytes.size(), from_.bytes.size(), from_.wire_size);
        }
        payload_ = payload_of(from_, wire);
        read_block(wire.head, 0, from_.bytes.size(), to_.fields);
        if (!magic_is_right(from_, wire)) {
            return;
        }
        judge_journey();
        to_.what = find_form(from_, wire, payload_);
        if (to_.what != nullptr) {
            read_payload(*to_.what);
        }
        if (wire.tail != nullptr) {
            read_block(*wire.tail, payload_.end, from_.bytes.size(), to_.fields);
        }
    }

private:
    template <class... Values>
    void say(finding_code code, size_t offset, const Values &...values) {
        const finding_words &words = k_finding_words[static_cast<size_t>(code)];
        to_.findings.push_back({code, words.how, offset, fmt::format(fmt::runtime(words.text), values...)});
    }

    /// Reads the fields that lie whole before `end`.
    void read_block(const block &b, size_t at, size_t end, std::vector<node> &to) {
        for (const field &f : b.fields) {
            const size_t offset = at + f.offset;
            const size_t size = f.count == 0 ? end - std::min(end, offset) : size_of(f);
            if (size == 0 || offset > end || size > end - offset || !has(from_, offset, size)) {
                return;
            }
            to.push_back({.in = &b, .what = &f, .offset = offset, .size = size});
            read_value(to.back());
            judge(to.back());
            if (&f == b.fields.data() && &b == &to_.wire->head && !magic_is_right(from_, *to_.wire)) {
                return; // what follows means something else
            }
        }
    }

    void read_value(node &n) {
        const field &f = *n.what;
        if (is_run(f.type)) {
            n.bytes = from_.bytes.subspan(n.offset, n.size);
            return;
        }
        if (f.count == 1) {
            n.raw = read_number(from_.bytes, n.offset, f.type);
            read_bits(n);
            return;
        }
        const size_t step = element_size(f.type);
        for (int i = 0; i < f.count; ++i) {
            const size_t offset = n.offset + static_cast<size_t>(i) * step;
            n.parts.push_back({.in = n.in, .what = &f, .index = i, .offset = offset, .size = step});
            n.parts.back().raw = read_number(from_.bytes, offset, f.type);
        }
    }

    static void read_bits(node &n) {
        for (const bit_field &bit : n.what->bits) {
            node part{.in = n.in, .what = n.what, .bit = &bit, .offset = n.offset, .size = n.size};
            part.raw = (n.raw >> bit.first_bit) & ((uint64_t{1} << bit.width) - 1);
            n.parts.push_back(part);
        }
    }

    void judge(const node &n) {
        const field &f = *n.what;
        if (f.must != k_anything) {
            expect(n, static_cast<uint64_t>(f.must));
        } else if (f.from != calculated::no) {
            judge_calculated(n);
        } else if (f.names != nullptr && f.names->complete && value_name_of(n).empty()) {
            say(finding_code::unknown_value, n.offset, f.name, number_text(f, n.raw));
        } else if (f.type == field_type::text && std::ranges::find(n.bytes, 0) == n.bytes.end()) {
            say(finding_code::unended_text, n.offset, f.name);
        } else if (n.in == &to_.wire->head && f.name == std::string_view(to_.wire->length_field)) {
            judge_length(n);
        }
    }

    void expect(const node &n, uint64_t must) {
        if (n.raw != must) {
            say(finding_code::wrong_value, n.offset, n.what->name, number_text(*n.what, n.raw),
                number_text(*n.what, must));
        }
    }

    void judge_calculated(const node &n) {
        if (n.what->from == calculated::head_sum) {
            unsigned sum = 0;
            for (const uint8_t byte : from_.bytes.first(n.offset)) {
                sum += byte;
            }
            expect(n, sum & 0xFF);
        } else {
            const uint64_t msgid = head_number(from_, *to_.wire, to_.wire->selector_field).value_or(0);
            expect(n, frame_crc(from_.bytes.subspan(1, n.offset - 1), static_cast<uint8_t>(msgid)));
        }
    }

    void judge_length(const node &n) {
        if (payload_.stated != payload_.arrived) {
            say(payload_.stated > payload_.arrived ? finding_code::length_cut : finding_code::length_long,
                n.offset, n.what->name, payload_.stated, payload_.arrived);
        }
    }

    /// What receivers will think of it.
    void judge_journey() {
        const envelope &wire = *to_.wire;
        if (wire.most_read > 0 && from_.wire_size > static_cast<size_t>(wire.most_read)) {
            say(finding_code::over_read, static_cast<size_t>(wire.most_read), wire.most_read,
                from_.wire_size);
        }
        const std::optional<uint64_t> src = head_number(from_, wire, "src");
        const std::optional<uint64_t> dst = head_number(from_, wire, "dst");
        if (wire.by_node_id && src && dst && !taken(*src, *dst)) {
            say(finding_code::ids_refused, find_field(wire.head, "src")->offset, *src, *dst);
        }
    }

    [[nodiscard]] bool taken(uint64_t src, uint64_t dst) const {
        const bool to_proxy = from_.dst_port == VX_NODE_PORT_BASE + PROXY_NODE_ID;
        return to_proxy || dst == VX_MSG_BROADCAST || (src < VX_NODE_COUNT && dst < VX_NODE_COUNT);
    }

    void read_payload(const form &what) {
        judge_form(what);
        size_t at = payload_.begin;
        const block *last = nullptr;
        for (const part &p : what.parts) {
            at = read_part(what, p, at);
            last = p.what;
        }
        if (what.rest != nullptr) {
            read_rest(what, last, at);
        }
        if (what.remark != nullptr) {
            say(finding_code::remark, payload_.begin, what.remark);
        }
    }

    void judge_form(const form &what) {
        const bool at_an_end = from_.dst_port == VISION_FLIGHT_PORT || from_.dst_port == VISION_CAMERA_PORT;
        if (what.port != 0 && at_an_end && from_.dst_port != what.port) {
            say(finding_code::wrong_end, 0, what.name, what.end);
        }
        for (const node &n : to_.fields) {
            if (what.dst_field != nullptr && n.what->name == std::string_view(what.dst_field)) {
                expect(n, what.dst_must);
            }
        }
        const size_t size = payload_.end - payload_.begin;
        if (what.payload_size != k_any && size != static_cast<size_t>(what.payload_size)) {
            say(finding_code::payload_size, payload_.begin, size, what.name, what.payload_size);
        }
    }

    /// Reads one part; gives where the next one begins.
    size_t read_part(const form &what, const part &p, size_t at) {
        const block &b = *p.what;
        const size_t left = payload_.end - at;
        if (p.how == repeat::once || p.how == repeat::if_room) {
            if (left >= b.size || p.how == repeat::once) {
                read_block(b, at, payload_.end, to_.fields);
            }
            if (left < b.size && p.how == repeat::once && what.payload_size == k_any) {
                say(finding_code::short_part, at, left, b.name, b.size);
            }
            return left >= b.size ? at + b.size : p.how == repeat::once ? payload_.end : at;
        }
        const size_t room = left / b.size;
        const size_t count = p.how == repeat::fill ? room : counted(p, room);
        for (size_t i = 0; i < count && has(from_, at + i * b.size, 1); ++i) {
            read_repeated(b, at + i * b.size, static_cast<int>(i));
        }
        return at + count * b.size;
    }

    /// As many as were announced and have room.
    size_t counted(const part &p, size_t room) {
        const node *count = to_.find(p.count_field);
        if (count == nullptr) {
            return 0; // and it was said why
        }
        const auto announced = static_cast<int64_t>(count->raw);
        if (announced < 0 || announced > static_cast<int64_t>(room)) {
            say(finding_code::wrong_count, count->offset, count->what->name, announced, room, p.what->size);
            wrong_count_ = true;
        }
        return static_cast<size_t>(std::clamp<int64_t>(announced, 0, static_cast<int64_t>(room)));
    }

    void read_repeated(const block &b, size_t at, int index) {
        node group{.in = &b, .index = index, .offset = at, .size = b.size};
        group.size = std::min(group.size, from_.bytes.size() - at);
        read_block(b, at, at + group.size, group.parts);
        to_.fields.push_back(std::move(group));
    }

    void read_rest(const form &what, const block *last, size_t at) {
        const size_t left = payload_.end - at;
        if (left > 0) {
            read_block(*what.rest, at, std::min(payload_.end, std::max(at, from_.bytes.size())), to_.fields);
        }
        const bool as_it_must_be = what.rest_size == k_any || left == static_cast<size_t>(what.rest_size);
        if (!as_it_must_be && !wrong_count_ && last != nullptr && payload_.stated == payload_.arrived) {
            say(finding_code::surplus, at, left, last->name, what.rest_size);
        }
    }

    const datagram &from_;
    decoded &to_;
    extent payload_{};
    bool wrong_count_ = false;
};

} // namespace

const char *node::name() const {
    if (bit != nullptr) {
        return bit->name;
    }
    return what != nullptr ? what->name : in->name;
}

family decoded::kin() const {
    return what != nullptr ? what->kin : family::unknown;
}

const char *decoded::name() const {
    return what != nullptr ? what->name : "unknown";
}

const node *decoded::find(std::string_view name) const {
    const auto found = std::ranges::find_if(
        fields, [name](const node &n) { return n.what != nullptr && name == n.what->name; });
    return found == fields.end() ? nullptr : &*found;
}

std::optional<severity> decoded::worst() const {
    const auto gravest = std::ranges::max_element(findings, {}, &finding::how);
    return gravest == findings.end() ? std::nullopt : std::optional{gravest->how};
}

const envelope *recognise(const datagram &from) {
    if (magic_is_right(from, k_route)) {
        return &k_route;
    }
    if (from.dst_port == VISION_FLIGHT_PORT || from.dst_port == VISION_CAMERA_PORT) {
        return magic_is_right(from, k_frame) ? &k_frame : &k_link;
    }
    if (is_whole_link_datagram(from)) {
        return &k_link;
    }
    if (is_whole_frame(from)) {
        return &k_frame;
    }
    return is_node_port(from.dst_port) ? &k_route : nullptr;
}

decoded decode_as(const envelope &wire, const datagram &from) {
    decoded read;
    read.wire = &wire;
    reader(from, read).run();
    return read;
}

decoded decode(const datagram &from) {
    const envelope *wire = recognise(from);
    return wire != nullptr ? decode_as(*wire, from) : decoded{};
}

glance look(const datagram &from) {
    glance seen;
    seen.wire = recognise(from);
    if (seen.wire == nullptr || from.bytes.size() < seen.wire->head.size ||
        !magic_is_right(from, *seen.wire)) {
        return seen;
    }
    const envelope &wire = *seen.wire;
    const extent payload = payload_of(from, wire);
    const auto number = [&](const char *name) {
        return static_cast<uint16_t>(head_number(from, wire, name).value_or(0));
    };
    seen.what = find_form(from, wire, payload);
    seen.kind = number(wire.selector_field);
    if (&wire != &k_frame) {
        seen.src = number(&wire == &k_route ? "src" : "msg_src");
        seen.dst = number(&wire == &k_route ? "dst" : "msg_dst");
    }
    const bool user = seen.what != nullptr && seen.what->kin == family::user;
    if (user && payload.end - payload.begin >= 2 && has(from, payload.begin, 2)) {
        seen.key = static_cast<uint16_t>(number_at(from.bytes, payload.begin, 2));
    }
    return seen;
}

} // namespace formats
