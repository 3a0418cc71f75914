// The transmit side of the I/O thread: any messages in the queue and any node table; every message goes to
// the next hop's address, byte by byte, or to every active node below its sender, or nowhere.
#include "node_mapping.h"
#include "node_mgr_msg_helper.h"
#include "support/check.h"
#include "support/dispatch_model.h"
#include "support/node.h"

#include <arpa/inet.h>
#include <unistd.h>

namespace {

namespace outside = fuzz::outside;

constexpr uint16_t k_own_id = 9;

thr_in_data_t *context = nullptr;

struct expected_datagram {
    uint16_t to;
    fuzz::bytes content;
};

class transmit_beside_model {
public:
    transmit_beside_model() {
        for (uint16_t id = 0; id < VX_NODE_COUNT; ++id) {
            set(id, id % 3 == 1 ? 1 : 0);
        }
        (void)outside::take_sent();
    }

    void step(fuzz::input &in) {
        const uint8_t what = in.u8() % 8;
        if (what == 0) {
            set(in.u8() % VX_NODE_COUNT, in.u8() % 3);
        } else if (what == 1) {
            run();
        } else if (what == 2) {
            send_record(in.u8() % 140, in.u8() % 140, in.u8());
        } else {
            queue(in);
        }
    }

    /// The loop's turn: all that is queued is sent, in its order.
    void run() {
        FUZZ_CHECK(write(context->pipefd[1], "gg", 2) == 2);
        on_write(nullptr, &context->ev, EV_READ);
        const std::vector<outside::datagram> sent = outside::take_sent();
        std::vector<expected_datagram> expected;
        for (const fuzz::bytes &message : queued_) {
            expect(message, expected);
        }
        queued_.clear();
        FUZZ_CHECK(sent.size() == expected.size());
        for (size_t i = 0; i < sent.size(); ++i) {
            FUZZ_CHECK(sent[i].ip == 0xC0A80100U + expected[i].to);
            FUZZ_CHECK(sent[i].port == 9000 + expected[i].to && sent[i].content == expected[i].content);
        }
    }

private:
    void set(uint16_t id, uint8_t stat) {
        const vexa_node_t node = vexa_node_load(fuzz::record_of(id, stat).data());
        FUZZ_CHECK(nmapping_set(id, &node) == 0);
        active_[id] = stat == 1;
        states_[id] = stat;
    }

    /// One node's record to another node, past the queue.
    void send_record(uint16_t src, uint16_t dst, uint8_t kind) {
        const bool known = src < VX_NODE_COUNT && dst < VX_NODE_COUNT && active_[dst];
        FUZZ_CHECK(send_node_info(context->pipefd[0], src, dst, kind) == (known ? 0 : -1));
        const std::vector<outside::datagram> sent = outside::take_sent();
        FUZZ_CHECK(sent.size() == (known ? 1 : 0));
        if (known) {
            fuzz::bytes expected = {0x3A, 0x5E, 0, kind, VX_NODE_RECORD_SIZE};
            expected.resize(VX_MSG_HEAD_SIZE);
            ut_put_le16(&expected[6], src);
            ut_put_le16(&expected[8], dst);
            const fuzz::record record = fuzz::record_of(src, states_[src]);
            expected.insert(expected.end(), record.begin(), record.end());
            FUZZ_CHECK(sent[0].port == 9000 + dst && sent[0].content == expected);
        }
    }

    /// Kind 2 would end the node, and is the library's own to send.
    void queue(fuzz::input &in) {
        const uint8_t kind = in.u8();
        const uint8_t where = in.u8();
        const uint16_t src = in.u8() % 130;
        const uint16_t dst = where < 200 ? where : where < 230 ? 0xFF00 : in.u16();
        const uint16_t size = in.u8() < 250 ? in.u8() : in.u16() % (VX_MSG_MAX_PAYLOAD + 1);
        fuzz::bytes payload = in.take(std::min<size_t>(size, 4));
        payload.resize(size);
        fuzz::bytes message = {0x3A, 0x5E, 0, static_cast<uint8_t>(kind == MSTP_NODE_MGR ? 1 : kind)};
        message.resize(VX_MSG_HEAD_SIZE);
        ut_put_le16(&message[4], size);
        ut_put_le16(&message[6], src);
        ut_put_le16(&message[8], dst);
        message.insert(message.end(), payload.begin(), payload.end());

        fuzz::exact_block block(message);
        const vx_msg_head_t head = vx_msg_head_load(block.data()); // in a queue it is in host order
        memcpy(block.data(), &head, sizeof head);
        FUZZ_CHECK(io_pool_tx_put(reinterpret_cast<const vx_msg_head_t *>(block.data())) == 0);
        queued_.push_back(message);
        if (queued_.size() > 1025) { // the oldest is dropped for the newest
            queued_.erase(queued_.begin());
        }
    }

    void expect(fuzz::bytes message, std::vector<expected_datagram> &expected) const {
        const uint8_t kind = message[3];
        const uint16_t src = ut_get_le16(&message[6]);
        const uint16_t dst = ut_get_le16(&message[8]);
        if (kind != 0 && kind != 1 && kind != 4) {
            return;
        }
        if (dst != 0xFF00) {
            const uint16_t hop = std::min<uint16_t>(dst, 127);
            if (active_[hop]) {
                expected.push_back({hop, message});
            }
            return;
        }
        for (uint16_t id = 1; id < VX_NODE_COUNT && id != src; ++id) {
            if (active_[id]) {
                ut_put_le16(&message[8], id);
                expected.push_back({id, message});
            }
        }
    }

    std::array<bool, VX_NODE_COUNT> active_{};
    std::array<uint8_t, VX_NODE_COUNT> states_{};
    std::vector<fuzz::bytes> queued_;
};

} // namespace

int LLVMFuzzerInitialize(int * /*argc*/, char *** /*argv*/) {
    context = &fuzz::start_node(k_own_id, fuzz::dispatch_model::on_message);
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    transmit_beside_model node;
    for (fuzz::input in(data, size); !in.empty();) {
        node.step(in);
    }
    node.run();
    return 0;
}
