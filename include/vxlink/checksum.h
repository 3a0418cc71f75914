/**
 * @file
 * The link's checksum: CRC-16/MCRF4XX (reflected polynomial 0x1021, start 0xFFFF, no final inversion). Bytes
 * are folded in one at a time, so a frame's pieces need not lie together.
 *
 *     uint16_t crc = crc_calculate(bytes, length);
 *     crc_accumulate(crc_extra, &crc);
 *
 * @par Threads Any thread; each function touches only what it is given.
 */
#ifndef VXLINK_CHECKSUM_H
#define VXLINK_CHECKSUM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VXLINK_CRC_INIT 0xFFFF /**< the CRC of no bytes */

/**
 * Starts a CRC.
 * @param crcAccum  receives VXLINK_CRC_INIT; must not be NULL
 */
static inline void crc_init(uint16_t *crcAccum) {
    *crcAccum = VXLINK_CRC_INIT;
}

/**
 * Folds one byte in.
 * @param crcAccum  a started CRC; must not be NULL
 */
static inline void crc_accumulate(uint8_t data, uint16_t *crcAccum) {
    const uint16_t crc = *crcAccum;
    const uint8_t low = (uint8_t)(data ^ crc);
    const uint8_t t = (uint8_t)(low ^ (low << 4));
    *crcAccum = (uint16_t)((crc >> 8) ^ (t << 8) ^ (t << 3) ^ (t >> 4));
}

/**
 * Folds bytes in, in their order.
 * @param crcAccum  a started CRC; must not be NULL
 * @param pBuffer   `length` bytes; not looked at when `length` is 0
 * @param length    [bytes]
 */
static inline void crc_accumulate_buffer(uint16_t *crcAccum, const char *pBuffer, uint16_t length) {
    for (uint16_t i = 0; i < length; ++i) {
        crc_accumulate((uint8_t)pBuffer[i], crcAccum);
    }
}

/**
 * The CRC of a buffer.
 * @param pBuffer  `length` bytes; not looked at when `length` is 0
 * @param length   [bytes]
 * @return VXLINK_CRC_INIT for no bytes
 */
static inline uint16_t crc_calculate(const uint8_t *pBuffer, uint16_t length) {
    uint16_t crc;
    crc_init(&crc);
    crc_accumulate_buffer(&crc, (const char *)pBuffer, length);
    return crc;
}

#ifdef __cplusplus
}
#endif

#endif
