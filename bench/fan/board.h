/**
 * @file
 * Where the receivers of a broadcast, in whatever processes, note that it has come, and where its sender
 * waits for the last of them. Lies in a file that all of them map.
 */
#ifndef BENCH_BOARD_H
#define BENCH_BOARD_H

#include <atomic>
#include <cstdint>
#include <string>

namespace bench {

class board {
public:
    /** Maps the file, and makes it if need be. @throws std::system_error */
    static board &open(const std::string &path);

    /** The next message is to reach so many. */
    void expect(uint32_t receivers);
    /** One receiver has it. */
    void note();
    /** When the last of them had it [ns]; 0 when one still has not after a second. */
    int64_t wait_for_all();

private:
    std::atomic<uint32_t> missing_; // also the word that is waited on
    std::atomic<int64_t> last_ns_;
};

} // namespace bench

#endif
