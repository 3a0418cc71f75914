/**
 * @file
 * Little-endian numbers in byte buffers. Everything this system sends is little-endian whatever the host, and
 * a number in a datagram may lie at any address, so bytes go in and out by shifts; compilers turn each of
 * these into one load or store.
 *
 *     ut_put_le16(bytes + 4, len);
 *     uint16_t src = ut_get_le16(bytes + 6);
 *
 * @par Threads Any thread; they touch only what they are given. The caller vouches for the buffer's size.
 */
#ifndef UT_LE_H
#define UT_LE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Reads 2 bytes. */
static inline uint16_t ut_get_le16(const uint8_t *bytes) {
    return (uint16_t)(bytes[0] | (bytes[1] << 8));
}

/** Reads 4 bytes. */
static inline uint32_t ut_get_le32(const uint8_t *bytes) {
    return (uint32_t)ut_get_le16(bytes) | ((uint32_t)ut_get_le16(bytes + 2) << 16);
}

/** Reads 8 bytes. */
static inline uint64_t ut_get_le64(const uint8_t *bytes) {
    return (uint64_t)ut_get_le32(bytes) | ((uint64_t)ut_get_le32(bytes + 4) << 32);
}

/** Writes 2 bytes. */
static inline void ut_put_le16(uint8_t *bytes, uint16_t value) {
    bytes[0] = (uint8_t)value;
    bytes[1] = (uint8_t)(value >> 8);
}

/** Writes 4 bytes. */
static inline void ut_put_le32(uint8_t *bytes, uint32_t value) {
    ut_put_le16(bytes, (uint16_t)value);
    ut_put_le16(bytes + 2, (uint16_t)(value >> 16));
}

/** Writes 8 bytes. */
static inline void ut_put_le64(uint8_t *bytes, uint64_t value) {
    ut_put_le32(bytes, (uint32_t)value);
    ut_put_le32(bytes + 4, (uint32_t)(value >> 32));
}

#ifdef __cplusplus
}
#endif

#endif
