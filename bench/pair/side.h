/**
 * @file
 * One side of a pair of processes that exchange messages, by whatever means. A contender is one such means:
 * plain sockets, the library, or another message bus. All of them are measured by the same program, work and
 * clock, so that what differs is the contender.
 *
 *     class counter : public bench::listener { void on_message(const uint8_t *, size_t) override { ++n; } };
 *     const auto side = contender.make({.asks = true, .directory = "/tmp/x"}, listener);
 *     side->send(payload, 64);
 */
#ifndef BENCH_SIDE_H
#define BENCH_SIDE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace bench {

/** Takes in what a side receives. */
class listener {
public:
    listener() = default;
    virtual ~listener() = default;
    listener(const listener &) = delete;
    listener &operator=(const listener &) = delete;

    /** Called on the side's receiving thread, which it may send from. The payload is valid during the call.
     */
    virtual void on_message(const uint8_t *payload, size_t size_bytes) = 0;
};

/** One side. It lives until its process ends: its threads know nobody who would stop them. */
class side {
public:
    side() = default;
    virtual ~side() = default;
    side(const side &) = delete;
    side &operator=(const side &) = delete;

    /** Sends one message to the other side. Any thread, one at a time. */
    virtual void send(const uint8_t *payload, size_t size_bytes) = 0;

    /** Whether messages are to be expected: a side that polls rests otherwise. */
    virtual void expect(bool /*messages*/) {}
};

/** What a side must know of its pair. */
struct place {
    bool asks;             ///< this side begins; the other one answers
    uint16_t number;       ///< of the pair, from 0: no two that run at a time have the same
    std::string directory; ///< the pair's own, for the sockets of those who want files
};

using make_side = std::unique_ptr<side> (*)(const place &, listener &);

/** @throws std::system_error with what errno says about a system call */
[[noreturn]] void fail_errno(const char *what);

/** Leaves `result` as it is, or throws when it says that a system call failed. */
int checked(int result, const char *what);

} // namespace bench

#endif
