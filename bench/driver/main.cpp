// The bench: measures, writes a report in Markdown on standard output, pictures into a directory, and what it
// is doing on standard error. Runs in a network of its own, which scripts/bench makes.
#include "contenders.h"
#include "pinned.h"
#include "sections.h"
#include "svg_plot.h"

#include <CLI/CLI.hpp>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fmt/core.h>
#include <functional>
#include <iostream>
#include <unistd.h>

namespace {

struct section {
    const char *name;
    void (*measure)(const bench::settings &, bench::report &);
};
constexpr auto k_sections = std::to_array<section>({
    {"round-trips", bench::measure_round_trips},
    {"streams", bench::measure_streams},
    {"broadcast", bench::measure_broadcast},
    {"start-up", bench::measure_start_up},
    {"idle", bench::measure_idle},
    {"inside", bench::measure_inside},
    {"system-calls", bench::count_system_calls},
});

constexpr int k_rounds = 60;
constexpr int k_quick_rounds = 7;
constexpr int k_idle_s = 60;
constexpr int k_quick_idle_s = 3;
constexpr int k_stream_s = 4;

/// A directory for passing files, gone with this.
class scratch {
public:
    scratch() {
        std::string pattern = std::filesystem::temp_directory_path() / "vexa_bench_XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) {
            bench::fail_errno("mkdtemp");
        }
        path_ = pattern;
    }
    ~scratch() {
        std::error_code ignored; // a file more in /tmp harms nobody
        std::filesystem::remove_all(path_, ignored);
    }
    scratch(const scratch &) = delete;
    scratch &operator=(const scratch &) = delete;
    [[nodiscard]] const std::string &path() const { return path_; }

private:
    std::string path_;
};

/// Those that were built; the others are left out by name.
std::vector<std::string> built(bench::report &out) {
    std::vector<std::string> names;
    for (const bench::contender &each : bench::contenders()) {
        if (each.make != nullptr) {
            names.emplace_back(each.name);
        } else {
            out.paragraph(fmt::format("Left out: {}, since {} was not installed.", each.name, each.package));
        }
    }
    return names;
}

void measure(const bench::settings &how, const std::vector<std::string> &wanted, bench::report &out) {
    for (const section &each : k_sections) {
        if (wanted.empty() || std::ranges::find(wanted, each.name) != wanted.end()) {
            std::cerr << "bench: " << each.name << '\n';
            each.measure(how, out);
        }
    }
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app{"Measures the library against what it is built on and against other message buses"};
    bench::settings how{};
    bool quick = false;
    std::vector<std::string> sections;
    std::vector<std::string> without;
    how.rounds = 0;
    how.pictures = ".";
    app.add_flag("--quick", quick, "a few rounds, for a first look");
    app.add_option("--rounds", how.rounds, "turns of each contender");
    app.add_option("--pictures", how.pictures, "directory for the pictures");
    app.add_option(
        "--only", sections,
        "sections to measure: round-trips, streams, broadcast, start-up, idle, inside, system-calls");
    app.add_option("--without", without, "contenders to leave out");
    CLI11_PARSE(app, argc, argv);
    try {
        const scratch files;
        bench::report out;
        how.programs = std::filesystem::canonical("/proc/self/exe").parent_path();
        how.directory = files.path();
        how.contenders = built(out);
        std::erase_if(how.contenders, [&](const std::string &name) {
            return std::ranges::find(without, name) != without.end();
        });
        how.rounds = how.rounds > 0 ? how.rounds : (quick ? k_quick_rounds : k_rounds);
        how.idle_s = quick ? k_quick_idle_s : k_idle_s;
        how.stream_s = quick ? 1 : k_stream_s;
        how.other_core = 0;
        how.core = static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)) - 1; // interrupts mostly come to the first
        bench::pin_to(how.core);
        measure(how, sections, out);
        std::cout << out.markdown();
        return EXIT_SUCCESS;
    } catch (const std::exception &what) {
        std::cerr << "bench: " << what.what() << '\n';
        return EXIT_FAILURE;
    }
}
