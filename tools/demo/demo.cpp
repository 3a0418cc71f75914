// The demo: plays its scenes on a bus of real processes, then says what was sent and what arrived.
#include "bus.h"
#include "demo_payload.h"
#include "kept_bench.h"
#include "path_report.h"
#include "scene.h"
#include "transcript.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fmt/core.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;

constexpr auto k_pause = 400ms;       // before a scene, for somebody who watches
constexpr auto k_time_limit = 13s;    // for the scenes; what waits then gives up and is named
constexpr unsigned k_watchdog_s = 15; // for the program: the kernel ends it, and its children with it
constexpr int k_incomplete = 1;

const std::vector<demo::scene> &scenes() {
    static const std::vector<demo::scene> all = {
        {"Five nodes register with the node manager", demo::play_registration},
        {"Every node learns where the others are", demo::play_node_table},
        {"Direct messages to a callback (vision_send_msg)", demo::play_direct},
        {"Queued messages to a callback (vxmsg_send_general)", demo::play_queued},
        {"Destinations above 126 go by the proxy", demo::play_proxy},
        {"Statuses, polled: the newest of each type (vision_send_status, vision_recv_status)",
         demo::play_statuses},
        {"Broadcasts reach the active nodes below the sender (vision_brocast_msg)", demo::play_broadcast},
        {"A heartbeat change travels by the proxy to every node (vision_set_hearbeat)", demo::play_heartbeat},
        {"Node 9 reports to the flight side and commands the camera (send_message_..., "
         "send_ifly_command_...)",
         demo::play_link},
        {"Node 3 leaves (vision_msg_component_deinit)", demo::play_leaving},
        {"Everybody leaves", demo::play_end},
    };
    return all;
}

extern "C" void on_watchdog(int /*signal*/) {
    constexpr char last_words[] = "\ndemo: took too long and is ended\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, last_words, sizeof last_words - 1);
    _exit(k_incomplete); // the children go with it: that is how they were started
}

/// Where this program and its companions lie.
std::string own_directory() {
    char self[4096] = {};
    const ssize_t size = readlink("/proc/self/exe", self, sizeof self - 1);
    const std::string path{self, size > 0 ? static_cast<size_t>(size) : 0};
    return path.substr(0, path.rfind('/'));
}

/// Plays everything. False when a scene could not go on.
bool play(const demo::bus::settings &how, demo::transcript &out, demo::path_report &paths) {
    try {
        demo::bus nodes{how, out};
        demo::stage on{nodes, out, paths};
        for (const demo::scene &each : scenes()) {
            (void)nodes.wait([&out] { return !out.on_terminal(); }, k_pause);
            out.scene(each.title);
            each.play(on);
        }
        return true;
    } catch (const demo::failure &what) {
        out.event("demo", what.what(), demo::tone::bad);
        return false;
    }
}

int run(int argc, char **argv) {
    demo::bus::settings how{own_directory(), "/dev/null", k_time_limit};
    bool verbose = false;
    bool keep = false;
    CLI::App app{"Plays a whole bus on this machine, which needs 192.168.1.1/24; scripts/demo provides it."};
    app.add_option("--log", how.log_file, "file for the log lines of the nodes")->capture_default_str();
    app.add_option("--programs", how.programs, "directory with the programs of the demo")
        ->capture_default_str()
        ->take_last();
    app.add_flag("--verbose", verbose, "the nodes' log lines go to standard error");
    app.add_flag("--keep", keep, "plays nothing; leaves the bus running, with traffic on it, until Ctrl-C");
    CLI11_PARSE(app, argc, argv);
    if (verbose) {
        how.log_file.clear();
    }
    demo::transcript out{demo::now_ns()};
    if (keep) {
        return demo::keep_bench({how.programs, how.log_file}, out) ? 0 : k_incomplete;
    }
    (void)std::signal(SIGALRM, on_watchdog);
    (void)alarm(k_watchdog_s);

    demo::path_report paths;
    const bool played = play(how, out, paths);
    paths.print(out);
    if (played && paths.complete()) {
        out.line("\nEverything arrived.", demo::tone::good);
        return 0;
    }
    out.line("\nNot everything arrived; what did not is named above.", demo::tone::bad);
    return k_incomplete;
}

} // namespace

int main(int argc, char **argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception &what) {
        fmt::print(stderr, "demo: {}\n", what.what());
        return k_incomplete;
    }
}
