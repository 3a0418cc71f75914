// How long a process takes to its first message.
#include "pair_process.h"
#include "pinned.h"
#include "sections.h"
#include "vx_msg_def.h"
#include "work.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <fmt/core.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ; // NOLINT(readability-redundant-declaration): some headers have it, some do not

namespace bench {
namespace {

constexpr uint32_t k_manager_ip = 0xC0A80101; // 192.168.1.1
constexpr uint16_t k_node = 5;                // that both programs are
constexpr int k_patience_ms = 2000;
constexpr int k_starts_per_round = 4;
constexpr double k_goal = 1.10;
constexpr uint16_t k_payload = 64;
constexpr size_t k_hello_bytes = VX_MSG_HEAD_SIZE + VX_MGR_HEAD_SIZE + VX_NODE_RECORD_SIZE;
constexpr size_t k_message_bytes = VX_MSG_HEAD_SIZE + k_payload;

sockaddr_in address(uint32_t ip, uint16_t port) {
    sockaddr_in made{};
    made.sin_family = AF_INET;
    made.sin_addr.s_addr = htonl(ip);
    made.sin_port = htons(port);
    return made;
}

/// The node manager's place: answers a hello by an acceptance and a message, and waits for the answer to
/// that.
class manager {
public:
    manager() : fd_(checked(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket")) {
        const sockaddr_in own = address(k_manager_ip, VX_NODE_PORT_BASE);
        (void)checked(bind(fd_, reinterpret_cast<const sockaddr *>(&own), sizeof own), "bind");
    }
    ~manager() { (void)close(fd_); }
    manager(const manager &) = delete;
    manager &operator=(const manager &) = delete;

    /// [ns] on the clock when the answer came.
    [[nodiscard]] int64_t wait_for_answer() const {
        std::array<uint8_t, k_message_bytes + 1> bytes{};
        for (;;) {
            pollfd readable{fd_, POLLIN, 0};
            if (poll(&readable, 1, k_patience_ms) < 1) {
                throw std::runtime_error("a process that was started says nothing");
            }
            const ssize_t size = recv(fd_, bytes.data(), bytes.size(), 0);
            if (size == k_message_bytes) {
                return now_ns();
            }
            if (size == k_hello_bytes) {
                send(MSTP_NODE_MGR, VX_MGR_HEAD_SIZE, k_accepted);
                send(MSTP_USER_DATA_PROC_BY_CALLBACK, k_payload, 0);
            }
        }
    }

private:
    static constexpr uint8_t k_accepted = 0x80;

    void send(uint8_t kind, uint16_t length, uint8_t flag) const {
        std::array<uint8_t, k_message_bytes> bytes{};
        const vx_msg_head_t head = vx_msg_head_make(kind, length, VX_NODE_MANAGER_ID, k_node);
        vx_msg_head_store(bytes.data(), &head);
        bytes[offsetof(vx_msg_head_t, flag)] = flag;
        const sockaddr_in to = address(k_manager_ip, VX_NODE_PORT_BASE + k_node);
        (void)sendto(fd_, bytes.data(), VX_MSG_HEAD_SIZE + static_cast<size_t>(length), 0,
                     reinterpret_cast<const sockaddr *>(&to), sizeof to);
    }

    const int fd_;
};

pid_t start(const std::string &path) {
    posix_spawn_file_actions_t quiet;
    (void)posix_spawn_file_actions_init(&quiet);
    (void)posix_spawn_file_actions_addopen(&quiet, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::string own = path;
    std::array<char *, 2> arguments{own.data(), nullptr};
    pid_t pid = -1;
    const int result = posix_spawn(&pid, path.c_str(), &quiet, nullptr, arguments.data(), environ);
    (void)posix_spawn_file_actions_destroy(&quiet);
    if (result != 0) {
        throw std::runtime_error("cannot start " + path);
    }
    return pid;
}

double time_of_one(const manager &peer, const std::string &path) {
    const int64_t begun = now_ns();
    const pid_t pid = start(path);
    const int64_t ended = peer.wait_for_answer();
    (void)kill(pid, SIGKILL);
    (void)waitpid(pid, nullptr, 0);
    return static_cast<double>(ended - begun);
}

struct starter {
    const char *program;
    const char *meaning;
};
constexpr auto k_starters = std::to_array<starter>({
    {"start_bare", "bare libev loop, linked with the same libraries"},
    {"start_node", "node, its log lines taken by nobody"},
    {"start_node_logging", "node, its log lines written to /dev/null by the stand-in log library"},
    {"start_threads",
     "bare libev loop with a node's threads, pipes and sockets, linked with the same libraries"},
    {"start_bare_cxx", "bare libev loop, C++, without the library"},
    {"start_bare_c", "bare libev loop, C, without the library"},
});

} // namespace

void measure_start_up(const settings &how, report &out) {
    const manager peer;
    std::array<std::vector<double>, k_starters.size()> times;
    std::array<std::vector<double>, k_starters.size()> ratios;
    for (int round = 0; round < how.rounds * k_starts_per_round; ++round) {
        for (size_t i = 0; i < k_starters.size(); ++i) {
            times[i].push_back(time_of_one(peer, program(how, k_starters[i].program)));
            ratios[i].push_back(times[i].back() / times[0].back());
        }
    }
    table filled{{"program", "p50 [µs]", "to the first"}};
    for (size_t i = 0; i < k_starters.size(); ++i) {
        filled.add({k_starters[i].meaning, microseconds(median(times[i])),
                    fmt::format("{:.3f}", median(ratios[i]))});
    }
    out.heading("Start-up to first message, one core");
    out.paragraph(
        "From the start of the process until its first message to another one has arrived: hello, answer, "
        "message, answer.");
    out.add(filled);
    out.measured({"start-up to first message, to the bare loop", k_goal, median(ratios[1])});
}

} // namespace bench
