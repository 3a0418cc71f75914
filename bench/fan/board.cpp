// A page shared by processes, with a futex in it. See board.h.
#include "board.h"

#include "side.h"
#include "work.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <linux/futex.h>
#include <new>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace bench {
namespace {

constexpr timespec k_patience{1, 0};

} // namespace

board &board::open(const std::string &path) {
    const int fd = checked(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600), "open");
    (void)checked(ftruncate(fd, sizeof(board)), "ftruncate");
    void *page = mmap(nullptr, sizeof(board), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (page == MAP_FAILED) {
        fail_errno("mmap");
    }
    (void)close(fd);
    return *static_cast<board *>(page); // a new file's zeros are a board that expects nothing
}

void board::expect(uint32_t receivers) {
    missing_ = receivers;
}

void board::note() {
    last_ns_ = now_ns();
    if (missing_.fetch_sub(1) == 1) {
        (void)syscall(SYS_futex, &missing_, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
    }
}

int64_t board::wait_for_all() {
    for (uint32_t missing = missing_; missing != 0; missing = missing_) {
        if (syscall(SYS_futex, &missing_, FUTEX_WAIT, missing, &k_patience, nullptr, 0) != 0 &&
            errno == ETIMEDOUT) {
            return 0;
        }
    }
    return last_ns_;
}

} // namespace bench
