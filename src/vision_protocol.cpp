// The camera-protocol header: starting one, asking it, setting its flags, turning its byte order.
//
// No state, any thread. A header is the caller's and often lies at the start of a datagram's buffer.
#include "vision_protocol.h"

#include "vx_log.h"

#include <cstring>

namespace {

constexpr char k_unit[] = "src/vision_protocol";

constexpr uint16_t swapped(uint16_t word) {
    return static_cast<uint16_t>((word << 8) | (word >> 8));
}

} // namespace

void msg_head_init(struct msg_head_s *msg) {
    if (msg == nullptr) {
        return;
    }
    memset(msg, 0, VISION_MSG_HEAD_SIZE);
    msg->magic[0] = VISION_MSG_MAGIC_0;
    msg->magic[1] = VISION_MSG_MAGIC_1;
    msg->version = VISION_MSG_VERSION;
    set_start_flag(msg);
    set_final_flag(msg);
}

int check_msg_magic(struct msg_head_s *msg) {
    return msg != nullptr && msg->magic[0] == VISION_MSG_MAGIC_0 && msg->magic[1] == VISION_MSG_MAGIC_1 ? 1
                                                                                                        : 0;
}

int is_need_reply(struct msg_head_s *msg) {
    return msg != nullptr ? msg->flag.reply : 0;
}

void msg_head_htons(struct msg_head_s *msg) {
    if (msg == nullptr) {
        return;
    }
    msg->length = swapped(msg->length);
    msg->msg_src = swapped(msg->msg_src);
    msg->msg_dst = swapped(msg->msg_dst);
    msg->msg_type = swapped(msg->msg_type);
    msg->sequence = swapped(msg->sequence);
    msg->package_id = swapped(msg->package_id);
}

void msg_head_ntohs(struct msg_head_s *msg) {
    msg_head_htons(msg);
}

void set_data_form_flag(struct msg_head_s *msg, int form) {
    if (msg != nullptr) {
        msg->flag.form = (form & 1) != 0;
    }
}

void set_reply_flag(struct msg_head_s *msg, int reply) {
    set_data_form_flag(msg, reply); // The form bit on purpose; peers rely on it.
}

void set_final_flag(struct msg_head_s *msg) {
    if (msg != nullptr) {
        msg->flag.final = 1;
    }
}

void set_start_flag(struct msg_head_s *msg) {
    if (msg != nullptr) {
        msg->flag.start = 1;
    }
}

int data_to_json_cb(const char *json_string, void *ctx) {
    if (json_string == nullptr || ctx == nullptr) {
        VX_LOG(ERROR, "nothing written, json_string %p, ctx %p\n", static_cast<const void *>(json_string),
               ctx);
        return -1;
    }
    uint8_t *bytes = static_cast<uint8_t *>(ctx); // a serializer may hand on a buffer at any address
    const size_t text_len = strlen(json_string);
    const uint16_t length = static_cast<uint16_t>(text_len + VISION_MSG_HEAD_SIZE);
    memcpy(bytes + VISION_MSG_HEAD_SIZE, json_string, text_len + 1);
    memcpy(bytes + offsetof(msg_head_t, length), &length, sizeof length);
    return length;
}
