// A process that waits for messages and gets none.
#include "pair_process.h"
#include "sections.h"

#include <chrono>
#include <filesystem>
#include <fmt/core.h>
#include <fstream>
#include <map>
#include <thread>

namespace bench {
namespace {

/// How often all threads of a process have gone to sleep.
uint64_t sleeps_of(const std::string &pid) {
    uint64_t sum = 0;
    for (const auto &thread : std::filesystem::directory_iterator(fmt::format("/proc/{}/task", pid))) {
        std::ifstream status{thread.path() / "status"};
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("voluntary_ctxt_switches:")) {
                sum += std::stoull(line.substr(line.find(':') + 1));
            }
        }
    }
    return sum;
}

} // namespace

void measure_idle(const settings &how, report &out) {
    std::map<std::string, std::unique_ptr<told_process>> idle;
    int number = 0;
    for (const std::string &contender : how.contenders) {
        const pair_settings pair{
            program(how, "bench_pair"), contender, how.directory, number++, how.core, how.core};
        idle.emplace(contender, std::make_unique<told_process>(contender, pair_command(pair, false)));
    }
    std::this_thread::sleep_for(std::chrono::seconds(2)); // until everybody has settled
    std::map<std::string, std::pair<uint64_t, int64_t>> before;
    for (const auto &[contender, process] : idle) {
        before[contender] = {sleeps_of(process->pid()), process->cpu_ns()};
    }
    std::this_thread::sleep_for(std::chrono::seconds(how.idle_s));
    table filled{{"contender", "wake-ups per minute", "CPU [µs/s]"}};
    for (const std::string &contender : how.contenders) {
        const auto &[sleeps, cpu] = before[contender];
        const auto wake_ups = static_cast<double>(sleeps_of(idle[contender]->pid()) - sleeps);
        const auto used = static_cast<double>(idle[contender]->cpu_ns() - cpu);
        filled.add({fmt::format("`{}`", contender), fmt::format("{:.0f}", wake_ups * 60 / how.idle_s),
                    fmt::format("{:.1f}", used / 1000 / how.idle_s)});
    }
    out.heading("Idle");
    out.paragraph(fmt::format("The answering side, registered and asked nothing, over {} s.", how.idle_s));
    out.add(filled);
}

} // namespace bench
