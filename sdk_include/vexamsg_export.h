/**
 * @file
 * What every public header needs: the mark of an exported symbol, enums of a fixed size, and bit fields
 * whose first name is the lowest bit on every host.
 */
#ifndef VEXAMSG_EXPORT_H
#define VEXAMSG_EXPORT_H

#include <stdint.h>

/** Marks what the shared library exports; everything else in it is hidden. */
#define VEXAMSG_API __attribute__((visibility("default")))

/**
 * Gives an enum 32 bits. C++ needs it said, or a value outside the names (an unknown node's id, say) would be
 * undefined behaviour; C compilers give an enum the size of an int.
 */
/** @{ */
#ifdef __cplusplus
#define VEXAMSG_ENUM_U32 : uint32_t
#define VEXAMSG_ENUM_I32 : int32_t
#else
#define VEXAMSG_ENUM_U32
#define VEXAMSG_ENUM_I32
#endif
/** @} */

/** A layout that a compiler for this language checks. */
#ifdef __cplusplus
#define VX_STATIC_ASSERT static_assert
#else
#define VX_STATIC_ASSERT _Static_assert
#endif

/**
 * The bit fields of one byte, named from bit 0 upwards. A compiler for a big-endian host fills a byte from
 * the top, so the list is turned round there and the byte stays the same. Initialise such a structure by the
 * names of its members, never by their order.
 */
/** @{ */
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
#define VEXAMSG_BITS3(a, b, c) uint8_t c, b, a
#define VEXAMSG_BITS4(a, b, c, d) uint8_t d, c, b, a
#define VEXAMSG_BITS5(a, b, c, d, e) uint8_t e, d, c, b, a
#define VEXAMSG_BITS6(a, b, c, d, e, f) uint8_t f, e, d, c, b, a
#define VEXAMSG_BITS7(a, b, c, d, e, f, g) uint8_t g, f, e, d, c, b, a
#define VEXAMSG_BITS8(a, b, c, d, e, f, g, h) uint8_t h, g, f, e, d, c, b, a
#else
#define VEXAMSG_BITS3(a, b, c) uint8_t a, b, c
#define VEXAMSG_BITS4(a, b, c, d) uint8_t a, b, c, d
#define VEXAMSG_BITS5(a, b, c, d, e) uint8_t a, b, c, d, e
#define VEXAMSG_BITS6(a, b, c, d, e, f) uint8_t a, b, c, d, e, f
#define VEXAMSG_BITS7(a, b, c, d, e, f, g) uint8_t a, b, c, d, e, f, g
#define VEXAMSG_BITS8(a, b, c, d, e, f, g, h) uint8_t a, b, c, d, e, f, g, h
#endif
/** @} */

#endif
