// The demo's processes and what they say.
#include "bus.h"

#include "demo_payload.h"

#include <algorithm>
#include <csignal>
#include <fmt/core.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sstream>

namespace demo {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr auto k_ends_within = 2s;

node_line parse(const std::string &line) {
    node_line said;
    std::istringstream words{line};
    words >> said.word;
    for (std::string word; words >> word;) {
        const size_t equals = word.find('=');
        if (equals != std::string::npos) {
            said.values[word.substr(0, equals)] = word.substr(equals + 1);
        }
    }
    return said;
}

/// Who the node manager says has come or gone, and who hears of it.
std::string what_changed(const nlohmann::json &said) {
    const int who = said["change"]["node_id"];
    std::vector<int> told;
    for (const nlohmann::json &node : said["nodes"]) {
        if (node["active"] && node["node_id"] != who) {
            told.push_back(node["node_id"]);
        }
    }
    return fmt::format("node {} {}; tells {}", who, said["change"]["what"].get<std::string>(),
                       told.empty() ? "nobody, there is no other"
                                    : fmt::format("node{} {}", told.size() == 1 ? "" : "s", listed(told)));
}

} // namespace

std::string node_name(int id) {
    return fmt::format("node {}", id);
}

std::string listed(const std::vector<int> &ids) {
    std::string text;
    for (size_t i = 0; i < ids.size(); ++i) {
        text += i == 0 ? "" : i + 1 == ids.size() ? " and " : ", ";
        text += std::to_string(ids[i]);
    }
    return text;
}

const std::string &node_line::text(const std::string &name) const {
    const auto found = values.find(name);
    if (found == values.end()) {
        throw failure(fmt::format("a node said '{}' without {}", word, name));
    }
    return found->second;
}

uint64_t node_line::number(const std::string &name) const {
    return std::stoull(text(name));
}

bool node_state::knows(int other) const {
    const auto found = table.find(other);
    return found != table.end() && found->second.active;
}

int node_state::frame_byte(size_t index) const {
    return frame.size() < 2 * index + 2 ? -1 : std::stoi(frame.substr(2 * index, 2), nullptr, 16);
}

bus::bus(settings how, const transcript &out)
    : how_(std::move(how)), out_(out), end_(steady_clock::now() + how_.time_limit) {
}

void bus::start_manager() {
    manager_ = std::make_unique<child_process>(
        std::vector<std::string>{how_.programs + "/vexa", "manager", "--json"});
    if (!wait([this] { return manager_listens_; })) {
        throw failure("the node manager does not say that it listens");
    }
}

void bus::start_node(int id, const std::string &name) {
    member fresh;
    fresh.state.id = id;
    fresh.state.name = name;
    fresh.process =
        std::make_unique<child_process>(std::vector<std::string>{how_.programs + "/vexa_demo_node", "--id",
                                                                 std::to_string(id), "--name", name},
                                        child_process::settings{how_.log_file, false});
    members_.emplace(id, std::move(fresh));
}

int bus::stop_manager() {
    manager_->signal(SIGTERM);
    const int status = manager_->wait_exit(k_ends_within).value_or(-1);
    (void)hear_manager(); // its last words
    manager_.reset();
    return status;
}

int bus::end_node(int id) {
    member &leaving = find(id);
    leaving.process->end_input();
    const int status = leaving.process->wait_exit(k_ends_within).value_or(-1);
    members_.erase(id);
    return status;
}

const node_state &bus::node(int id) const {
    return members_.at(id).state;
}

std::vector<int> bus::ids() const {
    std::vector<int> all;
    for (const auto &[id, each] : members_) {
        all.push_back(id);
    }
    return all;
}

bus::member &bus::find(int id) {
    return members_.at(id);
}

bool bus::wait(const std::function<bool()> &condition, milliseconds patience) {
    const auto end = std::min(steady_clock::now() + patience, end_);
    while (!condition()) {
        const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
        hear(left);
    }
    return true;
}

node_line bus::ask(int id, const std::string &command, const std::string &answer) {
    member &asked = find(id);
    asked.answer.reset();
    asked.awaited = answer;
    if (!asked.process->send_line(command)) {
        throw failure(fmt::format("node {} takes no commands any more", id));
    }
    if (!wait([&asked] { return asked.answer.has_value(); }, 5s)) {
        throw failure(fmt::format("node {} does not answer '{}'", id, command));
    }
    asked.awaited.clear();
    return *asked.answer;
}

void bus::hear(milliseconds patience) {
    std::vector<pollfd> mouths;
    mouths.push_back({manager_ ? manager_->output_fd() : -1, POLLIN, 0});
    for (const auto &[id, each] : members_) {
        mouths.push_back({each.process->output_fd(), POLLIN, 0});
    }
    if (poll(mouths.data(), mouths.size(), static_cast<int>(patience.count())) <= 0) {
        return;
    }
    if (manager_ && !hear_manager()) {
        const int status = manager_->wait_exit(k_ends_within).value_or(-1);
        throw failure(fmt::format("the node manager has ended, with status {}", status));
    }
    for (auto &[id, each] : members_) {
        hear_node(each);
    }
}

bool bus::hear_manager() {
    const bool goes_on = manager_->receive();
    while (const auto line = manager_->take_line()) {
        show_manager_event(*line);
    }
    return goes_on;
}

void bus::hear_node(member &speaker) {
    const bool goes_on = speaker.process->receive();
    while (const auto line = speaker.process->take_line()) {
        const node_line said = parse(*line);
        if (said.word == speaker.awaited) {
            speaker.answer = said;
        }
        note(speaker, said);
    }
    if (!goes_on) {
        const int status = speaker.process->wait_exit(k_ends_within).value_or(-1);
        throw failure(fmt::format("node {} has ended, with status {}", speaker.state.id, status));
    }
}

/// Remembers what a node says unasked.
void bus::note(member &speaker, const node_line &said) {
    node_state &node = speaker.state;
    if (said.word == "got") {
        node.arrivals[static_cast<int>(said.number("tag"))].push_back(
            {static_cast<int>(said.number("src")), static_cast<int>(said.number("dst")),
             static_cast<uint32_t>(said.number("number")), said.number("at") - said.number("sent"),
             said.number("size")});
    } else if (said.word == "table") {
        node.table[static_cast<int>(said.number("node"))] = {said.number("active") == 1, said.text("name"),
                                                             said.text("ip") + ':' + said.text("port"),
                                                             said.number("at")};
    } else if (said.word == "frame") {
        node.frame = said.text("hex");
        node.frame_ns = said.number("at");
    } else if (said.word == "status") {
        node.statuses[static_cast<int>(said.number("key"))] = {static_cast<uint32_t>(said.number("number")),
                                                               said.number("at") - said.number("sent")};
    } else if (said.word == "damaged" || said.word == "unknown") {
        throw failure(fmt::format("node {} says '{}'", node.id, said.word));
    }
}

void bus::show_manager_event(const std::string &line) {
    const nlohmann::json said = nlohmann::json::parse(line);
    const std::string event = said["event"];
    if (event == "listening") {
        manager_listens_ = true;
        out_.event("manager", "listens at " + said["address"].get<std::string>());
    } else if (event == "table") {
        manager_knows_.clear();
        for (const nlohmann::json &node : said["nodes"]) {
            if (node["active"]) {
                manager_knows_.insert(node["node_id"].get<int>());
            }
        }
        out_.event("manager", what_changed(said));
    } else if (event == "refused") {
        out_.event("manager", "refused a datagram: " + said["reason"].get<std::string>(), tone::bad);
    } else if (event == "summary") {
        out_.event("manager", fmt::format("ends: {} registrations answered, {} times told of a change",
                                          said["answered"].get<int>(), said["notified"].get<int>()));
    }
}

} // namespace demo
