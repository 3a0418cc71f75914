/**
 * @file
 * One input of the fuzzer, read from the front: numbers that choose operations, and bytes for the code under
 * test. What is missing at the end reads as zero, so every input means something.
 *
 *     fuzz::input in(data, size);
 *     while (!in.empty()) { step(in.u8()); }
 */
#ifndef FUZZ_INPUT_H
#define FUZZ_INPUT_H

#include "utils/ut_le.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace fuzz {

using bytes = std::vector<uint8_t>;

class input {
public:
    input(const uint8_t *data, size_t size) : at_(data), left_(size) {}

    [[nodiscard]] bool empty() const { return left_ == 0; }
    [[nodiscard]] size_t left() const { return left_; }

    uint8_t u8() { return static_cast<uint8_t>(number(1)); }
    uint16_t u16() { return static_cast<uint16_t>(number(2)); }
    uint32_t u32() { return static_cast<uint32_t>(number(4)); }
    uint64_t u64() { return number(8); }
    bool flag() { return (u8() & 1) != 0; }

    /** The next bytes, at most as many as are left. */
    bytes take(size_t most) {
        const size_t count = std::min(most, left_);
        bytes taken(at_, at_ + count);
        at_ += count;
        left_ -= count;
        return taken;
    }

    bytes rest() { return take(left_); }

    /** A text of at most so many characters, ending where the input has a NUL. */
    std::string text(size_t most) {
        const size_t room = std::min(most, left_);
        const void *end = room != 0 ? memchr(at_, 0, room) : nullptr;
        const size_t len =
            end != nullptr ? static_cast<size_t>(static_cast<const uint8_t *>(end) - at_) : room;
        const bytes taken = take(end != nullptr ? len + 1 : len);
        return {taken.begin(), taken.begin() + static_cast<ptrdiff_t>(len)};
    }

private:
    uint64_t number(size_t width) {
        uint8_t raw[8] = {};
        const bytes taken = take(width);
        std::copy(taken.begin(), taken.end(), raw);
        return ut_get_le64(raw);
    }

    const uint8_t *at_;
    size_t left_;
};

/** A block of the heap that ends with its last byte, so that one byte too many is seen; not zero at first, so
 * that one too few is seen as well. */
class exact_block {
public:
    explicit exact_block(size_t size) : bytes_(new uint8_t[size]), size_(size) {
        std::fill_n(bytes_.get(), size, uint8_t{0x5A});
    }
    explicit exact_block(const bytes &content) : exact_block(content.size()) {
        std::copy(content.begin(), content.end(), bytes_.get());
    }
    explicit exact_block(const std::string &text) : exact_block(text.size() + 1) { // with its NUL
        std::copy(text.begin(), text.end(), bytes_.get());
        bytes_[text.size()] = 0;
    }

    [[nodiscard]] uint8_t *data() { return bytes_.get(); }
    [[nodiscard]] const uint8_t *data() const { return bytes_.get(); }
    [[nodiscard]] char *chars() { return reinterpret_cast<char *>(bytes_.get()); }
    [[nodiscard]] size_t size() const { return size_; }
    [[nodiscard]] bytes copy() const { return {bytes_.get(), bytes_.get() + size_}; }

private:
    std::unique_ptr<uint8_t[]> bytes_;
    size_t size_;
};

/** `size` bytes, no two neighbours alike: stands for bytes that the input does not have to spell out. */
inline bytes pattern(size_t size) {
    bytes made(size);
    for (size_t i = 0; i < size; ++i) {
        made[i] = static_cast<uint8_t>(i * 7 + i / 256);
    }
    return made;
}

} // namespace fuzz

#endif
