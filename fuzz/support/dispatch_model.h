/**
 * @file
 * What a node makes of datagrams, told a second time with offsets and standard containers: the receive queue,
 * the node table, the heartbeat frame, the callback, and, on the proxy, what is sent on. dispatch() gives a
 * datagram to the node and to the model, and holds that both agree afterwards.
 */
#ifndef FUZZ_DISPATCH_MODEL_H
#define FUZZ_DISPATCH_MODEL_H

#include "hb_rows.h"
#include "input.h"
#include "outside.h"
#include "vision_service_route_funcs.h"
#include "vx_msg_def.h"

#include <array>

namespace fuzz {

using record = std::array<uint8_t, VX_NODE_RECORD_SIZE>;

/** A record as it lies in a manager message. */
record record_of(uint16_t id, uint8_t stat);

class dispatch_model {
public:
    /** Puts the node into the state in which every input begins: empty queue, the given nodes active. */
    dispatch_model(uint16_t own_id, const std::vector<uint16_t> &active);

    /** Gives one datagram to both. */
    void dispatch(const bytes &datagram);

    /** Holds that queue, table and frame are the model's. */
    void compare_state() const;

    /** The target's callback. */
    static void on_message(void *payload, MsgExtra *extra);

private:
    struct stored {
        uint16_t src;
        uint16_t dst;
        bytes payload;
    };

    void expect_status(const bytes &datagram);
    void expect_records(const bytes &datagram);
    void expect_heartbeat(const bytes &datagram);
    void put(stored message);
    void compare_sends(const bytes &datagram, const bytes &handled) const;
    void compare_one(const stored &message) const;
    [[nodiscard]] bool accepts(const bytes &datagram) const;

    uint16_t own_id_;
    std::array<record, VX_NODE_COUNT> table_{};
    std::vector<stored> queue_;
    hb_rows::frame_bytes frame_{};
    std::vector<uint16_t> sent_to_; // by the datagram in hand
    uint16_t sent_length_ = 0;      // its data_length on the way on
};

/**
 * The datagrams of an input: each is a length, 0 to 8192, the number of bytes spelled out, and those bytes.
 * The rest of its length is a pattern.
 */
std::vector<bytes> datagrams_of(const uint8_t *data, size_t size);

} // namespace fuzz

#endif
