// quick version of the driver
#include "pair_process.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <fmt/core.h>
#include <memory>
#include <unistd.h>

namespace {
double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::nth_element(v.begin(), v.begin() + static_cast<long>(v.size() / 2), v.end());
    return v[v.size() / 2];
}
} // namespace

int main(int argc, char **argv) {
    CLI::App app{"bench"};
    size_t size = 64;
    uint32_t burst = 1;
    uint32_t count = 1000;
    int rounds = 30;
    int other_core = 1;
    std::string program = "bench_pair";
    std::vector<std::string> names;
    app.add_option("--size", size);
    app.add_option("--burst", burst);
    app.add_option("--count", count);
    app.add_option("--rounds", rounds);
    app.add_option("--core2", other_core);
    app.add_option("--program", program);
    app.add_option("contenders", names);
    CLI11_PARSE(app, argc, argv);
    std::vector<std::unique_ptr<bench::pair_process>> pairs;
    char dir[] = "/tmp/vexabenchXXXXXX";
    if (mkdtemp(dir) == nullptr) return 1;
    for (const auto &n : names) {
        std::string prog = program, c = n;
        if (auto colon = n.find('@'); colon != std::string::npos) { c = n.substr(0, colon); prog = n.substr(colon + 1); }
        pairs.push_back(std::make_unique<bench::pair_process>(bench::pair_settings{prog, c, dir, static_cast<int>(pairs.size()), 1, other_core}));
    }
    std::vector<std::vector<double>> p50(names.size()), mean(names.size()), cpu(names.size()), ratio(names.size()), mratio(names.size());
    for (auto &p : pairs) { (void)p->ask(size, burst, count / 4 + 1); (void)p->summary(); }
    std::vector<uint32_t> lost(names.size());
    for (int r = 0; r < rounds; ++r) {
        for (size_t i = 0; i < pairs.size(); ++i) {
            const bench::turn t = pairs[i]->ask(size, burst, count);
            p50[i].push_back(t.p50_ns);
            mean[i].push_back(t.mean_ns);
            cpu[i].push_back(t.cpu_ns);
            lost[i] += t.lost;
            ratio[i].push_back(t.p50_ns / p50[0].back());
            mratio[i].push_back(t.mean_ns / mean[0].back());
        }
    }
    for (size_t i = 0; i < pairs.size(); ++i) {
        const auto s = pairs[i]->summary();
        fmt::print("{:22} p50 {:8.0f} ratio {:.3f}  mean {:8.0f} ratio {:.3f}  p99 {:8.0f} p99.9 {:8.0f} cpu {:7.0f} lost {}\n", names[i], median(p50[i]),
                   median(ratio[i]), median(mean[i]), median(mratio[i]), s.p99_ns, s.p999_ns, median(cpu[i]), lost[i]);
    }
}
