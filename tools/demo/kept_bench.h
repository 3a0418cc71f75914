/**
 * @file
 * The demo's bus without its scenes: manager, proxy, nodes and the stand-ins for flight side and camera, with
 * moderate traffic of every kind, for somebody who tries the tools on it. A node may be stopped or killed
 * meanwhile; the others go on.
 */
#ifndef DEMO_KEPT_BENCH_H
#define DEMO_KEPT_BENCH_H

#include "transcript.h"

#include <string>

namespace demo {

struct kept_bench_settings {
    std::string programs; /**< directory with the programs */
    std::string log_file; /**< receives the nodes' log lines; empty: standard error */
};

/**
 * Runs the bench until SIGINT or SIGTERM, then ends it in order.
 * @return whether everything came up, and everything that still ran at the end has ended well
 */
bool keep_bench(const kept_bench_settings &how, const transcript &out);

} // namespace demo

#endif
