/** @file Numbers as networks write them, from bytes that need not be aligned. The caller has measured the
 * bytes. */
#ifndef VEXA_BIG_ENDIAN_H
#define VEXA_BIG_ENDIAN_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace vexa {

[[nodiscard]] inline uint16_t be16(std::span<const uint8_t> bytes, size_t at) {
    return static_cast<uint16_t>((bytes[at] << 8) | bytes[at + 1]);
}

[[nodiscard]] inline uint32_t be32(std::span<const uint8_t> bytes, size_t at) {
    return (static_cast<uint32_t>(be16(bytes, at)) << 16) | be16(bytes, at + 2);
}

} // namespace vexa

#endif // VEXA_BIG_ENDIAN_H
