/**
 * @file
 * A pair of processes of one contender, and what measuring it once gives.
 */
#ifndef BENCH_PAIR_PROCESS_H
#define BENCH_PAIR_PROCESS_H

#include "child_process.h"

#include <cstdint>
#include <ctime>
#include <memory>
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
    uint32_t lost; ///< bursts that were never answered
};

/** Of everything since the last summary. */
struct percentiles {
    uint64_t samples;
    double p50_ns;
    double p99_ns;
    double p999_ns;
};

/** A child process that says "ready" and answers each line with a line. */
class told_process {
public:
    /** @throws std::runtime_error when it does not come up */
    told_process(const std::string &name, const std::vector<std::string> &command);
    /** @throws std::runtime_error when no answer comes */
    std::string told(const std::string &line);
    /** [ns] of CPU time so far. */
    [[nodiscard]] int64_t cpu_ns() const;
    [[nodiscard]] const std::string &pid() const { return pid_; }

private:
    const std::string name_;
    child_process process_;
    std::string pid_;
    clockid_t clock_{};
};

class pair_process {
public:
    explicit pair_process(const pair_settings &how);

    turn ask(size_t size_bytes, uint32_t burst, uint32_t count);
    /** Sends a stream at a fixed pace; returns its CPU time per message [ns]. */
    double stream(size_t size_bytes, uint32_t per_second, uint32_t count);
    percentiles summary();
    /** Of the messages of streams, where they arrived. */
    percentiles arrivals();
    /** Messages that the asking side's full transmit queue has dropped. */
    uint64_t dropped_by_queue();
    /** Round trips one by one, each from rest: the answering side does nothing besides. */
    void ask_singly(size_t size_bytes, uint32_t count);
    [[nodiscard]] const std::string &answering_pid() const { return answering_.pid(); }

private:
    [[nodiscard]] int64_t cpu_ns() const { return answering_.cpu_ns() + asking_.cpu_ns(); }
    void expect(bool messages);

    told_process answering_; // first, so that the asking side finds somebody
    told_process asking_;
};

std::vector<std::string> pair_command(const pair_settings &how, bool asks);

} // namespace bench

#endif
