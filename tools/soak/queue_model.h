/**
 * @file
 * What the library's queues must hold, and how many bytes they must have taken for it, told from their rules
 * alone: a put copies the message, header and all; the receive queue keeps the newest per key and overwrites
 * in place where the length allows it. Takes no memory of its own while it runs.
 */
#ifndef SOAK_QUEUE_MODEL_H
#define SOAK_QUEUE_MODEL_H

#include "receiver.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace soak {

/** What a put into the receive queue has been. */
enum class put_result : uint8_t {
    first_of_its_key,
    overwritten,
    grown,      /**< the kept one was too short: replaced, which the library logs */
    overstocked /**< the oldest was dropped for it, which the library logs */
};

/** Copies of queued messages, by size and number. */
struct copies {
    uint64_t blocks = 0;
    uint64_t bytes = 0;
    void add(size_t size) {
        ++blocks;
        bytes += size;
    }
};

/**
 * The memory of copies that are kept: handed out in order from pieces of 64 KiB, of which the first bytes are
 * the library's. When two threads queue at once, which of them comes first is not known here, so the number
 * of pieces may differ by one.
 * @par Threads  None of its own: the owner locks.
 */
class piece_model {
public:
    static constexpr size_t k_piece = size_t{64} * 1024; /**< [bytes] */

    void take(size_t size);

    [[nodiscard]] uint64_t pieces() const { return pieces_; }

private:
    uint64_t pieces_ = 0;
    size_t used_ = k_piece; // of the last one
};

/** @par Threads  None of its own: the owner locks. */
class queue_model {
public:
    struct entry {
        kept_status kept;
        size_t copy_bytes; /**< of the copy that it lies in */
    };

    /** @return [bytes] of the copy of a message with such a payload */
    static size_t copy_size(size_t payload_bytes);

    put_result put(const kept_status &arrived);

    /** The messages of the receive queue, oldest first. */
    [[nodiscard]] std::span<const entry> entries() const { return std::span{entries_}.first(size_); }

    /** All copies that the receive queue has ever made. */
    [[nodiscard]] const copies &made() const { return made_; }

    /** The copies that lie in the receive queue. */
    [[nodiscard]] copies held() const;

private:
    void append(const kept_status &arrived);
    void remove(size_t index);

    std::array<entry, 1026> entries_{};
    size_t size_ = 0;
    copies made_;
};

} // namespace soak

#endif
