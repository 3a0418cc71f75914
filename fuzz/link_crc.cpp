// The link's checksum against one that goes bit by bit; in one piece, byte by byte, and in two pieces.
#include "link_reference.h"
#include "support/check.h"
#include "support/input.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    const size_t split = in.u16();
    const fuzz::exact_block block(in.take(UINT16_MAX));
    const auto length = static_cast<uint16_t>(block.size());
    const uint16_t expected = reference::crc(block.copy());
    FUZZ_CHECK(crc_calculate(block.data(), length) == expected);

    uint16_t crc = 0;
    crc_init(&crc);
    for (size_t i = 0; i < block.size(); ++i) {
        crc_accumulate(block.data()[i], &crc);
    }
    FUZZ_CHECK(crc == expected);

    const auto first = static_cast<uint16_t>(std::min<size_t>(split, length));
    const auto *chars = reinterpret_cast<const char *>(block.data());
    crc_init(&crc);
    crc_accumulate_buffer(&crc, chars, first);
    crc_accumulate_buffer(&crc, chars + first, static_cast<uint16_t>(length - first));
    FUZZ_CHECK(crc == expected);

    // What is checked together with its own checksum leaves nothing.
    const uint8_t tail[] = {static_cast<uint8_t>(expected), static_cast<uint8_t>(expected >> 8)};
    crc_accumulate_buffer(&crc, reinterpret_cast<const char *>(tail), sizeof tail);
    FUZZ_CHECK(crc == 0);
    return 0;
}
