// Starts and asks a pair. See pair_process.h.
#include "pair_process.h"

#include <fmt/core.h>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace bench {
namespace {

using namespace std::chrono_literals;

constexpr auto k_patience = 60s;
constexpr auto k_rest = 3ms; // enough for a process that strace slows down

clockid_t clock_of(const std::string &pid) {
    clockid_t clock{};
    if (clock_getcpuclockid(std::stoi(pid), &clock) != 0) {
        throw std::runtime_error("process " + pid + " has no clock");
    }
    return clock;
}

percentiles read_percentiles(const std::string &said) {
    std::istringstream words{said};
    percentiles result{};
    words >> result.samples >> result.p50_ns >> result.p99_ns >> result.p999_ns;
    return result;
}

} // namespace

std::vector<std::string> pair_command(const pair_settings &how, bool asks) {
    return {how.program,
            "--contender",
            how.contender,
            "--role",
            asks ? "ask" : "answer",
            "--core",
            std::to_string(asks ? how.asking_core : how.answering_core),
            "--directory",
            how.directory,
            "--number",
            std::to_string(how.number)};
}

told_process::told_process(const std::string &name, const std::vector<std::string> &command)
    : name_(name), process_(command) {
    if (process_.wait_line(k_patience) != "ready") {
        throw std::runtime_error(name_ + " does not start");
    }
    pid_ = told("pid");
    clock_ = clock_of(pid_);
}

std::string told_process::told(const std::string &line) {
    std::optional<std::string> answer;
    if (process_.send_line(line)) {
        answer = process_.wait_line(k_patience);
    }
    if (!answer) {
        throw std::runtime_error(name_ + " does not answer '" + line + "'");
    }
    return *answer;
}

int64_t told_process::cpu_ns() const {
    timespec used{};
    (void)clock_gettime(clock_, &used); // the process lives
    return used.tv_sec * 1'000'000'000 + used.tv_nsec;
}

pair_process::pair_process(const pair_settings &how)
    : answering_(how.contender, pair_command(how, false)), asking_(how.contender, pair_command(how, true)) {
}

turn pair_process::ask(size_t size_bytes, uint32_t burst, uint32_t count) {
    expect(true);
    (void)answering_.told(fmt::format("answer {}", burst));
    const int64_t before = cpu_ns();
    std::istringstream said{asking_.told(fmt::format("ask {} {} {}", size_bytes, burst, count))};
    const auto messages = static_cast<double>(count) * (burst + 1);
    turn result{};
    said >> result.lost >> result.p50_ns >> result.mean_ns;
    result.cpu_ns = static_cast<double>(cpu_ns() - before) / messages;
    expect(false);
    return result;
}

double pair_process::stream(size_t size_bytes, uint32_t per_second, uint32_t count) {
    expect(true);
    (void)answering_.told("answer 0");
    const int64_t before = cpu_ns();
    (void)asking_.told(fmt::format("stream {} {} {}", size_bytes, per_second, count));
    (void)answering_.told("settle"); // what is still on its way
    const double cpu = static_cast<double>(cpu_ns() - before) / count;
    expect(false);
    return cpu;
}

uint64_t pair_process::dropped_by_queue() {
    return std::stoull(asking_.told("dropped"));
}

void pair_process::ask_singly(size_t size_bytes, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        (void)asking_.told(fmt::format("ask {} 1 1", size_bytes));
        std::this_thread::sleep_for(k_rest);
    }
}

percentiles pair_process::summary() {
    return read_percentiles(asking_.told("summary"));
}

percentiles pair_process::arrivals() {
    return read_percentiles(answering_.told("summary"));
}

void pair_process::expect(bool messages) {
    for (told_process *side : {&answering_, &asking_}) {
        (void)side->told(fmt::format("expect {:d}", messages));
    }
}

} // namespace bench
