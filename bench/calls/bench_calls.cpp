// Calls the library's functions one at a time: to be timed, or to be counted by callgrind.
//
//     bench_calls --list                    the functions that are counted, and how often to call each
//     bench_calls --call NAME --count 1000  calls one so often
//     bench_calls --time                    name and time per call [ns] of each work, a line each
#include "calls.h"
#include "pinned.h"
#include "work.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <fmt/core.h>
#include <limits>
#include <unistd.h>
#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else // nobody can count
#define CALLGRIND_ZERO_STATS
#endif

namespace {

constexpr int k_batches = 40;
constexpr double k_batch_ns = 2e6; // [ns]

double time_of(void (*work)(), int calls) {
    const int64_t begun = bench::now_ns();
    for (int i = 0; i < calls; ++i) {
        work();
    }
    return static_cast<double>(bench::now_ns() - begun) / calls;
}

/// The fastest of many batches: the others were disturbed.
void print_time(const bench::timed_call &each) {
    each.prepare();
    const int calls = std::max(1, static_cast<int>(k_batch_ns / std::max(1.0, time_of(each.work, 20))));
    double best = std::numeric_limits<double>::max();
    for (int i = 0; i < k_batches; ++i) {
        best = std::min(best, time_of(each.work, calls));
    }
    fmt::print("{}\t{:.2f}\n", each.name, best);
}

int call(const std::string &name, int count) {
    for (const bench::counted_call &each : bench::counted_calls()) {
        if (name == each.name) {
            CALLGRIND_ZERO_STATS; // the node's start, which takes now one way and now another, is not counted
            for (int i = 0; i < count; ++i) {
                each.work();
            }
            return EXIT_SUCCESS;
        }
    }
    fmt::print(stderr, "bench_calls: '{}' is not counted\n", name);
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app{"Calls single functions of the library"};
    bool list = false;
    bool time = false;
    std::string name;
    int count = 1;
    int core = -1;
    app.add_flag("--list", list, "names what can be called");
    app.add_flag("--time", time, "times every work");
    app.add_option("--call", name, "a function to call");
    app.add_option("--count", count, "how often");
    app.add_option("--core", core, "run on this core only");
    CLI11_PARSE(app, argc, argv);
    if (list) {
        for (const bench::counted_call &each : bench::counted_calls()) {
            fmt::print("{} {}\n", each.name, each.count);
        }
        return EXIT_SUCCESS;
    }
    if (core >= 0) {
        bench::pin_to(core);
    }
    bench::start_called_node();
    int result = EXIT_SUCCESS;
    if (time) {
        for (const bench::timed_call &each : bench::timed_calls()) {
            print_time(each);
        }
    } else {
        result = call(name, count);
    }
    (void)fflush(stdout);
    std::quick_exit(result); // the node's threads go with the process
}
