// System calls per message, counted by strace.
#include "pair_process.h"
#include "sections.h"

#include <array>
#include <chrono>
#include <csignal>
#include <fmt/core.h>
#include <fstream>
#include <map>
#include <sstream>

namespace bench {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t k_answers = 300;
constexpr size_t k_size = 64; // [bytes]
constexpr auto k_contenders = std::to_array<const char *>(
    {"bare-udp", "bare-loop", "vision_send_msg", "bare-queue", "vxmsg_send_general", "vision_brocast_msg"});

/// What strace has counted: "% time seconds usecs/call calls [errors] syscall" per line.
std::map<std::string, double> read_counts(const std::string &path) {
    std::map<std::string, double> counts;
    std::ifstream file{path};
    for (std::string line; std::getline(file, line);) {
        std::istringstream words{line};
        std::vector<std::string> cells;
        for (std::string word; words >> word;) {
            cells.push_back(word);
        }
        if (cells.size() >= 5 && cells[0].find_first_not_of("0123456789.") == std::string::npos &&
            cells.back() != "total") {
            counts[cells.back()] = std::stod(cells[3]);
        }
    }
    return counts;
}

/// Of the answering side, which receives and sends one message per round trip and then comes to rest.
std::map<std::string, double> count(pair_process &pair, const std::string &path) {
    child_process strace{{"strace", "-f", "-c", "-o", path, "-p", pair.answering_pid()},
                         {.error_file = path + ".err", .merge_errors = false}};
    while (std::ifstream{path + ".err"}.peek() == std::ifstream::traits_type::eof()) {
        (void)strace.wait_exit(10ms); // until it says that it is attached
    }
    pair.ask_singly(k_size, k_answers);
    strace.signal(SIGINT);
    (void)strace.wait_exit(5s);
    return read_counts(path);
}

} // namespace

void count_system_calls(const settings &how, report &out) {
    table filled{{"contender", "system calls of one that receives a message and answers it"}};
    int number = 0;
    for (const char *contender : k_contenders) {
        pair_process pair{
            {program(how, "bench_pair"), contender, how.directory, number++, how.core, how.core}};
        (void)pair.ask(k_size, 1, k_answers);
        std::string text;
        double sum = 0;
        for (const auto &[call, calls] : count(pair, fmt::format("{}/strace-{}", how.directory, contender))) {
            if (calls >= k_answers / 10.0) {
                text += fmt::format("{}{} {:.1f}", text.empty() ? "" : ", ", call, calls / k_answers);
                sum += calls / k_answers;
            }
        }
        filled.add({fmt::format("`{}`", contender), fmt::format("{:.1f}: {}", sum, text)});
    }
    out.heading("System calls");
    out.add(filled);
}

} // namespace bench
