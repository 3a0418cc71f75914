/**
 * @file
 * For the tests of the queues: messages in blocks of exactly their size, a match function whose calls can be
 * looked at, and what a queue holds.
 */
#ifndef POOL_PROBE_H
#define POOL_PROBE_H

#include "io_pool.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

namespace pool_probe {

using bytes = std::vector<uint8_t>;

/** Header and payload in a block that ends where the message does. */
class message {
public:
    message(unsigned src, unsigned dst, const bytes &payload) : block_(VX_MSG_HEAD_SIZE + payload.size()) {
        vx_msg_head_t head{};
        head.magic = VX_MSG_MAGIC;
        head.data_length = static_cast<uint16_t>(payload.size());
        head.src = static_cast<uint16_t>(src);
        head.dst = static_cast<uint16_t>(dst);
        memcpy(block_.data(), &head, sizeof head);
        std::copy(payload.begin(), payload.end(), block_.begin() + VX_MSG_HEAD_SIZE);
    }
    operator const vx_msg_head_t *() const { // NOLINT(google-explicit-constructor): the pool takes these
        return reinterpret_cast<const vx_msg_head_t *>(block_.data());
    }
    [[nodiscard]] const bytes &block() const { return block_; }
    bytes &block() { return block_; }

private:
    bytes block_;
};

/** `size` bytes of payload: a key, then `fill` over and over. */
inline bytes payload(unsigned key, size_t size, uint8_t fill = 0x5A) {
    bytes made(size, fill);
    for (size_t i = 0; i < std::min<size_t>(size, 2); ++i) {
        made[i] = static_cast<uint8_t>(key >> (8 * i));
    }
    return made;
}

/** A message from node 3 to node 5 with that payload. */
inline message status(unsigned key, size_t size, uint8_t fill = 0x5A) {
    return {3, 5, payload(key, size, fill)};
}

inline unsigned key_at(const void *place) {
    const auto *two = static_cast<const uint8_t *>(place);
    return two[0] | static_cast<unsigned>(two[1]) << 8;
}

using pair_of_keys = std::pair<unsigned, unsigned>;

/** The two keys of every call of same_key, oldest first. */
inline std::vector<pair_of_keys> &matched() {
    static std::vector<pair_of_keys> calls;
    return calls;
}

/** Compares keys, as a node does. */
inline bool same_key(const void *a, const void *b) {
    matched().emplace_back(key_at(a), key_at(b));
    return key_at(a) == key_at(b);
}

/** Matches anything. */
inline bool any_key(const void *a, const void *b) {
    (void)same_key(a, b);
    return true;
}

/** What io_pool_rx_get answers. */
struct answer {
    int result = 0;
    int len = 0;
    bytes payload; // of `len` bytes
    vx_msg_head_t head{};
};

/** Asks for a key with a buffer of the largest size, and checks that nothing behind the payload is written.
 */
inline answer ask(unsigned key) {
    const bytes key_bytes = payload(key, 2);
    bytes room(VX_MSG_MAX_PAYLOAD, 0xEE);
    answer a;
    memset(&a.head, 0xEE, sizeof a.head);
    a.len = 77;
    a.result = io_pool_rx_get(key_bytes.data(), reinterpret_cast<char *>(room.data()), &a.len, &a.head);
    const auto size = static_cast<size_t>(a.len);
    EXPECT_EQ(bytes(room.begin() + a.len, room.end()), bytes(room.size() - size, 0xEE));
    a.payload.assign(room.begin(), room.begin() + a.len);
    return a;
}

/** The keys in the receive queue from its head on. Only while same_key is the match function. */
inline std::vector<unsigned> queued_keys() {
    constexpr unsigned nobodys_key = 0xFFFF;
    matched().clear();
    EXPECT_EQ(ask(nobodys_key).result, 0);
    std::vector<unsigned> keys;
    for (const pair_of_keys &call : matched()) {
        keys.push_back(call.second);
    }
    matched().clear();
    return keys;
}

/** The next message of the transmit queue, header and payload; empty when there is none. */
inline bytes take() {
    bytes room(VX_MSG_BUFFER_SIZE, 0xEE);
    int len = 77;
    const int result = io_pool_tx_get(reinterpret_cast<char *>(room.data()), &len);
    EXPECT_EQ(result, len);
    EXPECT_EQ(bytes(room.begin() + len, room.end()), bytes(room.size() - static_cast<size_t>(len), 0xEE));
    room.resize(static_cast<size_t>(len));
    return room;
}

/** Everything in the transmit queue, oldest first. */
inline std::vector<bytes> take_all() {
    std::vector<bytes> all;
    for (bytes one = take(); !one.empty(); one = take()) {
        all.push_back(one);
    }
    return all;
}

/** The queues with same_key. */
class Pool : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(io_pool_init(same_key), 0); }
    void TearDown() override { io_pool_deinit(); }
};

} // namespace pool_probe

#endif
