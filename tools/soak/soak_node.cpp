// One node of the soak: an application on the real library that keeps books about everything. Takes one
// command a line on standard input and answers each with a line:
//
//     start                init                                   started RESULT
//     traffic on|off       the paced traffic                      traffic
//     baseline             memory is compared with now            baseline
//     round                one message on every way               round
//     report               everything it knows                    a JSON object
//     stop                 leaves the bus                         stopped
//
// End of input ends the program.
#include "generator.h"
#include "heap_watch.h"
#include "log_watch.h"
#include "node_mapping.h"
#include "node_record.h"

#include <CLI/CLI.hpp>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

using clock_type = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr int k_tick_ms = 10;
constexpr auto k_poll_every = 50ms;
constexpr int64_t k_list_node_bytes = 24; // what a queue adds to each message

struct options {
    uint16_t id = 0;
    std::vector<uint16_t> ids;
    uint64_t seed = 1;
    bool given_back = false; // what is expected of the queue's copies
    std::string sabotage;
    bool log = false;
};

void say(const std::string &line) {
    const std::string text = line + '\n';
    size_t written = 0;
    while (written < text.size()) {
        const ssize_t size = write(STDOUT_FILENO, text.data() + written, text.size() - written);
        if (size < 0 && errno != EINTR) {
            return; // nobody reads any more: the end of the input is near
        }
        written += size > 0 ? static_cast<size_t>(size) : 0;
    }
}

int64_t entries_of(const char *directory) {
    return std::distance(std::filesystem::directory_iterator(directory), {});
}

int64_t resident_bytes() {
    std::ifstream statm{"/proc/self/statm"};
    int64_t size = 0;
    int64_t resident = 0;
    statm >> size >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

/// What the library holds beyond what its queues must.
struct library_use {
    int64_t blocks;
    int64_t bytes;
};

class soak_node {
public:
    explicit soak_node(const options &how) : how_(how), generator_(how.seed, how.id, how.ids) {}

    void obey(const std::string &line) {
        static const std::map<std::string, void (soak_node::*)()> commands = {
            {"start", &soak_node::start},
            {"traffic on", &soak_node::traffic_on},
            {"traffic off", &soak_node::traffic_off},
            {"baseline", &soak_node::baseline},
            {"round", &soak_node::round},
            {"report", &soak_node::report},
            {"stop", &soak_node::stop}};
        const auto command = commands.find(line);
        if (command == commands.end()) {
            say("unknown command: " + line);
        } else {
            (this->*command->second)();
        }
    }

    void tick() {
        const auto now = clock_type::now();
        if (traffic_) {
            generator_.tick(now);
        }
        if (running_ && now >= poll_due_) {
            soak::record_poll();
            poll_due_ = now + k_poll_every;
        }
    }

    void leave() {
        if (running_) {
            running_ = false;
            vision_msg_component_deinit();
        }
    }

private:
    void start() {
        soak::record_start(how_.id, how_.ids);
        const std::string name = fmt::format("soak{}", how_.id);
        const int result = vision_msg_component_init(static_cast<NodeID>(how_.id), name.c_str(),
                                                     soak::k_relay_ip, soak::on_message);
        running_ = result == 0;
        const vexa_node_t witness = soak::witness_entry();
        (void)nmapping_set(soak::k_witness, &witness);
        say(fmt::format("started {}", result));
    }

    void traffic_on() {
        traffic_ = true;
        generator_.resume(clock_type::now());
        sabotage();
        say("traffic");
    }

    void traffic_off() {
        traffic_ = false;
        say("traffic");
    }

    void baseline() {
        base_ = unexpected_use();
        say("baseline");
    }

    void round() {
        generator_.send_round();
        say("round");
    }

    void stop() {
        leave();
        say("stopped");
    }

    /// Takes something and keeps it, so that the soak can be seen to notice.
    void sabotage() {
        if (how_.sabotage == "heap") {
            kept_.emplace_back(100'000, 'x');
        } else if (how_.sabotage == "descriptor") {
            (void)open("/dev/null", O_RDONLY | O_CLOEXEC);
        } else if (how_.sabotage == "thread") {
            std::thread([] { std::this_thread::sleep_for(24h); }).detach();
        }
    }

    /// Copies that are kept lie in pieces, which are compared apart.
    [[nodiscard]] library_use unexpected_use() const {
        const soak::heap_use heap = soak::heap_now();
        const soak::copies held = soak::record_queues().held;
        const soak::copies stay = how_.given_back ? held : soak::copies{};
        const auto list_nodes = static_cast<int64_t>(held.blocks);
        return {heap.library_blocks - static_cast<int64_t>(stay.blocks) - list_nodes,
                heap.library_bytes - static_cast<int64_t>(stay.bytes) - list_nodes * k_list_node_bytes};
    }

    void report() {
        // Memory first: the report takes some.
        const soak::heap_use heap = soak::heap_now();
        const library_use use = unexpected_use();
        const soak::queue_use queues = soak::record_queues();
        nlohmann::json all = {{"wrong", running_ ? soak::record_check_state() : ""},
                              {"unexpected_line", soak::first_unexpected_line()},
                              {"table_whole", running_ && soak::record_table_whole()},
                              {"heap_watched", soak::heap_is_watched()},
                              {"blocks_beyond", use.blocks - base_.blocks},
                              {"bytes_beyond", use.bytes - base_.bytes},
                              {"library_bytes", heap.library_bytes},
                              {"pieces", heap.pieces},
                              {"pieces_due", how_.given_back ? 0 : queues.pieces},
                              {"copied_bytes", queues.made.bytes},
                              {"copied_blocks", queues.made.blocks},
                              {"kept_blocks", queues.held.blocks},
                              {"kept_bytes", queues.held.bytes},
                              {"other_bytes", heap.other_bytes},
                              {"resident", resident_bytes()},
                              {"threads", entries_of("/proc/self/task")},
                              {"descriptors", entries_of("/proc/self/fd")},
                              {"frame", frame()}};
        nlohmann::json counts = nlohmann::json::array();
        soak::record_counts().each([&counts](const soak::tally_key &key, uint64_t count) {
            counts.push_back({std::bit_cast<uint64_t>(key), count});
        });
        all["counts"] = std::move(counts);
        say(all.dump());
    }

    static std::string frame() {
        VPHeartbeatFrame frame{};
        (void)vision_get_hearbeat(&frame);
        std::array<uint8_t, sizeof frame> bytes{};
        memcpy(bytes.data(), &frame, sizeof frame);
        return fmt::format("{:02x}", fmt::join(bytes, ""));
    }

    options how_;
    soak::generator generator_;
    bool running_ = false;
    bool traffic_ = false;
    library_use base_{};
    clock_type::time_point poll_due_{};
    std::vector<std::string> kept_;
};

/// Runs until the input ends.
void run(soak_node &node) {
    std::string input;
    std::array<char, 256> part{};
    for (;;) {
        pollfd commands{STDIN_FILENO, POLLIN, 0};
        if (poll(&commands, 1, k_tick_ms) > 0) {
            const ssize_t size = read(STDIN_FILENO, part.data(), part.size());
            if (size == 0 || (size < 0 && errno != EINTR)) {
                return;
            }
            input.append(part.data(), size > 0 ? static_cast<size_t>(size) : 0);
        }
        for (size_t end = input.find('\n'); end != std::string::npos; end = input.find('\n')) {
            node.obey(input.substr(0, end));
            input.erase(0, end + 1);
        }
        node.tick();
    }
}

} // namespace

int main(int argc, char **argv) {
    try {
        options how;
        CLI::App app{"One node of the soak; takes commands on standard input, see its source."};
        app.add_option("--id", how.id, "node id")->required()->check(CLI::Range(1, 127));
        app.add_option("--bus", how.ids, "the ids of all nodes of the bus")->required()->delimiter(',');
        app.add_option("--seed", how.seed, "seed of what is left to chance");
        app.add_flag("--given-back", how.given_back,
                     "copies of queued messages are expected to be given back");
        app.add_option("--sabotage", how.sabotage, "what to do wrong, for the soak to find");
        app.add_flag("--log", how.log, "the library's log lines go to standard error");
        CLI11_PARSE(app, argc, argv);
        soak::log_watch_write(how.log);
        soak::heap_watch_start();
        soak_node node{how};
        run(node);
        node.leave();
        return 0;
    } catch (const std::exception &what) {
        fmt::print(stderr, "soak node: {}\n", what.what());
        return 1;
    }
}
