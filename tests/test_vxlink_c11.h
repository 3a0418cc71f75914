/**
 * @file
 * What test_vxlink_c11.c does with the link's headers in C. Each image needs room for the largest frame,
 * C11_IMAGE_SIZE bytes; what comes back is its length.
 */
#ifndef TEST_VXLINK_C11_H
#define TEST_VXLINK_C11_H

#include "vxlink/vxlink.h"

#ifdef __cplusplus
extern "C" {
#endif

enum { C11_IMAGE_SIZE = 426 };

uint16_t c11_packed_command(uint8_t *image);
uint16_t c11_encoded_command(uint8_t *image, const vxlink_movidus_command_t *record);
uint16_t c11_encoded_goal_area(uint8_t *image, const vxlink_movidus_report_goal_area_t *record);
uint16_t c11_encoded_track_status(uint8_t *image, const vxlink_movidus_report_track_status_t *record);
uint16_t c11_encoded_orbit_status(uint8_t *image, const vxlink_movidus_report_orbit_status_t *record);
uint16_t c11_encoded_orbit_area(uint8_t *image, const vxlink_movidus_report_orbit_area_t *record);

/** The `seq` of a frame that C code makes. */
uint8_t c11_next_seq(uint8_t dest_id);

/** The flag byte of a header with start, final, form and reply. */
uint8_t c11_flag_byte(void);

int c11_sent_command(uint8_t cmd, uint8_t *data, uint16_t length);

#ifdef __cplusplus
}
#endif

#endif
