// The bench that is kept. Nodes are told what to send and their answers are counted, not awaited: one that
// hangs must not hold up the others.
#include "kept_bench.h"

#include "bus.h"
#include "child_process.h"

#include "vision_service_route_types.h"
#include "vision_service_route_vision_heartbeat.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <fmt/core.h>
#include <memory>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace demo {
namespace {

using namespace std::chrono_literals;

constexpr auto k_patience = 5s; // for one process to come up or to end
constexpr auto k_tick = 100ms;
constexpr int k_most_unanswered =
    50; // commands; a node with more is stopped, and told nothing until it answers

struct cast_member {
    int id;
    const char *name;
};

constexpr auto k_cast = std::to_array<cast_member>(
    {{127, "proxy"}, {1, "vision_machine"}, {3, "vio"}, {5, "soa"}, {9, "detection"}});

/// Something that a node sends again and again.
struct habit {
    int node;
    unsigned every; ///< so many ticks
    const char *what;
    std::string (*command)(unsigned tick);
};

std::string next_report(unsigned tick) {
    constexpr auto kinds = std::to_array<const char *>(
        {"track_status", "goal_area", "orbit_status", "orbit_area", "command_ack", "command_ack_rc"});
    return fmt::format("link {} {}", kinds.at(tick / 2 % kinds.size()), tick % 256);
}

const std::vector<habit> &habits() {
    static const std::vector<habit> all = {
        {9, 1, "messages to node 1", [](unsigned) { return std::string{"send 1 1 1 256"}; }},
        {3, 1, "statuses to node 5",
         [](unsigned tick) { return fmt::format("status 2 5 {} {}", static_cast<int>(MSG_VIO_CFG), tick); }},
        {1, 2, "queued messages to node 9", [](unsigned) { return std::string{"queue 3 9 1 1024"}; }},
        {9, 2, "reports to the flight side", next_report},
        {5, 10, "messages to the app, by the proxy",
         [](unsigned) { return std::string{"send 4 64001 1 64"}; }},
        {9, 10, "a broadcast", [](unsigned) { return std::string{"broadcast 5 1 512"}; }},
        {9, 10, "a camera command",
         [](unsigned tick) { return fmt::format("link camera_command {}", tick / 10 % 256); }},
        {5, 10, "a heartbeat operation",
         [](unsigned tick) {
             return fmt::format("heartbeat {}={} {}={}", static_cast<int>(WORK_STATUS), tick / 10 % 256,
                                static_cast<int>(VIO_RATE), 20 + tick / 10 % 20);
         }},
    };
    return all;
}

/// A process of the bench, whose lines are read and, but for the first ones, only counted.
class member {
public:
    member(std::string who, const std::vector<std::string> &command, const std::string &log_file)
        : who_(std::move(who)),
          process_(std::make_unique<child_process>(
              command,
              child_process::settings{.error_file = log_file, .merge_errors = false, .apart = true})) {}

    [[nodiscard]] const std::string &who() const { return who_; }

    /// Waits for a line that begins so. Throws failure when none comes.
    void await(const std::string &beginning) {
        const auto end = std::chrono::steady_clock::now() + k_patience;
        while (std::chrono::steady_clock::now() < end) {
            const auto line = process_->wait_line(k_patience);
            if (!line) {
                break;
            }
            if (line->starts_with(beginning)) {
                return;
            }
        }
        throw failure(fmt::format("{} did not come up", who_));
    }

    /// Takes in what it says. False when it has ended since the last time.
    bool listen() {
        if (ended_) {
            return true;
        }
        ended_ = !process_->receive();
        while (const auto line = process_->take_line()) {
            const bool answers =
                line->starts_with("sent ") || line->starts_with("set ") || line->starts_with("linked ");
            unanswered_ -= answers ? 1 : 0;
        }
        return !ended_;
    }

    /// False when it is told nothing, because it does not answer.
    bool tell(const std::string &command) {
        if (ended_ || unanswered_ >= k_most_unanswered) {
            return false;
        }
        ++unanswered_;
        return process_->send_line(command);
    }

    /// Asks it to end. Its exit status.
    int end() {
        process_->end_input();
        if (end_signal_ != 0) {
            process_->signal(end_signal_);
        }
        return exit_status();
    }

    void ends_on(int signal) { end_signal_ = signal; }
    [[nodiscard]] bool has_ended() const { return ended_; }
    int exit_status() { return process_->wait_exit(k_patience).value_or(-1); }

private:
    std::string who_;
    std::unique_ptr<child_process> process_;
    int unanswered_ = 0;
    int end_signal_ = 0; // none: its input ends, and it knows what that means
    bool ended_ = false;
};

/// SIGINT and SIGTERM, which are waited for instead of ending the program.
class end_signals {
public:
    end_signals() {
        (void)sigemptyset(&set_);
        (void)sigaddset(&set_, SIGINT);
        (void)sigaddset(&set_, SIGTERM);
        if (sigprocmask(SIG_BLOCK, &set_, nullptr) != 0) {
            throw std::system_error(errno, std::generic_category(), "sigprocmask");
        }
    }

    /// True when one comes within the time.
    [[nodiscard]] bool come_within(std::chrono::nanoseconds patience) const {
        const timespec time{static_cast<time_t>(patience.count() / 1'000'000'000),
                            static_cast<long>(patience.count() % 1'000'000'000)};
        return sigtimedwait(&set_, nullptr, &time) > 0;
    }

private:
    sigset_t set_{};
};

class kept_bench {
public:
    kept_bench(const kept_bench_settings &how, const transcript &out) : how_(how), out_(out) {}

    void start() {
        start_vexa("manager", {"manager", "--json"}).await("{");
        for (const char *end : {"flight", "camera"}) {
            start_vexa(end, {end, "--json"}).await("{");
        }
        for (const cast_member &each : k_cast) {
            start_node(each);
            out_.event(node_name(each.id), fmt::format("({}) registered", each.name));
        }
    }

    /// Tells what runs and how to get at it.
    void introduce() const {
        out_.line("");
        for (const habit &each : habits()) {
            out_.line(fmt::format("  {:<9} {:>4.1f} Hz  {}", node_name(each.node),
                                  1.0 / (std::chrono::duration<double>(k_tick).count() * each.every),
                                  each.what),
                      tone::faint);
        }
        out_.line(fmt::format("\nThe bench runs in the network of process {}. In another terminal:\n"
                              "  scripts/demo --enter vexa top         runs a command in it\n"
                              "  scripts/demo --enter                  a shell in it\n"
                              "  nsenter --target {} --user --net --preserve-credentials\n"
                              "Ctrl-C ends it.",
                              getpid(), getpid()));
    }

    void run(const end_signals &signals) {
        auto due = std::chrono::steady_clock::now();
        for (unsigned tick = 1;; ++tick) {
            due += k_tick;
            const auto left = std::max(due - std::chrono::steady_clock::now(), 0ns);
            if (signals.come_within(left)) {
                return;
            }
            listen();
            for (const habit &each : habits()) {
                if (tick % each.every == 0) {
                    (void)nodes_[index_of(each.node)]->tell(each.command(tick));
                }
            }
        }
    }

    /// Nodes first, so that the manager hears them leave. Whether all that still ran has ended well.
    bool end() {
        bool well = true;
        for (auto *group : {&nodes_, &others_}) {
            while (!group->empty()) {
                member &last = *group->back();
                if (!last.has_ended()) { // or it has been said already
                    const int status = last.end();
                    well = well && status == 0;
                    out_.event(last.who(), fmt::format("ended, status {}", status));
                }
                group->pop_back();
            }
        }
        return well;
    }

private:
    static size_t index_of(int id) {
        return static_cast<size_t>(std::find_if(k_cast.begin(), k_cast.end(),
                                                [id](const cast_member &each) { return each.id == id; }) -
                                   k_cast.begin());
    }

    member &start_vexa(const std::string &who, std::vector<std::string> command) {
        command.insert(command.begin(), how_.programs + "/vexa");
        others_.push_back(std::make_unique<member>(who, command, ""));
        others_.back()->ends_on(SIGTERM);
        return *others_.back();
    }

    void start_node(const cast_member &what) {
        nodes_.push_back(
            std::make_unique<member>(node_name(what.id),
                                     std::vector<std::string>{how_.programs + "/vexa_demo_node", "--id",
                                                              std::to_string(what.id), "--name", what.name},
                                     how_.log_file));
        (void)nodes_.back()->tell("start");
        nodes_.back()->await("table node=0 active=1"); // which is how a node sees that it is accepted
    }

    void listen() {
        for (auto *group : {&others_, &nodes_}) {
            for (const std::unique_ptr<member> &each : *group) {
                if (!each->listen()) {
                    out_.event(each->who(), fmt::format("has ended, status {}", each->exit_status()),
                               tone::bad);
                }
            }
        }
    }

    kept_bench_settings how_;
    const transcript &out_;
    std::vector<std::unique_ptr<member>> others_; // manager, flight side, camera
    std::vector<std::unique_ptr<member>> nodes_;  // as in k_cast
};

} // namespace

bool keep_bench(const kept_bench_settings &how, const transcript &out) {
    const end_signals signals; // before the first process, so that none comes too early
    kept_bench bench{how, out};
    try {
        bench.start();
        bench.introduce();
        bench.run(signals);
    } catch (const failure &what) {
        out.event("demo", what.what(), tone::bad);
        (void)bench.end();
        return false;
    }
    out.line("");
    return bench.end();
}

} // namespace demo
