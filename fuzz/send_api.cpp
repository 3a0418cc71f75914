// The sending functions of a node that runs, threads and all: any destination, kind, length and table. The
// result is what the arguments deserve, and the datagram, sent at once or by the I/O thread, is right byte by
// byte.
#include "node_mapping.h"
#include "support/check.h"
#include "support/dispatch_model.h"
#include "support/node.h"
#include "support/outside.h"
#include "vision_service_route_funcs.h"

#include <cstdlib>

namespace {

namespace outside = fuzz::outside;

constexpr uint16_t k_own_id = 9;
constexpr int k_most_payload = 8192;
constexpr int k_most_pairs = 1024;

/// An argument pair of a sending function, which need not fit together.
struct payload {
    fuzz::exact_block block;
    int len;
    bool null;
    [[nodiscard]] const void *msg() const { return null ? nullptr : block.data(); }
    [[nodiscard]] bool acceptable() const { return len >= 0 && len <= k_most_payload && (!null || len == 0); }
};

payload draw_payload(fuzz::input &in) {
    const uint8_t how = in.u8();
    const size_t size = how < 240 ? how : (in.u16() % (k_most_payload + 1));
    fuzz::bytes content = in.take(std::min<size_t>(size, 8));
    const fuzz::bytes rest = fuzz::pattern(size - content.size());
    content.insert(content.end(), rest.begin(), rest.end());
    if (how < 250) {
        return {fuzz::exact_block(content), static_cast<int>(size), how == 249};
    }
    const int wrong = how == 255   ? k_most_payload + 1
                      : how == 254 ? -1
                                   : static_cast<int>(in.u32() | 0x8000'0000U);
    return {fuzz::exact_block(content), wrong, false}; // refused before the bytes are looked at
}

uint16_t next_hop(uint32_t dst) {
    return static_cast<uint16_t>(std::min<uint32_t>(dst, 127));
}

fuzz::bytes message(int kind, uint16_t dst, const fuzz::bytes &content) {
    fuzz::bytes made = {0x3A, 0x5E, 0, static_cast<uint8_t>(kind)};
    made.resize(VX_MSG_HEAD_SIZE);
    ut_put_le16(&made[4], static_cast<uint16_t>(content.size()));
    ut_put_le16(&made[6], k_own_id);
    ut_put_le16(&made[8], dst);
    made.insert(made.end(), content.begin(), content.end());
    return made;
}

constexpr uint16_t k_marked_id = 120; // of a node that is always active

class node_beside_model {
public:
    node_beside_model() {
        for (uint16_t id = 0; id < VX_NODE_COUNT; ++id) {
            set(id, id % 3 == 1 ? 1 : 0);
        }
    }

    void step(fuzz::input &in) {
        switch (in.u8() % 6) {
        case 0:
            set(in.u8() % VX_NODE_COUNT, in.u8() % 3);
            break;
        case 1:
            send_directly(in);
            break;
        case 2:
        case 3:
            send_queued(in);
            break;
        case 4:
            broadcast(in.flag(), draw_payload(in));
            break;
        default:
            set_heartbeat(in);
        }
    }

private:
    void set(uint16_t id, uint8_t drawn) {
        const uint8_t stat = id == k_marked_id ? 1 : drawn;
        const vexa_node_t node = vexa_node_load(fuzz::record_of(id, stat).data());
        FUZZ_CHECK(nmapping_set(id, &node) == 0);
        active_[id] = stat == 1;
    }

    static uint32_t draw_destination(fuzz::input &in) {
        const uint8_t near = in.u8();
        return near < 240 ? near % 140U : in.u32();
    }

    static void compare(const outside::datagram &got, uint16_t hop, const fuzz::bytes &content) {
        FUZZ_CHECK(got.ip == 0xC0A80100U + hop && got.port == 9000 + hop && got.content == content);
    }

    static void compare_direct(bool sent, uint16_t hop, const fuzz::bytes &content) {
        const std::vector<outside::datagram> got = outside::take_sent();
        FUZZ_CHECK(got.size() == (sent ? 1 : 0));
        if (sent) {
            compare(got[0], hop, content);
        }
    }

    void send_directly(fuzz::input &in) {
        const bool status = in.flag();
        const uint32_t dst = draw_destination(in);
        const payload p = draw_payload(in);
        const bool good = dst <= UINT16_MAX && active_[next_hop(dst)] && p.acceptable();
        const auto id = static_cast<NodeID>(dst);
        const int result =
            status ? vision_send_status(id, p.msg(), p.len) : vision_send_msg(id, p.msg(), p.len);
        FUZZ_CHECK(result == (good ? 0 : -1));
        compare_direct(good, next_hop(dst),
                       good ? message(status ? 0 : 1, static_cast<uint16_t>(dst), content_of(p))
                            : fuzz::bytes{});
    }

    static fuzz::bytes content_of(const payload &p) { return p.null ? fuzz::bytes{} : p.block.copy(); }

    /// Kind 2 is left out: it ends the node.
    void send_queued(fuzz::input &in) {
        const int drawn = in.flag() ? static_cast<int>(in.u32()) : in.u8() % 6;
        const int kind = static_cast<uint8_t>(drawn) == 2 ? 1 : drawn;
        const auto dst = static_cast<uint16_t>(draw_destination(in));
        const payload p = draw_payload(in);
        const bool good = active_[next_hop(dst)] && p.acceptable();
        FUZZ_CHECK(vxmsg_send_general(dst, kind, p.msg(), p.len) == (good ? 0 : -1));
        const auto sent_as = static_cast<uint8_t>(kind);
        const bool known = sent_as == 0 || sent_as == 1 || sent_as == 4;
        if (!good || !known) {
            compare_queued({}, {});
        } else if (dst == 0xFF00) {
            compare_broadcast(sent_as, content_of(p));
        } else {
            compare_queued({next_hop(dst)}, {message(sent_as, dst, content_of(p))});
        }
    }

    void broadcast(bool status, const payload &p) {
        const int result =
            status ? vision_broadcast_status(p.msg(), p.len) : vision_brocast_msg(p.msg(), p.len);
        FUZZ_CHECK(result == (p.acceptable() ? 0 : -1));
        if (p.acceptable()) {
            compare_broadcast(status ? 0 : 1, content_of(p));
        }
    }

    void compare_broadcast(int kind, const fuzz::bytes &content) {
        std::vector<uint16_t> hops;
        std::vector<fuzz::bytes> messages;
        for (uint16_t id = 1; id < k_own_id; ++id) {
            if (active_[id]) {
                hops.push_back(id);
                messages.push_back(message(kind, id, content));
            }
        }
        compare_queued(hops, messages);
    }

    /// A last message shows that the node's thread is done: the table may change only then, or a broadcast
    /// that it is still at would go to a node that became active behind the last one.
    static void compare_queued(const std::vector<uint16_t> &hops, const std::vector<fuzz::bytes> &messages) {
        const fuzz::bytes mark = {1, 2, 3};
        FUZZ_CHECK(vxmsg_send_general(k_marked_id, 1, mark.data(), static_cast<int>(mark.size())) == 0);
        const std::vector<outside::datagram> got = outside::await_sent_by_threads(hops.size() + 1);
        FUZZ_CHECK(got.size() == hops.size() + 1 && outside::take_sent().empty());
        for (size_t i = 0; i < hops.size(); ++i) {
            compare(got[i], hops[i], messages[i]);
        }
        compare(got.back(), k_marked_id, message(1, k_marked_id, mark));
    }

    /// The proxy gets it whether it is active or not.
    static void set_heartbeat(fuzz::input &in) {
        const uint8_t how = in.u8();
        const size_t given = how < 250 ? how % 16U : 0;
        const int count = how < 250 ? static_cast<int>(given) : how == 255 ? k_most_pairs + 1 : -1;
        fuzz::bytes raw = in.take(given * sizeof(HeartBeatPair));
        raw.resize(given * sizeof(HeartBeatPair));
        fuzz::exact_block block(raw.size());
        auto *pairs = reinterpret_cast<HeartBeatPair *>(block.data());
        for (size_t i = 0; i < given; ++i) {
            pairs[i].field = static_cast<HeartBeatField>(ut_get_le32(&raw[8 * i]));
            pairs[i].value = static_cast<int>(ut_get_le32(&raw[8 * i + 4]));
        }
        FUZZ_CHECK(vision_set_hearbeat(pairs, count) == (how < 250 ? 0 : -1));
        compare_direct(how < 250, 127, message(4, 127, raw));
    }

    std::array<bool, VX_NODE_COUNT> active_{};
};

} // namespace

int LLVMFuzzerInitialize(int * /*argc*/, char *** /*argv*/) {
    FUZZ_CHECK(vision_msg_component_init(static_cast<NodeID>(k_own_id), "fuzz", "192.168.1.9", nullptr) == 0);
    fuzz::await_own_record(k_own_id);
    FUZZ_CHECK(atexit(vision_msg_component_deinit) ==
               0); // no thread of the node may outlive what it works on
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    node_beside_model node;
    for (fuzz::input in(data, size); !in.empty();) {
        node.step(in);
    }
    return 0;
}
