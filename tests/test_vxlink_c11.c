/* The link's headers as a C program uses them. Called by test_vxlink_from_c.cpp. */
#include "test_vxlink_c11.h"

#include "vision_protocol.h"
#include "vxlink/checksum.h"
#include "vxlink/protocol.h"
#include "vxlink/vxlink.h"
#include "vxlink/vxlink_helpers.h"
#include "vxlink/vxlink_msg_movidus_command.h"
#include "vxlink/vxlink_msg_movidus_report_goal_area.h"
#include "vxlink/vxlink_msg_movidus_report_orbit_area.h"
#include "vxlink/vxlink_msg_movidus_report_orbit_status.h"
#include "vxlink/vxlink_msg_movidus_report_track_status.h"
#include "vxlink/vxlink_types.h"

#include <string.h>

static uint16_t copied_out(uint8_t *image, const vxlink_message_head_t *frame, uint16_t bytes) {
    memcpy(image, vxlink_frame_image(frame), bytes);
    return bytes;
}

uint16_t c11_packed_command(uint8_t *image) {
    vxlink_message_head_t frame;
    uint8_t data[31];
    for (uint8_t i = 0; i < sizeof data; ++i) {
        data[i] = (uint8_t)(0x41 + i);
    }
    return copied_out(image, &frame,
                      vxlink_msg_movidus_command_pack(DEV_APP, DEV_MOVIDIUS_1, &frame, 0x2A, data));
}

#define ENCODED(function, name)                                                                              \
    uint16_t function(uint8_t *image, const vxlink_##name##_t *record) {                                     \
        vxlink_message_head_t frame;                                                                         \
        return copied_out(image, &frame,                                                                     \
                          vxlink_msg_##name##_encode(DEV_APP, DEV_MOVIDIUS_1, &frame, record));              \
    }
ENCODED(c11_encoded_command, movidus_command)
ENCODED(c11_encoded_goal_area, movidus_report_goal_area)
ENCODED(c11_encoded_track_status, movidus_report_track_status)
ENCODED(c11_encoded_orbit_status, movidus_report_orbit_status)
ENCODED(c11_encoded_orbit_area, movidus_report_orbit_area)

uint8_t c11_next_seq(uint8_t dest_id) {
    vxlink_message_head_t frame = {0};
    (void)vxlink_finalize_message(&frame, dest_id, DEV_MOVIDIUS_1, 0, vxlink_message_crcs[0]);
    return frame.seq;
}

uint8_t c11_flag_byte(void) {
    struct msg_head_s head;
    uint8_t bytes[VISION_MSG_HEAD_SIZE];
    msg_head_init(&head);
    set_data_form_flag(&head, 1);
    head.flag.reply = 1;
    msg_head_store(bytes, &head);
    return bytes[3];
}

int c11_sent_command(uint8_t cmd, uint8_t *data, uint16_t length) {
    return send_ifly_command_cam(cmd, data, length);
}
