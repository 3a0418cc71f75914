/**
 * @file
 * What the message headers share: the CRC extra bytes of all message ids, and the means by which one list of
 * fields becomes a record, its layout checks and its packing. A message writes its list once,
 *
 *     #define VXLINK_MOVIDUS_COMMAND_FIELDS(VALUE, ARRAY) \
 *         VALUE(uint8_t, command, 0)                      \
 *         ARRAY(uint8_t, data, 31, 1)
 *
 * with the type, the name, for arrays the number of elements, and last the offset in the payload [bytes].
 * Everything else follows from it, in the decoder of the tools and in the tests too. On the wire all numbers
 * are little-endian and floats are IEEE 754 single precision.
 *
 * @par Threads Any thread; the helpers touch only what they are given.
 */
#ifndef VXLINK_PROTOCOL_H
#define VXLINK_PROTOCOL_H

#include "checksum.h"
#include "utils/ut_le.h"
#include "vxlink_helpers.h"
#include "vxlink_types.h"

#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

/** CRC extra byte per message id; 0 marks an id without a message. */
static const uint8_t vxlink_message_crcs[256] = {
    34,  187, 0,   18,  233, 0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   142, // 0
    159, 220, 22,  172, 15,  143, 5,   15,  128, 241, 148, 46,  196, 142, 42,  107, // 16
    163, 193, 11,  97,  29,  0,   0,   0,   133, 126, 7,   15,  5,   114, 0,   0,   // 32
    72,  12,  194, 122, 11,  159, 0,   251, 247, 7,   57,  9,   147, 138, 0,   0,   // 48
    0,   191, 31,  0,   0,   52,  62,  110, 137, 196, 190, 234, 182, 64,  141, 112, // 64
    220, 25,  11,  158, 110, 33,  190, 214, 151, 86,  124, 234, 243, 50,  104, 106, // 80
    51,  142, 54,  164, 65,  143, 249, 244, 145, 232, 171, 196, 153, 75,  183, 178, // 96
    39,  41,  34,  10,  125, 23,  79,  236, 111, 126, 46,  61,  58,  135, 177, 26,  // 112
    8,   138, 0,   0,   0,   0,   0,   0,   0,   0,   0,   0,   180, 0,   0,   0,   // 128
    224, 0,   0,   0,   237, 84,  36,  0,   0,   0,   0,   0,   0,   0,   0,   195, // 144
    95,  2,   115, 0,   0,   0,   0,   0,   194, 146, 20,  204,                     // 160; zeros follow
};

/**
 * Copies an array field.
 * @param dest  room for `n` bytes
 * @param src   `n` bytes that do not overlap `dest`, or NULL for zeros
 * @param n     [bytes]
 */
static inline void mav_array_memcpy(void *dest, const void *src, size_t n) {
    if (src == NULL) {
        memset(dest, 0, n);
    } else {
        memcpy(dest, src, n);
    }
}

/** Writes a uint8_t field at any address. */
static inline void vxlink_put_uint8_t(uint8_t *bytes, uint8_t value) {
    *bytes = value;
}

/** Writes a uint32_t field at any address. */
static inline void vxlink_put_uint32_t(uint8_t *bytes, uint32_t value) {
    ut_put_le32(bytes, value);
}

/** Writes a uint64_t field at any address. */
static inline void vxlink_put_uint64_t(uint8_t *bytes, uint64_t value) {
    ut_put_le64(bytes, value);
}

/** Writes a float field at any address; its bits travel unchanged. */
static inline void vxlink_put_float(uint8_t *bytes, float value) {
    uint32_t bits;
    static_assert(sizeof bits == sizeof value, "IEEE 754 single precision");
    memcpy(&bits, &value, sizeof bits);
    ut_put_le32(bytes, bits);
}

/** Writes `count` bytes; NULL stands for zeros. */
static inline void vxlink_put_array_uint8_t(uint8_t *bytes, const uint8_t *values, size_t count) {
    mav_array_memcpy(bytes, values, count);
}

/** Writes `count` numbers of 4 bytes each; NULL stands for zeros. */
static inline void vxlink_put_array_uint32_t(uint8_t *bytes, const uint32_t *values, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        vxlink_put_uint32_t(bytes + i * sizeof *values, values == NULL ? 0 : values[i]);
    }
}

/** Writes `count` floats; NULL stands for zeros. */
static inline void vxlink_put_array_float(uint8_t *bytes, const float *values, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        vxlink_put_float(bytes + i * sizeof *values, values == NULL ? 0.0F : values[i]);
    }
}

/**
 * Begins a message in a record: all bytes zero, then the id.
 * @return where the fields go, VXLINK_PAYLOAD_STORAGE bytes; NULL for a NULL record
 */
static inline uint8_t *vxlink_begin_message(vxlink_message_head_t *msg, uint8_t msgid) {
    if (msg == NULL) {
        return NULL;
    }
    memset(msg, 0, sizeof *msg);
    msg->msgid = msgid;
    return vxlink_payload(msg);
}

/** @name What a list of fields is expanded with
 * @{ */

/** A member of the record. */
#define VXLINK_MEMBER_VALUE(type, name, offset) type name;
#define VXLINK_MEMBER_ARRAY(type, name, count, offset) type name[count];

/** A parameter of the pack function, behind others. */
#define VXLINK_PARAMETER_VALUE(type, name, offset) , type name
#define VXLINK_PARAMETER_ARRAY(type, name, count, offset) , const type *name

/** The field as an argument for that parameter; needs a pointer `record`. */
#define VXLINK_ARGUMENT_VALUE(type, name, offset) , record->name
#define VXLINK_ARGUMENT_ARRAY(type, name, count, offset) , record->name

/** Writes that parameter; needs the start of the payload as `payload`. */
#define VXLINK_PUT_VALUE(type, name, offset) vxlink_put_##type(payload + (offset), name);
#define VXLINK_PUT_ARRAY(type, name, count, offset) vxlink_put_array_##type(payload + (offset), name, count);

/** Checks the field's place; needs the record and the same without padding by the names used here. */
#define VXLINK_CHECK_VALUE(type, name, offset)                                                               \
    static_assert(offsetof(layout_record_t, name) == (offset), "place in the record of " #name);             \
    static_assert(offsetof(layout_packed_t, name) == (offset), "place in the payload of " #name);
#define VXLINK_CHECK_ARRAY(type, name, count, offset) VXLINK_CHECK_VALUE(type, name, offset)

/**
 * Checks a message's layout: each field lies where the list says, in the record too, and together they fill
 * the payload without a gap. The record may be longer, where the compiler pads its end.
 */
#define VXLINK_CHECK_LAYOUT(record_t, FIELDS, len)                                                           \
    static inline void vxlink_check_layout_of_##record_t(void) {                                             \
        typedef record_t layout_record_t;                                                                    \
        typedef struct __attribute__((packed)) {                                                             \
            FIELDS(VXLINK_MEMBER_VALUE, VXLINK_MEMBER_ARRAY)                                                 \
        } layout_packed_t;                                                                                   \
        FIELDS(VXLINK_CHECK_VALUE, VXLINK_CHECK_ARRAY)                                                       \
        static_assert(sizeof(layout_packed_t) == (len), "the fields fill the payload");                      \
    }                                                                                                        \
    static_assert((len) <= VXLINK_MAX_PAYLOAD_LEN, "the CRC fits behind the payload")
/** @} */

#ifdef __cplusplus
}
#endif

#endif
