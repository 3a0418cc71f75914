// One side of a pair: does what it is told line by line on standard input, and answers each line with one.
//
//     bench_pair --contender bare-loop --role ask --directory /tmp/x
//     ask 64 1 1000         1000 round trips of 64 bytes -> "0 8123 8240.5" lost, median and mean [ns]
//     stream 64 10000 5000  5000 messages, 10000 a second -> "5000"
//     answer 1              (--role answer) answers every message; 0: takes the time of each instead -> "ok"
//     settle                waits until no message has come for a while -> "ok"
//     summary               of all samples so far, which it then forgets -> "1000 8123 9100 12000"
//                           their number, p50, p99 and p99.9 [ns]
//     expect 0              no message will come for a while -> "ok"
//     dropped               -> messages that its full transmit queue has dropped
//     pid                   -> its process id
#include "contenders.h"
#include "pinned.h"
#include "silent_log.h"
#include "work.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <exception>
#include <fmt/core.h>
#include <iostream>
#include <sstream>
#include <string>
#include <unistd.h>

namespace {

using bench::percentile;

class pair_side {
public:
    explicit pair_side(const bench::contender &which, const bench::place &where)
        : own_(which.make(where, where.asks ? static_cast<bench::listener &>(asker_) : answerer_)) {}

    /// Does what a line says; the answer to it.
    std::string obey(const std::string &line) {
        std::istringstream words{line};
        std::string order;
        words >> order;
        if (order == "ask") {
            return ask(words);
        }
        if (order == "stream") {
            return stream(words);
        }
        if (order == "summary") {
            return summary();
        }
        if (order == "answer") {
            return answer(words);
        }
        if (order == "dropped") {
            return std::to_string(bench::dropped_by_queue());
        }
        if (order == "settle") {
            answerer_.settle();
            return "ok";
        }
        if (order == "expect") {
            bool messages = false;
            words >> messages;
            own_->expect(messages);
            return "ok";
        }
        return order == "pid" ? std::to_string(getpid()) : "what is '" + line + "'?";
    }

private:
    std::string ask(std::istringstream &words) {
        bench::ask_order order{};
        words >> order.size_bytes >> order.burst >> order.count;
        bench::ask_result result = asker_.ask(*own_, order);
        samples_.insert(samples_.end(), result.samples_ns.begin(), result.samples_ns.end());
        return fmt::format("{} {} {:.1f}", result.lost, percentile(result.samples_ns, 0.5),
                           bench::mean(result.samples_ns));
    }

    std::string stream(std::istringstream &words) {
        size_t size = 0;
        uint32_t per_second = 0;
        uint32_t count = 0;
        words >> size >> per_second >> count;
        return std::to_string(asker_.stream(*own_, size, per_second, count));
    }

    std::string answer(std::istringstream &words) {
        uint32_t burst = 0;
        words >> burst;
        answerer_.answer_every(*own_, burst);
        return "ok";
    }

    std::string summary() {
        const std::vector<uint32_t> delays = answerer_.take_delays();
        samples_.insert(samples_.end(), delays.begin(), delays.end());
        const std::string text = fmt::format("{} {} {} {}", samples_.size(), percentile(samples_, 0.5),
                                             percentile(samples_, 0.99), percentile(samples_, 0.999));
        samples_.clear();
        return text;
    }

    bench::asker asker_;
    bench::answerer answerer_;
    std::unique_ptr<bench::side> own_;
    std::vector<uint32_t> samples_;
};

void run(const bench::contender &which, const bench::place &where) {
    pair_side side{which, where};
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << side.obey(line) << std::endl;
    }
    std::quick_exit(EXIT_SUCCESS); // with the contender's threads, which nobody stops
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app{"One side of a pair of processes that exchange messages"};
    std::string name;
    std::string role;
    bench::place where{};
    int core = -1;
    app.add_option("--contender", name)->required();
    app.add_option("--role", role)->required()->check(CLI::IsMember({"ask", "answer"}));
    app.add_option("--directory", where.directory, "for the pair's sockets");
    app.add_option("--number", where.number, "of the pair");
    app.add_option("--core", core, "run on this core only");
    CLI11_PARSE(app, argc, argv);
    where.asks = role == "ask";
    const bench::contender *which = bench::find_contender(name);
    if (which == nullptr || which->make == nullptr) {
        std::cerr << "bench_pair: there is no contender '" << name << "'\n";
        return EXIT_FAILURE;
    }
    try {
        if (core >= 0) {
            bench::pin_to(core);
        }
        run(*which, where);
    } catch (const std::exception &what) {
        std::cerr << "bench_pair: " << name << ": " << what.what() << '\n';
    }
    return EXIT_FAILURE;
}
