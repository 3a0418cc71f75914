/**
 * @file
 * Memory that is never given back, for the copies that the message queues keep. Handed out in order from
 * large pieces: taken from malloc one by one, on a thread other than the first, each long copy costs a system
 * call that makes the heap grow.
 */
#ifndef COPY_STORE_H
#define COPY_STORE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

class copy_store {
public:
    static constexpr size_t k_piece_size = size_t{64} * 1024; // [bytes]; most that is held in advance

    /** Room for `size` bytes, at most half a piece, aligned like malloc's. Null when there is no memory. Any
     * thread; takes no lock. */
    void *take(size_t size) {
        const size_t room = (size + alignof(std::max_align_t) - 1) & ~(alignof(std::max_align_t) - 1);
        for (;;) {
            piece *from = current_.load(std::memory_order_acquire);
            if (void *const bytes = from != nullptr ? from->take(room) : nullptr) {
                return bytes;
            }
            if (!renew(from)) {
                return nullptr;
            }
        }
    }

private:
    struct alignas(std::max_align_t) piece {
        std::atomic<size_t> used; // [bytes] from this header on; beyond the end once it is full

        void *take(size_t room) {
            const size_t at = used.fetch_add(room, std::memory_order_relaxed);
            return at + room <= k_piece_size ? reinterpret_cast<char *>(this) + at : nullptr;
        }
    };

    /// Puts a new piece in the place of a full one, unless another thread was faster.
    bool renew(piece *full) {
        void *const memory = malloc(k_piece_size);
        if (memory == nullptr) {
            return false;
        }
        ask_for_pages(memory);
        // cppcheck-suppress unreadVariable; it is read where it is put in the place of the old one
        piece *const fresh = new (memory) piece{sizeof(piece)};
        if (!current_.compare_exchange_strong(full, fresh, std::memory_order_acq_rel)) {
            free(memory);
        }
        return true;
    }

    /// All at once where the system can do that (Linux 5.14), which is cheaper than a page fault for each.
    static void ask_for_pages([[maybe_unused]] void *memory) {
#ifdef MADV_POPULATE_WRITE
        const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t to_page = (page - reinterpret_cast<uintptr_t>(memory) % page) % page;
        if (to_page + page <= k_piece_size) { // a page may be as large as a piece
            (void)madvise(static_cast<char *>(memory) + to_page, (k_piece_size - to_page) / page * page,
                          MADV_POPULATE_WRITE);
        }
#endif
    }

    std::atomic<piece *> current_{nullptr};
};

#endif
