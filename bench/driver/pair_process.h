/**
 * @file
 * A pair of processes of one contender, and what measuring it once gives.
 */
#ifndef BENCH_PAIR_PROCESS_H
#define BENCH_PAIR_PROCESS_H

#include "child_process.h"

#include <cstdint>
#include <ctime>
#include <string>

namespace bench {

/** Where and how a pair runs. */
struct pair_settings {
    std::string program; ///< bench_pair, or its like
    std::string contender;
    std::string directory; ///< for the sockets of those who want files
    int number;            ///< of the pair: no two that run at a time have the same
    int asking_core;
    int answering_core;
};

/** One interleaved turn of a pair. */
struct turn {
    double p50_ns;
    double mean_ns;
    double cpu_ns; ///< of both processes, per message
    uint32_t lost;
};

struct percentiles {
    uint64_t samples;
    double p50_ns;
    double p99_ns;
    double p999_ns;
};

class pair_process {
public:
    /** @throws std::runtime_error when one of the two does not come up */
    explicit pair_process(const pair_settings &how);

    turn ask(size_t size_bytes, uint32_t burst, uint32_t count);
    /** Of everything asked since the last summary. */
    percentiles summary();

private:
    std::string told(child_process &side, const std::string &line);
    [[nodiscard]] int64_t cpu_ns() const;

    const std::string name_;
    child_process answering_; // first, so that the asking side finds somebody
    child_process asking_;
    clockid_t clocks_[2]{};
};

} // namespace bench

#endif
