// The message pool: sequences of puts and gets on both queues, with stops and starts between, against lists
// of what must be in them.
#include "io_pool.h"
#include "support/check.h"
#include "support/input.h"
#include "support/node.h"

#include <deque>

namespace {

constexpr size_t k_most_queued = 1025;
constexpr size_t k_flood = 1030;       // more than a queue holds; seldom, for a long queue is slow
constexpr size_t k_bulk_budget = 1100; // of one input
constexpr size_t k_looks = 64;         // at the receive queue's messages in the end

struct message {
    uint16_t src;
    uint16_t dst;
    fuzz::bytes payload;
};

/// A payload that is too short for a key is filled up.
unsigned key_of(const fuzz::bytes &payload) {
    const unsigned low = payload.empty() ? 0 : payload[0];
    return payload.size() < 2 ? low : low | static_cast<unsigned>(payload[1]) << 8;
}

/// A message in a block of its own that ends with its last byte.
fuzz::exact_block block_of(const message &m) {
    fuzz::exact_block block(VX_MSG_HEAD_SIZE + m.payload.size());
    const vx_msg_head_t head = vx_msg_head_make(0, static_cast<uint16_t>(m.payload.size()), m.src, m.dst);
    memcpy(block.data(), &head, sizeof head);
    std::copy(m.payload.begin(), m.payload.end(), block.data() + VX_MSG_HEAD_SIZE);
    return block;
}

const vx_msg_head_t *head_of(const fuzz::exact_block &block) {
    return reinterpret_cast<const vx_msg_head_t *>(block.data());
}

class pool_beside_model {
public:
    pool_beside_model() { restart(); }

    void step(fuzz::input &in) {
        switch (in.u8() % 9) {
        case 0:
        case 1:
            rx_put(draw(in));
            break;
        case 2:
            rx_get(in.u16() & 0x03FFU);
            break;
        case 3:
            tx_put(draw(in));
            break;
        case 4:
            tx_get();
            break;
        case 5:
            many(in, [this](const message &m) { rx_put(m); });
            break;
        case 6:
            many(in, [this](const message &m) { tx_put(m); });
            break;
        case 7:
            tx_put_last(draw(in));
            break;
        default:
            stop(in.flag());
        }
    }

    /// Takes everything out again.
    void finish() {
        for (size_t i = 0; i < rx_.size(); i += 1 + rx_.size() / k_looks) {
            rx_get(key_of(rx_[i].payload));
        }
        while (!tx_.empty()) {
            tx_get();
        }
        tx_get();
    }

private:
    static message draw(fuzz::input &in) {
        const uint16_t src = in.u8() % 132; // some are no nodes
        const uint16_t dst = in.u16();
        const uint8_t size = in.u8();
        const size_t length = size < 250 ? size / 4 : (size - 250U) * 2000U; // the longest is too long
        fuzz::bytes payload = in.take(std::min<size_t>(length, 3));
        const fuzz::bytes rest = fuzz::pattern(length - payload.size());
        payload.insert(payload.end(), rest.begin(), rest.end());
        if (payload.size() >= 2) {
            payload[1] %= 4; // few keys, so that they meet
        }
        return {src, dst, payload};
    }

    template <class Put>
    void many(fuzz::input &in, Put put) {
        const uint8_t how_many = in.u8();
        const size_t count =
            std::min<size_t>(how_many < 255 ? how_many % 16 : k_flood, k_bulk_budget - done_in_bulk_);
        const auto first_key = in.u16();
        done_in_bulk_ += count;
        for (size_t i = 0; i < count; ++i) {
            fuzz::bytes payload(4);
            ut_put_le16(payload.data(), static_cast<uint16_t>(first_key + i));
            put({1, 2, payload});
        }
    }

    void rx_put(const message &m) {
        const bool refused = !running_ || m.src > 127 || m.payload.size() > VX_MSG_MAX_PAYLOAD;
        const fuzz::exact_block block = block_of(m);
        FUZZ_CHECK(io_pool_rx_put(head_of(block)) == (refused ? -1 : 0));
        if (!refused) {
            expect_newest(m);
        }
    }

    void expect_newest(const message &m) {
        if (rx_.size() >= k_most_queued) {
            rx_.pop_front();
            rx_.push_back(m);
            return;
        }
        const auto queued = find(key_of(m.payload));
        if (queued != rx_.end() && queued->payload.size() >= m.payload.size()) {
            *queued = m;
            return;
        }
        if (queued != rx_.end()) {
            rx_.erase(queued);
        }
        rx_.push_back(m);
    }

    std::deque<message>::iterator find(unsigned key) {
        return std::find_if(rx_.begin(), rx_.end(),
                            [&](const message &m) { return key_of(m.payload) == key; });
    }

    void rx_get(unsigned key) {
        const auto queued = find(key);
        const bool there = queued != rx_.end();
        fuzz::exact_block buf(there ? queued->payload.size() : 0);
        vx_msg_head_t head{};
        int len = -1;
        fuzz::exact_block wanted(2);
        ut_put_le16(wanted.data(), static_cast<uint16_t>(key));
        const int got = io_pool_rx_get(wanted.data(), buf.chars(), &len, &head);
        FUZZ_CHECK(got == len && static_cast<size_t>(got) == buf.size());
        if (there) {
            FUZZ_CHECK(buf.copy() == queued->payload);
            FUZZ_CHECK(head.src == queued->src && head.dst == queued->dst && head.data_length == got);
        }
    }

    void tx_put(const message &m) {
        const bool refused = !running_ || closed_ || m.payload.size() > VX_MSG_MAX_PAYLOAD;
        const fuzz::exact_block block = block_of(m);
        FUZZ_CHECK(io_pool_tx_put(head_of(block)) == (refused ? -1 : 0));
        if (!refused) {
            expect_at_tail(m);
        }
    }

    void tx_put_last(const message &m) {
        if (m.payload.size() > VX_MSG_MAX_PAYLOAD) {
            return; // it is the library's own message, and never that long
        }
        const fuzz::exact_block block = block_of(m);
        io_pool_tx_put_last(head_of(block));
        if (running_) {
            closed_ = true;
            expect_at_tail(m);
        }
    }

    void expect_at_tail(const message &m) {
        if (tx_.size() >= k_most_queued) {
            tx_.pop_front();
        }
        tx_.push_back(m);
    }

    void tx_get() {
        const bool there = !tx_.empty();
        fuzz::exact_block buf(there ? VX_MSG_HEAD_SIZE + tx_.front().payload.size() : 0);
        int len = -1;
        const int got = io_pool_tx_get(buf.chars(), &len);
        FUZZ_CHECK(got == len && static_cast<size_t>(got) == buf.size());
        if (there) {
            FUZZ_CHECK(buf.copy() == block_of(tx_.front()).copy());
            tx_.pop_front();
        }
    }

    void stop(bool start_again) {
        io_pool_deinit();
        running_ = false;
        rx_.clear();
        tx_.clear();
        if (start_again) {
            restart();
        }
    }

    void restart() {
        io_pool_deinit();
        FUZZ_CHECK(io_pool_init(fuzz::same_key) == 0);
        FUZZ_CHECK(io_pool_init(fuzz::same_key) == 0); // a second one changes nothing
        running_ = true;
        closed_ = false;
    }

    std::deque<message> rx_;
    std::deque<message> tx_;
    bool running_ = false;
    bool closed_ = false;
    size_t done_in_bulk_ = 0;
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    pool_beside_model pool;
    for (fuzz::input in(data, size); !in.empty();) {
        pool.step(in);
    }
    pool.finish();
    return 0;
}
