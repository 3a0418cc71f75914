// Files of whole blocks. See block_file.h.
#include "block_file.h"

#include "pcapng.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/core.h>
#include <unistd.h>
#include <utility>

namespace vexa {
namespace {

constexpr size_t k_most_unflushed = 262144;
constexpr auto k_sync_interval = std::chrono::milliseconds(900); // and a turn of the caller's loop

int create(const std::string &name, block_file::existing how) {
    const int more = how == block_file::existing::overwrite ? O_TRUNC : O_EXCL;
    const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | more, 0644);
    if (fd < 0 && errno == EEXIST) {
        throw file_error(
            fmt::format("{} exists already; choose another name, or overwrite it with --force", name));
    }
    if (fd < 0) {
        throw file_error(fmt::format("cannot create {}: {}", name, strerror(errno)));
    }
    return fd;
}

/// 0, or errno. A pipe or device has nothing to sync, which is no failure.
int to_disk(int fd) {
    return fdatasync(fd) == 0 || errno == EINVAL || errno == EROFS ? 0 : errno;
}

/// A new file is found after a power cut when its directory is on the disk too. Not every file system can.
void sync_directory_of(const std::string &name) {
    const std::filesystem::path path = std::filesystem::path(name).parent_path();
    const int directory = open(path.empty() ? "." : path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        (void)fsync(directory);
        (void)close(directory);
    }
}

} // namespace

block_file::block_file(std::string name, existing how) : name_(std::move(name)), fd_(create(name_, how)) {
    sync_directory_of(name_);
}

block_file::~block_file() {
    if (syncing_.valid()) {
        syncing_.wait();
    }
    (void)close(fd_); // what matters was synced, and was told when it failed
}

void block_file::append(std::span<const uint8_t> blocks) {
    waiting_.insert(waiting_.end(), blocks.begin(), blocks.end());
    if (waiting_.size() >= k_most_unflushed) {
        flush();
    }
}

void block_file::flush() {
    size_t written = 0;
    while (written < waiting_.size()) {
        const ssize_t result = write(fd_, waiting_.data() + written, waiting_.size() - written);
        if (result < 0 && errno != EINTR) {
            give_up(written, errno);
        }
        written += result > 0 ? static_cast<size_t>(result) : 0;
    }
    unsynced_ = unsynced_ || written > 0;
    written_ += written;
    waiting_.clear();
}

/// Leaves whole blocks only.
void block_file::give_up(size_t written, int error) {
    written_ += pcapng::whole_blocks(waiting_, written);
    waiting_.clear();
    std::string more;
    if (ftruncate(fd_, static_cast<off_t>(written_)) != 0) {
        more = fmt::format(", nor can it be cut back: {}", strerror(errno));
    }
    throw file_error(fmt::format("cannot write {}: {}{}; its {} bytes so far can be read", name_,
                                 strerror(error), more, written_));
}

/// Waits for the sync that goes on, if any.
void block_file::end_sync() {
    const int error = syncing_.valid() ? syncing_.get() : 0;
    if (error != 0) {
        throw file_error(fmt::format("cannot write {}: {}", name_, strerror(error)));
    }
}

void block_file::start_sync() {
    end_sync();
    flush();
    if (unsynced_) {
        syncing_ = std::async(std::launch::async, to_disk, fd_);
    }
    unsynced_ = false;
    synced_at_ = std::chrono::steady_clock::now();
}

void block_file::sync() {
    start_sync();
    end_sync();
}

void block_file::sync_when_due() {
    const bool is_going_on =
        syncing_.valid() && syncing_.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
    if (!is_going_on && std::chrono::steady_clock::now() - synced_at_ >= k_sync_interval) {
        start_sync();
    }
}

} // namespace vexa
