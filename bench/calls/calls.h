/**
 * @file
 * The calls that are counted and timed one at a time, on a node that knows some others.
 */
#ifndef BENCH_CALLS_H
#define BENCH_CALLS_H

#include <span>

namespace bench {

/** One call of one exported function, the name's. */
struct counted_call {
    const char *name; ///< the function's; behind a colon, which of several works of it
    void (*work)();
    int count = 1000; ///< calls that give a fair figure
};

struct timed_call {
    const char *name;
    void (*prepare)();
    void (*work)();
};

std::span<const counted_call> counted_calls();
std::span<const timed_call> timed_calls();

/** Before the first call: a node, its table filled. @throws std::runtime_error when it does not start */
void start_called_node();

} // namespace bench

#endif
