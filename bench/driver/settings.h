/**
 * @file
 * What every measurement of the bench is told.
 */
#ifndef BENCH_SETTINGS_H
#define BENCH_SETTINGS_H

#include <string>
#include <vector>

namespace bench {

struct settings {
    std::string programs;                ///< directory of bench_pair and the others
    std::string directory;               ///< for sockets and other passing files
    std::vector<std::string> contenders; ///< those that were built and are wanted
    std::string pictures;                ///< directory that the pictures go to
    int rounds;                          ///< turns of each contender
    int stream_s;                        ///< [s] how long a stream lasts
    int idle_s;                          ///< [s] how long an idle node is watched
    int core;                            ///< where both processes of a pair run
    int other_core; ///< where the other one runs when there are two; `core` if there is one
};

#ifdef VEXAMSG_RECLAIM_QUEUE_COPIES
constexpr double k_queued_goal = 1.25; // of a long queued round trip: its copies are given back
#else
constexpr double k_queued_goal = 1.60;
#endif

inline std::string program(const settings &how, const char *name) {
    return how.programs + "/" + name;
}

} // namespace bench

#endif
