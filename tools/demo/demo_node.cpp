// One node of the demo: an application linked to the library that does what the lines on its standard input
// say and writes down what it sees, a line each, "word name=value name=value".
//
//     start                          joins the bus                        started result at
//     send TAG DST COUNT SIZE        vision_send_msg                      sent tag accepted refused
//     queue TAG DST COUNT SIZE       vxmsg_send_general, for a callback   sent ...
//     broadcast TAG COUNT SIZE       vision_brocast_msg                   sent ...
//     status TAG DST KEY NUMBER      vision_send_status                   sent ...
//     poll KEY                       vision_recv_status                   polled key number sent src | polled
//     key watch KEY                      reports each newer status of a key   status key number sent at src
//     heartbeat FIELD=VALUE...       vision_set_hearbeat                  set at result
//     link KIND NUMBER               a datagram of the vision link        linked sent at
//     stop                           leaves the bus                       stopping at, stopped
//
// Unasked: "got" for each message to the callback, "table" and "frame" when the node table or the heartbeat
// frame have changed; both are looked at every millisecond. End of input ends the program.
#include "demo_payload.h"
#include "link_sender.h"
#include "node_mapping.h"
#include "vision_service_route_funcs.h"

#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fmt/format.h>
#include <functional>
#include <istream>
#include <map>
#include <poll.h>
#include <span>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

constexpr int k_look_around_ms = 1;
constexpr auto k_between_messages = 1ms; // so that delivery times are not those of a queue
constexpr size_t k_largest_payload = VX_MSG_MAX_PAYLOAD;

/// One write per line: the callback's thread and the main thread both report.
template <class... Args>
void report(fmt::format_string<Args...> format, Args &&...args) {
    const std::string line = fmt::format(format, std::forward<Args>(args)...) + '\n';
    // If nobody reads any more, the end of the input is near.
    [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, line.data(), line.size());
}

void on_message(void *payload, MsgExtra *extra) {
    const uint64_t at = demo::now_ns();
    const size_t size = static_cast<size_t>(extra->len) - VX_MSG_HEAD_SIZE;
    const auto stamp = demo::read_payload({static_cast<const uint8_t *>(payload), size});
    if (stamp) {
        report("got tag={} src={} dst={} number={} sent={} at={} size={}", stamp->tag,
               static_cast<uint32_t>(extra->src), static_cast<uint32_t>(extra->dst), stamp->number,
               stamp->sent_ns, at, size);
    } else {
        report("damaged src={} size={}", static_cast<uint32_t>(extra->src), size);
    }
}

/// The newest status of a key.
struct polled_status {
    demo::stamp stamp;
    uint32_t src;
};

std::optional<polled_status> poll_status(uint16_t key) {
    static std::array<uint8_t, k_largest_payload> payload;
    MsgExtra extra{};
    const int size = vision_recv_status(static_cast<MsgType>(key), payload.data(),
                                        static_cast<int>(payload.size()), &extra);
    if (size <= 0) {
        return std::nullopt;
    }
    const auto stamp = demo::read_payload(std::span{payload}.first(static_cast<size_t>(size)));
    return stamp ? std::optional{polled_status{*stamp, static_cast<uint32_t>(extra.src)}} : std::nullopt;
}

using sender = std::function<int(const std::vector<uint8_t> &payload)>;

/// Sends `count` messages, paced.
void transfer(uint16_t tag, uint32_t count, size_t size, const sender &send_one) {
    uint32_t accepted = 0;
    for (uint32_t number = 1; number <= count; ++number) {
        if (send_one(demo::make_payload({0, tag, number, demo::now_ns()}, size)) == 0) {
            ++accepted;
        }
        std::this_thread::sleep_for(k_between_messages);
    }
    report("sent tag={} accepted={} refused={}", tag, accepted, count - accepted);
}

void send(std::istream &words) {
    uint16_t tag = 0;
    uint32_t dst = 0;
    uint32_t count = 0;
    size_t size = 0;
    words >> tag >> dst >> count >> size;
    transfer(tag, count, size, [dst](const std::vector<uint8_t> &payload) {
        return vision_send_msg(static_cast<NodeID>(dst), payload.data(), static_cast<int>(payload.size()));
    });
}

void queue(std::istream &words) {
    uint16_t tag = 0;
    uint16_t dst = 0;
    uint32_t count = 0;
    size_t size = 0;
    words >> tag >> dst >> count >> size;
    transfer(tag, count, size, [dst](const std::vector<uint8_t> &payload) {
        return vxmsg_send_general(dst, MSTP_USER_DATA_PROC_BY_CALLBACK, payload.data(),
                                  static_cast<int>(payload.size()));
    });
}

void broadcast(std::istream &words) {
    uint16_t tag = 0;
    uint32_t count = 0;
    size_t size = 0;
    words >> tag >> count >> size;
    transfer(tag, count, size, [](const std::vector<uint8_t> &payload) {
        return vision_brocast_msg(payload.data(), static_cast<int>(payload.size()));
    });
}

void status(std::istream &words) {
    demo::stamp stamp;
    uint32_t dst = 0;
    words >> stamp.tag >> dst >> stamp.key >> stamp.number;
    stamp.sent_ns = demo::now_ns();
    const auto payload = demo::make_payload(stamp, 64);
    const int result =
        vision_send_status(static_cast<NodeID>(dst), payload.data(), static_cast<int>(payload.size()));
    report("sent tag={} accepted={} refused={}", stamp.tag, result == 0 ? 1 : 0, result == 0 ? 0 : 1);
}

void poll_key(std::istream &words) {
    uint16_t key = 0;
    words >> key;
    if (const auto newest = poll_status(key)) {
        report("polled key={} number={} src={}", key, newest->stamp.number, newest->src);
    } else {
        report("polled key={}", key);
    }
}

void heartbeat(std::istream &words) {
    std::vector<HeartBeatPair> pairs;
    int field = 0;
    int value = 0;
    char equals = 0;
    while (words >> field >> equals >> value) {
        pairs.push_back({static_cast<HeartBeatField>(field), value});
    }
    const uint64_t at = demo::now_ns();
    const int result = vision_set_hearbeat(pairs.data(), static_cast<int>(pairs.size()));
    report("set at={} result={}", at, result);
}

void link_one(std::istream &words) {
    std::string kind;
    unsigned number = 0;
    words >> kind >> number;
    const uint64_t at = demo::now_ns();
    const int result = demo::send_link(kind, static_cast<uint8_t>(number));
    report("linked sent={} at={}", result < 0 ? 0 : 1, at);
}

/// The commands that need nothing but the library.
const std::map<std::string, void (*)(std::istream &)> &bus_commands() {
    static const std::map<std::string, void (*)(std::istream &)> all = {
        {"send", send},     {"queue", queue},         {"broadcast", broadcast}, {"status", status},
        {"poll", poll_key}, {"heartbeat", heartbeat}, {"link", link_one}};
    return all;
}

class demo_node {
public:
    demo_node(int id, std::string name, std::string ip)
        : id_(id), name_(std::move(name)), ip_(std::move(ip)) {
        known_.fill(NODE_STAT_INACTIVED);
    }

    void obey(const std::string &line) {
        static const std::map<std::string, void (demo_node::*)(std::istream &)> own_commands = {
            {"start", &demo_node::start}, {"stop", &demo_node::stop}, {"watch", &demo_node::watch}};
        std::istringstream words{line};
        std::string name;
        words >> name;
        if (const auto own = own_commands.find(name); own != own_commands.end()) {
            (this->*own->second)(words);
        } else if (const auto other = bus_commands().find(name); other != bus_commands().end()) {
            other->second(words);
        } else {
            report("unknown command={}", name);
        }
    }

    /// Reports what has changed since the last look.
    void look_around() {
        if (!running_) {
            return;
        }
        look_at_table();
        look_at_frame();
        look_at_statuses();
    }

    void leave() {
        if (running_) {
            running_ = false;
            vision_msg_component_deinit();
        }
    }

private:
    void start(std::istream & /*words*/) {
        const uint64_t at = demo::now_ns();
        const int result =
            vision_msg_component_init(static_cast<NodeID>(id_), name_.c_str(), ip_.c_str(), on_message);
        running_ = result == 0;
        report("started result={} at={}", result, at);
    }

    void stop(std::istream & /*words*/) {
        report("stopping at={}", demo::now_ns());
        leave();
        report("stopped at={}", demo::now_ns());
    }

    void watch(std::istream &words) {
        uint16_t key = 0;
        words >> key;
        watched_[key] = 0;
        report("watching key={}", key);
    }

    void look_at_table() {
        vexa_node_t node{};
        for (uint16_t id = 0; id < VX_NODE_COUNT; ++id) {
            if (nmapping_get(id, &node) != 0 || node.stat == known_[id]) {
                continue;
            }
            known_[id] = node.stat;
            vexa_node_end_texts(&node);
            report("table node={} active={} name={} ip={} port={} at={}", id, node.stat, node.name, node.ip,
                   node.port, demo::now_ns());
        }
    }

    void look_at_frame() {
        VPHeartbeatFrame frame{};
        (void)vision_get_hearbeat(&frame);
        std::array<uint8_t, sizeof frame> bytes{};
        memcpy(bytes.data(), &frame, sizeof frame);
        if (bytes != frame_) {
            frame_ = bytes;
            report("frame hex={:02x} at={}", fmt::join(bytes, ""), demo::now_ns());
        }
    }

    void look_at_statuses() {
        for (auto &[key, last] : watched_) {
            const auto newest = poll_status(key);
            if (newest && newest->stamp.number != last) {
                last = newest->stamp.number;
                report("status key={} number={} sent={} at={} src={}", key, newest->stamp.number,
                       newest->stamp.sent_ns, demo::now_ns(), newest->src);
            }
        }
    }

    int id_;
    std::string name_;
    std::string ip_;
    bool running_ = false;
    std::array<uint8_t, VX_NODE_COUNT> known_{};            // the states last reported
    std::array<uint8_t, sizeof(VPHeartbeatFrame)> frame_{}; // the frame last reported
    std::map<uint16_t, uint32_t> watched_;                  // key, number last reported
};

/// Runs until the input ends.
void run(demo_node &node) {
    std::string input;
    std::array<char, 1024> part{};
    for (;;) {
        pollfd commands{STDIN_FILENO, POLLIN, 0};
        if (::poll(&commands, 1, k_look_around_ms) > 0) {
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
        node.look_around();
    }
}

} // namespace

int main(int argc, char **argv) {
    try {
        int id = 0;
        std::string name = "demo";
        std::string ip = "192.168.1.2";
        CLI::App app{"One node of the demo; takes commands on standard input, see its source."};
        app.add_option("--id", id, "node id")->required()->check(CLI::Range(1, 127));
        app.add_option("--name", name, "node name");
        app.add_option("--ip", ip, "address at which the others reach it");
        CLI11_PARSE(app, argc, argv);
        demo_node node{id, name, ip};
        run(node);
        node.leave();
        return 0;
    } catch (const std::exception &what) {
        fmt::print(stderr, "demo node: {}\n", what.what());
        return 1;
    }
}
