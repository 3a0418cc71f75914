// Counts the library's allocations. See heap_watch.h.
#include "heap_watch.h"

#include "queue_model.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <link.h>
#include <malloc.h>

#if defined(VEXAMSG_UNDER_ASAN) || defined(VEXAMSG_UNDER_TSAN)
#define SOAK_HEAP_WATCHED 0
#else
#define SOAK_HEAP_WATCHED 1
#endif

namespace {

constexpr char k_library[] = "libVexaMsg.so";

// The library's code; written once, before it runs.
constinit uintptr_t code_begin = 0;
constinit uintptr_t code_end = 0;
constinit std::atomic<int64_t> blocks{0};
constinit std::atomic<int64_t> bytes{0};
constinit std::atomic<int64_t> pieces{0};
constinit std::atomic<int64_t> gross_bytes{0}; // with the allocator's overhead

int note_library(dl_phdr_info *info, size_t /*size*/, void * /*unused*/) {
    if (strstr(info->dlpi_name, k_library) == nullptr) {
        return 0;
    }
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr) &part = info->dlpi_phdr[i];
        if (part.p_type == PT_LOAD && (part.p_flags & PF_X) != 0) {
            code_begin = info->dlpi_addr + part.p_vaddr;
            code_end = code_begin + part.p_memsz;
        }
    }
    return 1;
}

} // namespace

namespace soak {

bool heap_is_watched() {
    return SOAK_HEAP_WATCHED != 0;
}

void heap_watch_start() {
    (void)dl_iterate_phdr(note_library, nullptr);
    if (code_end == 0) {
        abort(); // nothing would ever be counted
    }
}

heap_use heap_now() {
    const struct mallinfo2 all = mallinfo2();
    return {blocks.load(), bytes.load(), pieces.load(),
            static_cast<int64_t>(all.uordblks + all.hblkhd) - gross_bytes.load()};
}

} // namespace soak

#if SOAK_HEAP_WATCHED

extern "C" {
// The system's own, under the names by which a program that brings its malloc reaches them.
void *__libc_malloc(size_t size);           // NOLINT(bugprone-reserved-identifier): the system's name
void *__libc_calloc(size_t n, size_t size); // NOLINT(bugprone-reserved-identifier): the system's name
void __libc_free(void *block);              // NOLINT(bugprone-reserved-identifier): the system's name
}

namespace {

constexpr uint64_t k_seal = 0x50AC;

bool is_library(const void *caller) {
    const auto address = reinterpret_cast<uintptr_t>(caller);
    return address >= code_begin && address < code_end;
}

/// A block with the allocator's word before it.
int64_t gross_size(void *block) {
    return static_cast<int64_t>(malloc_usable_size(block) + sizeof(size_t));
}

char *seal_of(void *block) {
    return static_cast<char *>(block) + malloc_usable_size(block) - sizeof(uint64_t);
}

/// One block more or less.
void count(size_t size, int sign) {
    if (size == soak::piece_model::k_piece) {
        pieces.fetch_add(sign, std::memory_order_relaxed);
    } else {
        blocks.fetch_add(sign, std::memory_order_relaxed);
        bytes.fetch_add(sign * static_cast<int64_t>(size), std::memory_order_relaxed);
    }
}

void *counted(void *block, size_t size) {
    if (block != nullptr) {
        const uint64_t seal = uint64_t{size} << 16 | k_seal;
        memcpy(seal_of(block), &seal, sizeof seal);
        count(size, 1);
        gross_bytes.fetch_add(gross_size(block), std::memory_order_relaxed);
    }
    return block;
}

void discount(void *block) {
    uint64_t seal = 0;
    memcpy(&seal, seal_of(block), sizeof seal);
    if ((seal & 0xFFFFU) != k_seal) {
        abort(); // the library frees what it has not allocated, or has written behind a block's end
    }
    count(seal >> 16, -1);
    gross_bytes.fetch_sub(gross_size(block), std::memory_order_relaxed);
}

} // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the system names them with underscores
// The definitions of the program come before the system's for everybody in the process.
extern "C" {

void *malloc(size_t size) {
    if (!is_library(__builtin_return_address(0))) {
        return __libc_malloc(size);
    }
    return counted(__libc_malloc(size + sizeof(uint64_t)), size);
}

void *calloc(size_t n, size_t size) {
    if (!is_library(__builtin_return_address(0))) {
        return __libc_calloc(n, size);
    }
    return counted(__libc_calloc(1, n * size + sizeof(uint64_t)), n * size);
}

void free(void *block) {
    if (block != nullptr && is_library(__builtin_return_address(0))) {
        discount(block);
    }
    __libc_free(block);
}

} // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

#endif
