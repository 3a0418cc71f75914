// The soak: a bus of real processes under traffic, with a relay between them that loses, delays, doubles,
// reorders and corrupts. From time to time everything stops for a moment and every count is compared.
#include "bench.h"
#include "report.h"
#include "traffic.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fmt/core.h>
#include <fstream>
#include <numeric>
#include <random>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using clock_type = std::chrono::steady_clock;

constexpr int k_failed = 1;
constexpr auto k_slice = 10s; // of traffic between two looks
constexpr auto k_longest_warm_up = 5s;
constexpr auto k_repair_within = 15s; // a keep-alive period of 10 s and some
constexpr auto k_differences_pass_within = 8s;
constexpr auto k_between_looks = 100ms;
constexpr unsigned k_watchdog_s = 180; // beyond the time of the traffic and as long again for the looks
#ifdef VEXAMSG_RECLAIM_QUEUE_COPIES
constexpr bool k_built_to_give_back = true;
#else
constexpr bool k_built_to_give_back = false;
#endif

struct options {
    double seconds = 60;
    uint16_t nodes = 20;
    std::string expect;
    std::string page_file;
    soak::bench::settings bench;
};

extern "C" void on_watchdog(int /*signal*/) {
    constexpr char last_words[] = "\nsoak: took too long and is ended\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, last_words, sizeof last_words - 1);
    _exit(k_failed); // the children go with it: that is how they were started
}

/// Where this program and its companions lie.
std::string own_directory() {
    char self[4096] = {};
    const ssize_t size = readlink("/proc/self/exe", self, sizeof self - 1);
    const std::string path{self, size > 0 ? static_cast<size_t>(size) : 0};
    return path.substr(0, path.rfind('/'));
}

double processor_seconds() {
    double sum = 0;
    for (const auto who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage use{};
        (void)getrusage(who, &use);
        for (const timeval &one : {use.ru_utime, use.ru_stime}) {
            sum += static_cast<double>(one.tv_sec) + static_cast<double>(one.tv_usec) * 1e-6;
        }
    }
    return sum;
}

class conductor {
public:
    explicit conductor(const options &how) : bench_(how.bench) {
        out_.build = k_built_to_give_back ? "reclaim" : "default";
        out_.seed = how.bench.seed;
        given_back_ = how.bench.given_back;
    }

    /// Plays everything. What went wrong is in the result.
    const soak::result &play(milliseconds time) {
        const auto begun = clock_type::now();
        try {
            bench_.start();
            say("started; the nodes learn of each other");
            (void)wait_for_tables(false);
            warm_up(std::min<milliseconds>(k_longest_warm_up, time / 4));
            while (out_.lasted < time && out_.found.empty()) {
                run_slice(std::min<milliseconds>(k_slice, time - out_.lasted));
                compare();
                say(soak::progress_of(out_.end));
            }
            if (out_.found.empty()) {
                end_well();
            }
        } catch (const soak::failure &what) {
            out_.found.emplace_back(what.what());
        }
        const std::chrono::duration<double> lasted = clock_type::now() - begun;
        out_.cores = processor_seconds() / lasted.count();
        return out_;
    }

private:
    void say(const std::string &what) const {
        fmt::print("{:<8} {:6.1f} s  {}\n", out_.build, static_cast<double>(out_.lasted.count()) / 1000,
                   what);
        (void)std::fflush(stdout);
    }

    void run_slice(milliseconds time) {
        (void)bench_.ask_all("traffic on");
        bench_.between().set_hostile(true);
        bench_.run_for(time);
        bench_.between().set_hostile(false);
        bench_.quieten();
        out_.lasted += time;
    }

    /// The library's memory is compared from here on, before the first message; the rest of a process from
    /// where it has been through everything once.
    void warm_up(milliseconds time) {
        (void)bench_.ask_all("baseline");
        run_slice(time);
        compare();
        out_.baseline = out_.end;
        say("warmed up; " + soak::progress_of(out_.end));
    }

    /// Compares all counts and all memory. What is on its way, in a slow process or in the session, which
    /// goes on meanwhile, makes a difference that passes; any other stays.
    void compare() {
        const auto begun = clock_type::now();
        do {
            out_.end = bench_.look();
            out_.found = differences();
            if (out_.found.empty()) {
                ++out_.looks;
                return;
            }
            bench_.run_for(k_between_looks);
        } while (clock_type::now() - begun < k_differences_pass_within);
    }

    [[nodiscard]] std::vector<std::string> differences() const {
        std::vector<std::string> found = soak::unexplained(out_.end.counted);
        const bool warm = !out_.baseline.memory.empty();
        const auto memory = soak::unexplained_memory(warm ? out_.baseline.memory : out_.end.memory,
                                                     out_.end.memory, given_back_);
        found.insert(found.end(), memory.begin(), memory.end());
        return found;
    }

    /// Waits until every node has every node in its table. How long it took.
    milliseconds wait_for_tables(bool repair) {
        const auto begun = clock_type::now();
        while (!bench_.look().tables_whole) {
            if (clock_type::now() - begun > k_repair_within) {
                throw soak::failure(repair
                                        ? "the node tables are not whole a keep-alive period after the faults"
                                        : "the nodes do not learn of each other");
            }
            bench_.run_for(k_between_looks);
        }
        return std::chrono::duration_cast<milliseconds>(clock_type::now() - begun);
    }

    /// Without faults everything must be as if there had never been any: tables, every way, frames.
    void end_well() {
        out_.repair = wait_for_tables(true);
        const soak::balance before = soak::balance_of(out_.end.counted);
        (void)bench_.ask_all("round");
        bench_.quieten();
        compare();
        check_round(soak::growth(before, soak::balance_of(out_.end.counted)));
        out_.manager_events = bench_.manager_events();
        if (out_.found.empty()) {
            check_farewell();
        }
    }

    /// The nodes leave, and the manager's own counts come into the balance.
    void check_farewell() {
        bench_.leave();
        soak::observation last = bench_.look().counted;
        last.manager = bench_.end();
        out_.found = soak::unexplained_session(last);
    }

    void check_round(const soak::balance &round) {
        for (size_t row = 0; row < round.size(); ++row) {
            const auto by = static_cast<soak::way>(row);
            if (soak::is_user_data(by) &&
                (round.at(row).sent == 0 || round.at(row).delivered != round.at(row).sent)) {
                out_.found.push_back(fmt::format("without faults, {}: {} sent, {} delivered",
                                                 soak::info_of(by).name, round.at(row).sent,
                                                 round.at(row).delivered));
            }
        }
        for (const auto &[id, frame] : out_.end.frames) {
            if (frame != out_.end.frames.begin()->second) {
                out_.found.push_back(
                    fmt::format("without faults, the heartbeat frame of node {} differs", id));
            }
        }
    }

    soak::bench bench_;
    bool given_back_ = false;
    soak::result out_;
};

std::vector<uint16_t> node_ids(uint16_t nodes) {
    std::vector<uint16_t> ids(nodes);
    std::iota(ids.begin(), ids.end(), static_cast<uint16_t>(soak::k_witness + 1));
    ids.push_back(PROXY_NODE_ID);
    return ids;
}

/// Writes the page to its file, or shows it.
bool publish(const std::string &page, const std::string &file_name) {
    if (file_name.empty()) {
        fmt::print("{}", page);
        return std::fflush(stdout) == 0;
    }
    std::ofstream file{file_name};
    file << page;
    return file.flush().good();
}

void add_options(CLI::App &app, options &how) {
    app.add_option("--seconds", how.seconds, "of traffic")
        ->check(CLI::Range(1.0, 1e6))
        ->capture_default_str();
    app.add_option("--nodes", how.nodes, "besides the proxy")
        ->check(CLI::Range(2, 100))
        ->capture_default_str();
    app.add_option("--seed", how.bench.seed, "of all that is left to chance; drawn when not given");
    app.add_option("--expect", how.expect,
                   "what becomes of the copies of queued messages; as built when not given")
        ->check(CLI::IsMember({"kept", "given-back"}));
    app.add_option("--page", how.page_file, "file for the last page; standard output when not given");
    app.add_option("--log", how.bench.log_file, "file for the log lines of the nodes' library");
    app.add_option("--programs", how.bench.programs, "directory with the programs of the soak")
        ->capture_default_str();
    app.add_option("--steal", how.bench.steal,
                   "datagrams that the relay swallows without counting them: the soak must then fail");
    app.add_option("--sabotage", how.bench.sabotage,
                   "what the first node takes and keeps: the soak must then fail")
        ->check(CLI::IsMember({"heap", "descriptor", "thread"}));
}

int run(int argc, char **argv) {
    options how;
    how.bench.programs = own_directory();
    how.bench.seed = std::random_device{}();
    CLI::App app{
        "A bus of real processes under traffic and faults, on this machine, which needs 192.168.1.1/24; "
        "scripts/soak provides it."};
    add_options(app, how);
    CLI11_PARSE(app, argc, argv);
    how.bench.ids = node_ids(how.nodes);
    how.bench.given_back = how.expect.empty() ? k_built_to_give_back : how.expect == "given-back";
    (void)std::signal(SIGALRM, on_watchdog);
    (void)alarm(2 * static_cast<unsigned>(how.seconds) + k_watchdog_s);

    conductor soak{how};
    const soak::result &all = soak.play(milliseconds(static_cast<int64_t>(how.seconds * 1000)));
    const bool published = publish(soak::page_of(all, how.bench.given_back), how.page_file);
    return published && all.found.empty() ? 0 : k_failed;
}

} // namespace

int main(int argc, char **argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception &what) {
        fmt::print(stderr, "soak: {}\n", what.what());
        return k_failed;
    }
}
