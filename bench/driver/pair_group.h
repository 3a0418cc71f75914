/**
 * @file
 * The pairs of all contenders, measured in turns: A B C A B C ... A ratio is taken between two neighbours in
 * time and then the median of the turns, since absolute times drift on a machine that others use too.
 */
#ifndef BENCH_PAIR_GROUP_H
#define BENCH_PAIR_GROUP_H

#include "pair_process.h"
#include "settings.h"

#include <map>
#include <string>
#include <vector>

namespace bench {

/** One contender at one work: medians of its turns, and percentiles of all samples. */
struct measured {
    std::string contender;
    std::vector<double> p50_ns; ///< of each turn
    std::vector<double> mean_ns;
    std::vector<double> cpu_ns;
    uint32_t lost = 0;
    percentiles all{};
};

/** Median over the turns of one's median to the other's in the same turn. */
double ratio(const measured &one, const measured &to);

class pair_group {
public:
    /** Starts a pair of each contender. */
    pair_group(const settings &how, bool two_cores);

    std::vector<measured> ask(size_t size_bytes, uint32_t burst);

    [[nodiscard]] std::vector<std::pair<std::string, std::unique_ptr<pair_process>>> &pairs() {
        return pairs_;
    }

private:
    const int rounds_;
    std::vector<std::pair<std::string, std::unique_ptr<pair_process>>> pairs_;
};

/** Null when that contender was not measured. */
const measured *find(const std::vector<measured> &all, const std::string &contender);

} // namespace bench

#endif
