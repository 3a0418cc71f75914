// What a node makes of datagrams. See dispatch_model.h.
#include "dispatch_model.h"

#include "check.h"
#include "hb_mgr.h"
#include "node.h"
#include "node_mapping.h"

#include <arpa/inet.h>

namespace fuzz {
namespace {

constexpr size_t k_head = 16;
constexpr size_t k_flag_at = 2;
constexpr size_t k_kind_at = 3;
constexpr size_t k_length_at = 4;
constexpr size_t k_src_at = 6;
constexpr size_t k_dst_at = 8;
constexpr size_t k_time_at = 12;
constexpr size_t k_largest_datagram = 8192;
constexpr size_t k_largest_payload = 8192;
constexpr size_t k_ip_at = 16; // in a record, with port, id and state behind it
constexpr size_t k_port_at = 32;
constexpr size_t k_id_at = 34;
constexpr size_t k_stat_at = 36;

struct call {
    const void *payload;
    MsgExtra extra;
};
std::vector<call> calls; // of the callback, by the datagram in hand

unsigned word(const bytes &from, size_t at) {
    return from[at] | static_cast<unsigned>(from[at + 1]) << 8;
}

bytes key_of(const bytes &payload) {
    bytes key = payload;
    key.resize(2); // a payload that is too short for a key is filled up
    return key;
}

/// Where a record says that its node is; a text that is no address means 0.0.0.0.
outside::datagram address_of(const record &r) {
    std::string ip(reinterpret_cast<const char *>(&r[k_ip_at]),
                   15); // the 16th byte is the end, whatever it is
    in_addr parsed{};
    if (inet_pton(AF_INET, ip.c_str(), &parsed) != 1) {
        parsed.s_addr = 0;
    }
    return {ntohl(parsed.s_addr), static_cast<uint16_t>(r[k_port_at] | r[k_port_at + 1] << 8), {}};
}

void empty_receive_queue() {
    io_pool_deinit();
    FUZZ_CHECK(io_pool_init(same_key) == 0);
}

} // namespace

record record_of(uint16_t id, uint8_t stat) {
    record r{};
    const std::string ip = "192.168.1." + std::to_string(id);
    std::copy(ip.begin(), ip.end(), r.begin() + k_ip_at);
    ut_put_le16(&r[k_port_at], static_cast<uint16_t>(9000 + id));
    ut_put_le16(&r[k_id_at], id);
    r[k_stat_at] = stat;
    return r;
}

dispatch_model::dispatch_model(uint16_t own_id, const std::vector<uint16_t> &active) : own_id_(own_id) {
    empty_receive_queue();
    for (uint16_t id = 0; id < table_.size(); ++id) {
        table_[id] = record_of(id, std::find(active.begin(), active.end(), id) != active.end() ? 1 : 0);
        const vexa_node_t node = vexa_node_load(table_[id].data());
        FUZZ_CHECK(nmapping_set(id, &node) == 0);
    }
    VPHeartbeatFrame frame;
    (void)hbmgr_get_hb(&frame);
    frame_ = hb_rows::to_bytes(frame);
    (void)outside::take_sent();
}

bool dispatch_model::accepts(const bytes &datagram) const {
    if (datagram.size() < k_head || datagram[0] != 0x3A || datagram[1] != 0x5E) {
        return false;
    }
    const unsigned src = word(datagram, k_src_at);
    const unsigned dst = word(datagram, k_dst_at);
    return own_id_ == 127 || (src <= 127 && dst <= 127) || dst == 0xFF00;
}

void dispatch_model::dispatch(const bytes &datagram) {
    calls.clear();
    sent_to_.clear();
    exact_block handled(datagram);
    thrio_proc_message(nullptr, handled.data(), static_cast<int>(handled.size()));
    const bytes after = handled.copy();

    const bool accepted = accepts(datagram);
    const int kind = accepted ? datagram[k_kind_at] : -1;
    FUZZ_CHECK(calls.size() == (kind == 1 ? 1 : 0));
    if (!accepted) {
        FUZZ_CHECK(after == datagram);
    } else {
        FUZZ_CHECK(std::equal(after.begin() + k_head, after.end(), datagram.begin() + k_head));
        const uint32_t time = ut_get_le32(&after[k_time_at]);
        FUZZ_CHECK(time <= 999'999'000 && time % 1000 == 0);
    }
    if (kind == 0) {
        expect_status(datagram);
    } else if (kind == 1) {
        const MsgExtra &extra = calls.front().extra;
        FUZZ_CHECK(calls.front().payload == handled.data() + k_head);
        FUZZ_CHECK(static_cast<unsigned>(extra.src) == word(datagram, k_src_at));
        FUZZ_CHECK(static_cast<unsigned>(extra.dst) == word(datagram, k_dst_at));
        FUZZ_CHECK(extra.recv_time == ut_get_le32(&after[k_time_at]));
        FUZZ_CHECK(extra.len == static_cast<int>(datagram.size()));
    } else if (kind == 2) {
        expect_records(datagram);
    } else if (kind == 4) {
        expect_heartbeat(datagram);
    }
    compare_sends(datagram, after);
}

void dispatch_model::expect_status(const bytes &datagram) {
    const size_t length = word(datagram, k_length_at);
    const size_t arrived = datagram.size() - k_head;
    const bool cut = datagram.size() == k_largest_datagram;
    const auto src = static_cast<uint16_t>(word(datagram, k_src_at));
    if (length > k_largest_payload || (length > arrived && !cut) || src > 127) {
        return;
    }
    bytes payload(datagram.begin() + k_head, datagram.end());
    payload.resize(length); // what was cut off is zero
    put({src, static_cast<uint16_t>(word(datagram, k_dst_at)), payload});
}

void dispatch_model::put(stored message) {
    const auto same = [&](const stored &queued) { return key_of(queued.payload) == key_of(message.payload); };
    const auto found = std::find_if(queue_.begin(), queue_.end(), same);
    if (found != queue_.end() && found->payload.size() >= message.payload.size()) {
        *found = message;
    } else {
        if (found != queue_.end()) {
            queue_.erase(found);
        }
        queue_.push_back(message);
    }
    compare_one(message);
}

void dispatch_model::expect_records(const bytes &datagram) {
    if ((datagram[k_flag_at] & 0x80) != 0) {
        table_[0][k_stat_at] = 1;
    }
    const size_t arrived = datagram.size() - k_head;
    if (arrived < 4) {
        return;
    }
    const auto said = static_cast<int16_t>(word(datagram, k_head + 2));
    for (int i = 0; i < said; ++i) {
        const size_t at = k_head + 4 + static_cast<size_t>(i) * VX_NODE_RECORD_SIZE;
        if (at + VX_NODE_RECORD_SIZE > datagram.size()) {
            break;
        }
        const unsigned id = word(datagram, at + k_id_at);
        if (id < table_.size()) {
            std::copy_n(datagram.begin() + static_cast<ptrdiff_t>(at), VX_NODE_RECORD_SIZE,
                        table_[id].begin());
        }
    }
}

void dispatch_model::expect_heartbeat(const bytes &datagram) {
    const size_t arrived = datagram.size() - k_head;
    const size_t length = word(datagram, k_length_at);
    const size_t pairs = std::min(length, arrived) / 8;
    for (size_t i = 0; i < pairs; ++i) {
        const uint32_t field = ut_get_le32(&datagram[k_head + 8 * i]);
        if (field < std::size(hb_rows::all)) {
            hb_rows::set(frame_, hb_rows::all[field].where,
                         static_cast<int>(ut_get_le32(&datagram[k_head + 8 * i + 4])));
        }
    }
    if (own_id_ != 127) {
        return;
    }
    sent_length_ = static_cast<uint16_t>(length <= arrived ? length : 8 * pairs);
    for (uint16_t id = 1; id < 127; ++id) {
        if (table_[id][k_stat_at] == 1) {
            sent_to_.push_back(id);
        }
    }
}

void dispatch_model::compare_sends(const bytes &datagram, const bytes &handled) const {
    const std::vector<outside::datagram> sent = outside::take_sent();
    FUZZ_CHECK(sent.size() == sent_to_.size());
    for (size_t i = 0; i < sent.size(); ++i) {
        const outside::datagram to = address_of(table_[sent_to_[i]]);
        FUZZ_CHECK(sent[i].ip == to.ip && sent[i].port == to.port);
        bytes expected(datagram.begin(), datagram.begin() + static_cast<ptrdiff_t>(k_head + sent_length_));
        ut_put_le16(&expected[k_length_at], sent_length_);
        ut_put_le16(&expected[k_src_at], 127);
        ut_put_le16(&expected[k_dst_at], sent_to_[i]);
        std::copy_n(handled.begin() + k_time_at, 4, expected.begin() + k_time_at);
        FUZZ_CHECK(sent[i].content == expected);
    }
}

void dispatch_model::compare_one(const stored &message) const {
    const bytes key = key_of(message.payload);
    exact_block got(message.payload.size());
    MsgExtra extra{};
    const int len = vision_recv_status(static_cast<MsgType>(word(key, 0)), got.data(), 0, &extra);
    FUZZ_CHECK(len == static_cast<int>(message.payload.size()) && extra.len == len);
    FUZZ_CHECK(got.copy() == message.payload);
    FUZZ_CHECK(len == 0 || (static_cast<unsigned>(extra.src) == message.src &&
                            static_cast<unsigned>(extra.dst) == message.dst));
}

void dispatch_model::compare_state() const {
    for (const stored &message : queue_) {
        compare_one(message);
    }
    for (uint16_t id = 0; id < table_.size(); ++id) {
        vexa_node_t node;
        FUZZ_CHECK(nmapping_get(id, &node) == 0);
        record got;
        vexa_node_store(got.data(), &node);
        FUZZ_CHECK(got == table_[id]);
    }
    VPHeartbeatFrame frame;
    (void)hbmgr_get_hb(&frame);
    FUZZ_CHECK(hb_rows::to_bytes(frame) == frame_);
}

void dispatch_model::on_message(void *payload, MsgExtra *extra) {
    calls.push_back({payload, *extra});
}

std::vector<bytes> datagrams_of(const uint8_t *data, size_t size) {
    std::vector<bytes> all;
    for (input in(data, size); !in.empty();) {
        const size_t arrived = in.u16() % (k_largest_datagram + 1);
        bytes datagram = in.take(std::min<size_t>(in.u16(), arrived));
        const bytes rest = pattern(arrived - datagram.size());
        datagram.insert(datagram.end(), rest.begin(), rest.end());
        all.push_back(std::move(datagram));
    }
    return all;
}

} // namespace fuzz
