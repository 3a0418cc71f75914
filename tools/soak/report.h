/** @file The soak's last page: what became of every message, what the nodes hold, and the verdict. */
#ifndef SOAK_REPORT_H
#define SOAK_REPORT_H

#include "bench.h"

#include <chrono>
#include <string>
#include <vector>

namespace soak {

struct result {
    std::string build; /**< "default" or "reclaim" */
    uint64_t seed = 0;
    std::chrono::milliseconds lasted{}; /**< of traffic */
    snapshot baseline;
    snapshot end;
    std::vector<std::string> found; /**< empty: everything is explained */
    std::map<std::string, uint64_t> manager_events;
    std::chrono::milliseconds repair{}; /**< until all node tables were whole again */
    size_t looks = 0;                   /**< quiet points at which everything was compared */
    double cores = 0;                   /**< mean use of the processors */
};

/** The page, several lines. */
std::string page_of(const result &all, bool given_back);

/** Datagrams that the relay has taken so far, and what it has done to them, in one line. */
std::string progress_of(const snapshot &now);

} // namespace soak

#endif
