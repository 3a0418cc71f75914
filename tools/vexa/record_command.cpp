// `vexa record`: the messages on the bus, into a file.
#include "record_command.h"

#include "bench_socket.h"
#include "progress_line.h"
#include "recorder.h"
#include "tap.h"

#include <chrono>
#include <csignal>
#include <fmt/core.h>
#include <fmt/ranges.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <sys/signalfd.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace vexa {
namespace {

using std::chrono::steady_clock;

constexpr int k_tick_ms = 100;
constexpr int k_buffer_bytes = 32 * 1024 * 1024; // of packets that come while the disk is busy

struct record_options {
    tap_options tap;
    recorder_options recorder;
    std::vector<std::string> filter;
    std::string trigger;
    std::optional<int64_t> max_time_ns;
    std::optional<int64_t> after_ns;
    bool json = false;
};

pcapng::section section_of(const record_options &options) {
    pcapng::section about{.application = "vexa record " VEXA_VERSION};
    utsname system{};
    if (uname(&system) == 0) {
        about.os = fmt::format("{} {}", system.sysname, system.release);
    }
    if (!options.filter.empty()) {
        about.comment = fmt::format("filter: {}", fmt::join(options.filter, " "));
    }
    return about;
}

/// A descriptor that becomes readable with SIGUSR1, which no longer ends the program.
descriptor open_trigger_signal() {
    sigset_t trigger;
    (void)sigemptyset(&trigger);
    (void)sigaddset(&trigger, SIGUSR1);
    if (sigprocmask(SIG_BLOCK, &trigger, nullptr) != 0) {
        fail_errno("sigprocmask");
    }
    descriptor signals{signalfd(-1, &trigger, SFD_CLOEXEC | SFD_NONBLOCK)};
    if (signals.get() < 0) {
        fail_errno("signalfd");
    }
    return signals;
}

bool has_come(const descriptor &signals) {
    signalfd_siginfo which{};
    return read(signals.get(), &which, sizeof which) == sizeof which;
}

std::string losses(const capture_counts &counts) {
    return counts.dropped == 0
               ? "none were lost"
               : fmt::format("{} of {} packets came too fast and were lost", counts.dropped, counts.received);
}

/// One run: the recorder with what is said about it.
class record_run {
public:
    explicit record_run(const record_options &options)
        : options_(options),
          tap_(options.tap),
          recorder_(options.recorder, section_of(options),
                    {.link_type = tap_.link_type(),
                     .snap_bytes = static_cast<uint32_t>(options.tap.how.snap_bytes),
                     .name = options.tap.interface}) {}

    void run() {
        say_beginning();
        waiting_ = waits();
        if (waiting_) {
            trigger_signal_.emplace(open_trigger_signal());
            tap_.wake_on(trigger_signal_->get());
            say_how_to_trigger();
        }
        try {
            (void)tap_.run_packets([this](const raw_packet &packet) { return recorder_.take(packet); },
                                   [this] { return tick(); }, k_tick_ms);
        } catch (const capture_error &) { // the interface has gone; what came is kept
            recorder_.finish(tap_.counts());
            throw;
        }
        recorder_.finish(tap_.counts());
        line_.clear();
        say_result();
    }

private:
    [[nodiscard]] bool waits() const { return recorder_.written() == nullptr; }

    bool tick() {
        if (trigger_signal_ && has_come(*trigger_signal_)) {
            recorder_.trigger_now();
        }
        if (waiting_ && !waits()) {
            waiting_ = false;
            say_triggered();
        }
        if (line_.is_due()) {
            line_.show(progress());
        }
        return recorder_.tick(tap_.counts());
    }

    void say_triggered() {
        line_.clear();
        fmt::print(stderr, "vexa record: triggered; the {} packets in memory are written to {}{}\n",
                   recorder_.packets_before(), recorder_.written()->name(),
                   recorder_.ring().is_shortened() ? "; older ones had no room there" : "");
    }

    [[nodiscard]] double seconds() const {
        return std::chrono::duration<double>(steady_clock::now() - begin_).count();
    }

    [[nodiscard]] std::string progress() const {
        const std::string time = fmt::format("vexa record: {:.1f} s", seconds());
        if (waits()) {
            return fmt::format("{}  {} packets in memory  {}  {} lost  waits for a trigger", time,
                               recorder_.ring().packets(), size_text(recorder_.ring().bytes()),
                               tap_.counts().dropped);
        }
        return fmt::format("{}  {} messages  {}  {} lost  {}", time, recorder_.messages(),
                           size_text(recorder_.written()->size()), tap_.counts().dropped,
                           recorder_.written()->name());
    }

    void say_beginning() const {
        fmt::print(stderr, "vexa record: recording on {} {} {}\n", options_.tap.interface,
                   waits() ? "in memory, for" : "to",
                   waits() ? options_.recorder.to.file : recorder_.written()->name());
    }

    static void say_how_to_trigger() {
        fmt::print(stderr, "vexa record: waits for a trigger; 'kill -USR1 {}' is one too\n", getpid());
    }

    void say_result() const {
        const capture_counts counts = tap_.counts();
        if (options_.json) {
            fmt::print("{}\n", result_json(counts).dump());
        } else if (waits()) {
            fmt::print(stderr, "vexa record: nothing has triggered, and nothing was written; {}\n",
                       losses(counts));
        } else {
            fmt::print(stderr, "vexa record: {} messages, {} in {}; {}\n", recorder_.messages(),
                       size_text(recorder_.written()->size()), where(), losses(counts));
        }
    }

    [[nodiscard]] std::string where() const {
        const recording &to = *recorder_.written();
        if (to.files_begun() == 1) {
            return to.name();
        }
        const std::string kept = to.files().size() < to.files_begun()
                                     ? fmt::format(", of which the last {} are kept", to.files().size())
                                     : "";
        return fmt::format("{} files{}, up to {}", to.files_begun(), kept, to.name());
    }

    [[nodiscard]] nlohmann::ordered_json result_json(const capture_counts &counts) const {
        const recording *to = recorder_.written();
        return {{"files", to != nullptr ? to->files() : std::deque<std::string>{}},
                {"messages", recorder_.messages()},
                {"packets", to != nullptr ? to->packets() : 0},
                {"bytes", to != nullptr ? to->size() : 0},
                {"received", counts.received},
                {"lost", counts.dropped},
                {"seconds", seconds()}};
    }

    const record_options &options_;
    bus_tap tap_;
    recorder recorder_;
    progress_line line_;
    std::optional<descriptor> trigger_signal_;
    bool waiting_ = false; // for a trigger
    steady_clock::time_point begin_ = steady_clock::now();
};

int run_record(record_options options) {
    (void)signal(SIGXFSZ, SIG_IGN); // a file that may not grow any more is a failure to be told
    try {
        options.recorder.what.wanted = message_filter(fmt::format("{}", fmt::join(options.filter, " ")));
        if (!options.trigger.empty()) {
            options.recorder.trigger.emplace(options.trigger);
        }
    } catch (const filter_error &wrong) {
        fmt::print(stderr, "vexa record: {}\n{}\n", wrong.what(), message_filter::help());
        return k_usage;
    }
    options.recorder.after_ns = options.after_ns.value_or(options.recorder.after_ns);
    options.tap.timeout_s = seconds_of(options.max_time_ns.value_or(0));
    options.tap.how.buffer_bytes = k_buffer_bytes;
    try {
        record_run(options).run();
    } catch (const std::runtime_error &failure) { // of the capture or of the file
        fmt::print(stderr, "vexa record: {}\n", failure.what());
        return k_failed;
    }
    return k_ok;
}

void add_limits(CLI::App &command, record_options &options) {
    command.add_option("--count", options.recorder.count, "end after this many messages")
        ->check(CLI::Range(uint64_t{1}, uint64_t{1} << 53))
        ->type_name("N");
    add_size(command, "--max-size", options.recorder.most_bytes, "end before the files have more than this");
    add_time(command, "--max-time", options.max_time_ns, "end after so long");
}

void add_files(CLI::App &command, record_options &options) {
    CLI::Option *split =
        add_amount(command, "--split", options.recorder.to.split,
                   "begin a new file after so much or so long: bus.pcapng becomes bus-00001.pcapng, "
                   "bus-00002.pcapng ...");
    command
        .add_option("--files", options.recorder.to.most_files,
                    "of the files of --split, keep the last N and remove older ones")
        ->check(CLI::Range(size_t{1}, size_t{1} << 32))
        ->type_name("N")
        ->needs(split);
    CLI::Option *ring =
        add_amount(command, "--ring", options.recorder.ring,
                   "keep only the newest in memory, so much or so long (and then 256 MB at most), "
                   "and write them when something triggers");
    ring->excludes(split);
    for (const char *limit : {"--count", "--max-size"}) {
        ring->excludes(command.get_option(limit));
    }
    command.add_option("--trigger", options.trigger, "a filter: the first such message triggers")
        ->type_name("FILTER")
        ->needs(ring);
    add_time(command, "--after", options.after_ns, "go on for so long behind the trigger (default: 5s)")
        ->needs(ring);
}

void add_options(CLI::App &command, record_options &options) {
    command.add_option("FILE", options.recorder.to.file, "pcapng file to write")
        ->required()
        ->type_name("FILE");
    command.add_option("filter", options.filter, "which messages to record; without one all");
    command.add_option("-i,--interface", options.tap.interface, "network interface to listen on")
        ->capture_default_str();
    add_limits(command, options);
    add_files(command, options);
    command.add_flag("--all", options.recorder.what.all, "UDP datagrams too that are none of this system's");
    command.add_flag("--force", options.recorder.to.overwrite, "overwrite files that stand there");
    command.add_flag("--json", options.json, "at the end a JSON object with what was recorded");
}

} // namespace

void add_record_command(CLI::App &app, int &status) {
    CLI::App *command = app.add_subcommand(
        "record", "Records the messages on the bus into a pcapng file, as Wireshark opens it; sends nothing");
    auto options = std::make_shared<record_options>();
    add_options(*command, *options);
    command->footer(fmt::format(
        "\nSIZE: 500kB, 10MB, 1GB. TIME: 500ms, 30s, 5min, 1h; where only a time fits, a number alone is "
        "seconds.\n"
        "{}\n\n"
        "A kill takes at most the last 0.2 seconds of the recording and a power cut the last second: what "
        "was written before can be read.\n"
        "Exit status: 0 ended as asked (a limit, SIGINT, SIGTERM), 1 nothing can be captured or the file "
        "cannot be written, 2 wrong usage.\n\n"
        "Example: everything until Ctrl-C\n"
        "  sudo vexa record bus.pcapng\n"
        "Example: a flight's heartbeat operations, in files of ten minutes of which the last six are kept\n"
        "  sudo vexa record flight.pcapng --split 10min --files 6 family heartbeat\n"
        "Example: the 30 seconds before and 5 after the first malformed message\n"
        "  sudo vexa record odd.pcapng --ring 30s --trigger malformed --after 5s",
        message_filter::help()));
    command->callback([options, &status] { status = run_record(*options); });
}

} // namespace vexa
