// Measures pairs in turns. See pair_group.h.
#include "pair_group.h"

#include "report.h"

#include <algorithm>

namespace bench {
namespace {

constexpr double k_turn_ns = 15e6; // [ns] a turn: short, so that turns that are compared lie close together
constexpr uint32_t k_first_turn = 100;
constexpr uint32_t k_least_turn = 30;

/// How many answers fill a turn.
uint32_t answers_per_turn(pair_process &pair, size_t size_bytes, uint32_t burst) {
    const turn first = pair.ask(size_bytes, burst, std::max(k_least_turn, k_first_turn / burst));
    const double fitting = k_turn_ns / std::max(1.0, first.p50_ns * burst);
    return std::max(k_least_turn, static_cast<uint32_t>(fitting));
}

} // namespace

double ratio(const measured &one, const measured &to) {
    std::vector<double> ratios;
    for (size_t i = 0; i < one.p50_ns.size() && i < to.p50_ns.size(); ++i) {
        if (one.p50_ns[i] > 0 && to.p50_ns[i] > 0) { // neither was lost
            ratios.push_back(one.p50_ns[i] / to.p50_ns[i]);
        }
    }
    return median(ratios);
}

pair_group::pair_group(const settings &how, bool two_cores) : rounds_(how.rounds) {
    for (const std::string &contender : how.contenders) {
        const pair_settings pair{
            program(how, "bench_pair"),      contender, how.directory,
            static_cast<int>(pairs_.size()), how.core,  two_cores ? how.other_core : how.core};
        pairs_.emplace_back(contender, std::make_unique<pair_process>(pair));
    }
}

std::vector<measured> pair_group::ask(size_t size_bytes, uint32_t burst) {
    std::vector<measured> all;
    std::vector<uint32_t> answers;
    for (auto &[contender, pair] : pairs_) {
        answers.push_back(answers_per_turn(*pair, size_bytes, burst));
        (void)pair->summary(); // forgets the first turn
        all.push_back({contender, {}, {}, {}, 0, {}});
    }
    for (int round = 0; round < rounds_; ++round) {
        for (size_t i = 0; i < pairs_.size(); ++i) {
            const turn taken = pairs_[i].second->ask(size_bytes, burst, answers[i]);
            all[i].p50_ns.push_back(taken.p50_ns);
            all[i].mean_ns.push_back(taken.mean_ns);
            all[i].cpu_ns.push_back(taken.cpu_ns);
            all[i].lost += taken.lost;
        }
    }
    for (size_t i = 0; i < pairs_.size(); ++i) {
        all[i].all = pairs_[i].second->summary();
    }
    return all;
}

const measured *find(const std::vector<measured> &all, const std::string &contender) {
    const auto found = std::ranges::find(all, contender, &measured::contender);
    return found == all.end() ? nullptr : &*found;
}

} // namespace bench
