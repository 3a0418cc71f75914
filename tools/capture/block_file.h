/**
 * @file
 * A file that grows by whole blocks, and of which a kill or a power cut takes no more than the last second:
 * what was appended reaches the system with flush() and the disk with sync().
 *
 *     vexa::block_file file("bus.pcapng", vexa::block_file::existing::refuse);
 *     file.append(block);
 *     file.flush();           // survives the end of this program
 *     file.sync_when_due();   // survives the end of the power; at most once a second
 *
 * When the disk is full, the file is cut back to its last whole block, so that it can be read.
 *
 * @par Threads  One object is used by one thread; syncs go on in another one of its own.
 */
#ifndef VEXA_BLOCK_FILE_H
#define VEXA_BLOCK_FILE_H

#include <chrono>
#include <cstdint>
#include <future>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace vexa {

/** Says which file cannot be written and why, for people. */
class file_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class block_file {
public:
    enum class existing { refuse, overwrite };

    /** Creates it. @throws file_error, also when there is such a file that is not to be overwritten */
    block_file(std::string name, existing how);

    /** Closes it; what has not been flushed is lost. */
    ~block_file();
    block_file(const block_file &) = delete;
    block_file &operator=(const block_file &) = delete;

    /** Takes whole pcapng blocks; flushes when many have come together. @throws file_error */
    void append(std::span<const uint8_t> blocks);

    /** Writes what was appended. @throws file_error */
    void flush();

    /** Flushes, and waits until the disk has it. @throws file_error */
    void sync();

    /** Starts a sync() once a second when something was appended. A slow disk keeps nobody waiting: what
     * comes meanwhile can be appended and flushed. @throws file_error, also for the sync before */
    void sync_when_due();

    [[nodiscard]] const std::string &name() const { return name_; }

    /** [bytes] with all that was appended. */
    [[nodiscard]] uint64_t size() const { return written_ + waiting_.size(); }

private:
    [[noreturn]] void give_up(size_t written, int error);
    void start_sync();
    void end_sync();

    std::string name_;
    int fd_;
    uint64_t written_ = 0; // [bytes] of whole blocks in the file
    std::vector<uint8_t> waiting_;
    bool unsynced_ = false;
    std::future<int> syncing_; // errno of what is going on
    std::chrono::steady_clock::time_point synced_at_ = std::chrono::steady_clock::now();
};

} // namespace vexa

#endif
