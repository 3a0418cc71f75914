// Starts and asks a pair. See pair_process.h.
#include "pair_process.h"

#include <fmt/core.h>
#include <sstream>
#include <stdexcept>

namespace bench {
namespace {

using namespace std::chrono_literals;

constexpr auto k_patience = 60s;

std::vector<std::string> command(const pair_settings &how, const char *role, int core) {
    return {how.program,
            "--contender",
            how.contender,
            "--role",
            role,
            "--core",
            std::to_string(core),
            "--directory",
            how.directory,
            "--number",
            std::to_string(how.number)};
}

clockid_t clock_of(const std::string &pid) {
    clockid_t clock{};
    if (clock_getcpuclockid(std::stoi(pid), &clock) != 0) {
        throw std::runtime_error("process " + pid + " has no clock");
    }
    return clock;
}

} // namespace

pair_process::pair_process(const pair_settings &how)
    : name_(how.contender),
      answering_(command(how, "answer", how.answering_core)),
      asking_(command(how, "ask", how.asking_core)) {
    for (child_process *side : {&answering_, &asking_}) {
        if (side->wait_line(k_patience) != "ready") {
            throw std::runtime_error(name_ + " does not start");
        }
    }
    clocks_[0] = clock_of(told(answering_, "pid"));
    clocks_[1] = clock_of(told(asking_, "pid"));
}

turn pair_process::ask(size_t size_bytes, uint32_t burst, uint32_t count) {
    for (child_process *side : {&answering_, &asking_}) {
        (void)told(*side, "expect 1");
    }
    (void)told(answering_, fmt::format("answer {}", burst));
    const int64_t before = cpu_ns();
    std::istringstream said{told(asking_, fmt::format("ask {} {} {}", size_bytes, burst, count))};
    const auto messages = static_cast<double>(count) * (burst + 1);
    turn result{};
    said >> result.lost >> result.p50_ns >> result.mean_ns;
    result.cpu_ns = static_cast<double>(cpu_ns() - before) / messages;
    for (child_process *side : {&answering_, &asking_}) {
        (void)told(*side, "expect 0");
    }
    return result;
}

percentiles pair_process::summary() {
    std::istringstream said{told(asking_, "summary")};
    percentiles result{};
    said >> result.samples >> result.p50_ns >> result.p99_ns >> result.p999_ns;
    return result;
}

std::string pair_process::told(child_process &side, const std::string &line) {
    std::optional<std::string> answer;
    if (side.send_line(line)) {
        answer = side.wait_line(k_patience);
    }
    if (!answer) {
        throw std::runtime_error(name_ + " does not answer '" + line + "'");
    }
    return *answer;
}

int64_t pair_process::cpu_ns() const {
    int64_t sum = 0;
    for (const clockid_t clock : clocks_) {
        timespec used{};
        (void)clock_gettime(clock, &used); // the processes live
        sum += used.tv_sec * 1'000'000'000 + used.tv_nsec;
    }
    return sum;
}

} // namespace bench
