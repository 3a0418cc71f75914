// The soak's processes. See bench.h.
#include "bench.h"

#include "receiver.h"

#include <algorithm>
#include <bit>
#include <csignal>
#include <cstdlib>
#include <fmt/format.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sstream>

namespace soak {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using std::chrono::milliseconds;

constexpr auto k_answers_within = 30s; // of the slowest build on a busy machine
constexpr auto k_ends_within = 10s;
constexpr auto k_quiet = 150ms; // without a datagram: then nothing is on its way
constexpr auto k_turn = 20ms;   // a wait that nothing interrupts

tally counts_of(const json &said) {
    tally counts{4096};
    for (const json &one : said["counts"]) {
        counts.add(std::bit_cast<tally_key>(one[0].get<uint64_t>()), one[1].get<uint64_t>());
    }
    return counts;
}

memory_report memory_of(const json &said) {
    return {.heap_watched = said["heap_watched"],
            .blocks_beyond = said["blocks_beyond"],
            .bytes_beyond = said["bytes_beyond"],
            .library_bytes = said["library_bytes"],
            .pieces = said["pieces"],
            .pieces_due = said["pieces_due"],
            .copied_blocks = said["copied_blocks"],
            .copied_bytes = said["copied_bytes"],
            .kept_blocks = said["kept_blocks"],
            .kept_bytes = said["kept_bytes"],
            .other_bytes = said["other_bytes"],
            .resident = said["resident"],
            .threads = said["threads"],
            .descriptors = said["descriptors"]};
}

/// Datagrams that the system has dropped for want of room, by the port of the socket.
std::map<uint16_t, uint64_t> socket_drops() {
    std::map<uint16_t, uint64_t> drops;
    std::ifstream sockets{"/proc/net/udp"};
    std::string line;
    (void)std::getline(sockets, line); // names of the columns
    while (std::getline(sockets, line)) {
        std::istringstream words{line};
        std::string number;
        std::string address;
        std::string word;
        words >> number >> address;
        while (words >> word) {
        }
        const auto port = std::stoul(address.substr(address.find(':') + 1), nullptr, 16);
        drops[static_cast<uint16_t>(port)] += std::stoull(word); // the last column
    }
    return drops;
}

uint64_t sum_of(const json &refused) {
    uint64_t sum = 0;
    for (const auto &[reason, count] : refused.items()) {
        sum += reason == "id_taken" || reason == "not_registered" ? 0 : count.get<uint64_t>();
    }
    return sum;
}

} // namespace

bench::bench(settings how) : how_(std::move(how)), relay_({how_.seed, how_.ids, how_.steal}) {
}

void bench::start() {
    // The allocator's caches per thread would count as memory in use.
    (void)setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0", 1);
    manager_ = std::make_unique<child_process>(
        std::vector<std::string>{how_.programs + "/vexa", "manager", "--json", "--bind", k_manager_ip,
                                 "--port", std::to_string(k_manager_real_port)});
    await([this] { return manager_listens_; }, "the node manager does not say that it listens");
    for (const uint16_t id : how_.ids) {
        start_node(id);
    }
    for (const auto &[id, answer] : ask_all("start")) {
        if (answer != "started 0") {
            throw failure(fmt::format("node {} does not start: {}", id, answer));
        }
    }
}

void bench::start_node(uint16_t id) {
    std::vector<std::string> command = {
        how_.programs + "/vexa_soak_node",           "--id",   std::to_string(id),       "--bus",
        fmt::format("{}", fmt::join(how_.ids, ",")), "--seed", std::to_string(how_.seed)};
    if (how_.given_back) {
        command.emplace_back("--given-back");
    }
    if (!how_.log_file.empty()) {
        command.emplace_back("--log");
    }
    if (!how_.sabotage.empty() && id == how_.ids.front()) {
        command.insert(command.end(), {"--sabotage", how_.sabotage});
    }
    nodes_[id] = std::make_unique<child_process>(command, child_process::settings{how_.log_file, false});
}

std::map<uint16_t, std::string> bench::ask_all(const std::string &command) {
    answers_.clear();
    for (const auto &[id, node] : nodes_) {
        if (!node->send_line(command)) {
            throw failure(fmt::format("node {} takes no commands any more", id));
        }
    }
    await([this] { return answers_.size() == nodes_.size(); }, "not every node answers '" + command + "'");
    return answers_;
}

void bench::run_for(milliseconds time) {
    const auto end = relay::clock::now() + time;
    for (auto now = relay::clock::now(); now < end; now = relay::clock::now()) {
        turn(std::chrono::ceil<milliseconds>(end - now));
    }
}

void bench::quieten() {
    (void)ask_all("traffic off");
    await([this] { return relay_.waiting() == 0 && relay::clock::now() - last_traffic_ > k_quiet; },
          "datagrams do not stop coming although nobody sends");
}

/// One round of work; waits no longer than told for something to do.
void bench::turn(milliseconds patience) {
    std::vector<pollfd> sources;
    for (const int socket : relay_.sockets()) {
        sources.push_back({socket, POLLIN, 0});
    }
    sources.push_back({manager_ ? manager_->output_fd() : -1, POLLIN, 0});
    for (const auto &[id, node] : nodes_) {
        sources.push_back({node->output_fd(), POLLIN, 0});
    }
    if (const auto due = relay_.next_due()) {
        patience = std::min(patience, std::chrono::ceil<milliseconds>(*due - relay::clock::now()));
    }
    (void)poll(sources.data(), sources.size(), static_cast<int>(std::max(patience, 0ms).count()));
    if (relay_.service()) {
        last_traffic_ = relay::clock::now();
    }
    hear_manager();
    hear_nodes();
}

void bench::await(const std::function<bool()> &condition, const std::string &what) {
    const auto end = relay::clock::now() + k_answers_within;
    while (!condition()) {
        if (relay::clock::now() > end) {
            throw failure(what);
        }
        turn(k_turn);
    }
}

void bench::hear_manager() {
    const bool goes_on = !manager_ || manager_->receive();
    while (const auto line = manager_ ? manager_->take_line() : std::nullopt) {
        const json said = json::parse(*line);
        const std::string event = said["event"];
        manager_listens_ = manager_listens_ || event == "listening";
        if (event == "table") {
            ++events_[said["change"]["what"].get<std::string>()];
        } else if (event == "summary") {
            manager_said_ = {said["received"],
                             said["answered"].get<uint64_t>() + said["notified"].get<uint64_t>(),
                             sum_of(said["refused"])};
        }
    }
    if (!goes_on && !manager_said_) {
        throw failure("the node manager has ended");
    }
}

void bench::hear_nodes() {
    for (const auto &[id, node] : nodes_) {
        const bool goes_on = node->receive();
        while (auto line = node->take_line()) {
            answers_[id] = std::move(*line);
        }
        if (!goes_on) {
            throw failure(fmt::format("node {} has ended, with status {}", id,
                                      node->wait_exit(k_ends_within).value_or(-1)));
        }
    }
}

snapshot bench::look() {
    snapshot seen;
    seen.counted.ids = how_.ids;
    seen.tables_whole = true;
    for (const auto &[id, answer] : ask_all("report")) {
        const json said = json::parse(answer);
        seen.counted.nodes[id] = {counts_of(said), said["wrong"], said["unexpected_line"]};
        seen.memory[id] = memory_of(said);
        seen.frames[id] = said["frame"];
        seen.tables_whole = seen.tables_whole && said["table_whole"].get<bool>();
    }
    seen.counted.relay = relay_.counts();
    seen.counted.drops = socket_drops();
    return seen;
}

void bench::leave() {
    (void)ask_all("stop");
    quieten();
}

manager_report bench::end() {
    end_nodes();
    manager_->signal(SIGTERM);
    await([this] { return manager_said_.has_value(); }, "the node manager does not sum up");
    if (manager_->wait_exit(k_ends_within) != 0) {
        throw failure("the node manager has ended with an error");
    }
    manager_.reset();
    return *manager_said_;
}

void bench::end_nodes() {
    std::map<uint16_t, std::unique_ptr<child_process>> leaving;
    leaving.swap(nodes_);
    for (const auto &[id, node] : leaving) {
        node->end_input();
    }
    for (const auto &[id, node] : leaving) {
        if (const auto status = node->wait_exit(k_ends_within); status != 0) {
            throw failure(fmt::format("node {} has ended with status {}", id, status.value_or(-1)));
        }
    }
}

} // namespace soak
