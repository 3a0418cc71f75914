// Broadcasts by plain sockets, by the library, and by those of the other buses that know them.
#include "fan_sides.h"

#include "bare_socket.h"
#include "bus_table.h"
#include "fan_peers.h"
#include "vision_service_route_funcs.h"
#include "vx_msg_def.h"

#include <array>
#include <deque>
#include <ev.h>
#include <fcntl.h>
#include <mutex>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace bench {
namespace {

constexpr uint16_t k_sender_id = 101; // above every receiver

sockaddr_in address_of(uint16_t number) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(VX_NODE_PORT_BASE + number));
    return address;
}

int own_socket(uint16_t number) {
    const int fd = checked(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0), "socket");
    const sockaddr_in own = address_of(number);
    (void)checked(bind(fd, reinterpret_cast<const sockaddr *>(&own), sizeof own), "bind");
    return fd;
}

/// One sendto per receiver: what a broadcast of the bus is made of.
class bare_sender : public fan_sender {
public:
    explicit bare_sender(uint16_t receivers) : fd_(own_socket(k_sender_id)) {
        for (uint16_t number = 1; number <= receivers; ++number) {
            to_.push_back(address_of(number));
        }
    }
    void send(const uint8_t *payload, size_t size_bytes) override {
        for (const sockaddr_in &to : to_) {
            send_bare({fd_, to}, payload, size_bytes);
        }
    }
    [[nodiscard]] int fd() const { return fd_; }

private:
    const int fd_;
    std::vector<sockaddr_in> to_;
};

void start_node(uint16_t id, msg_call_back callback) {
    if (vision_msg_component_init(static_cast<NodeID>(id), "bench", k_bus_ip, callback) != 0) {
        throw std::runtime_error("the node does not start");
    }
}

void read_all(struct ev_loop * /*loop*/, ev_io *watcher, int /*events*/) {
    alignas(8) std::array<uint8_t, k_most_datagram> datagram;
    while (recv(watcher->fd, datagram.data(), datagram.size(), 0) >= 0) {
    }
}

/// The same on the thread of a loop that reads the socket too, behind a queue, with a pipe that wakes it.
class queued_sender : public fan_sender {
public:
    explicit queued_sender(uint16_t receivers) : sender_(receivers), loop_(ev_loop_new(EVFLAG_NOENV)) {
        (void)checked(pipe2(pipe_.data(), O_NONBLOCK | O_CLOEXEC), "pipe2");
        ev_io_init(&woken_, on_woken, pipe_[0], EV_READ);
        woken_.data = this;
        ev_io_start(loop_, &woken_);
        ev_io_init(&readable_, read_all, sender_.fd(), EV_READ);
        ev_io_start(loop_, &readable_);
        std::thread([this] { ev_run(loop_, 0); }).detach();
    }
    void send(const uint8_t *payload, size_t size_bytes) override {
        {
            const std::lock_guard hold{lock_};
            queue_.emplace_back(payload - k_head_bytes, payload + size_bytes);
        }
        [[maybe_unused]] const ssize_t written = write(pipe_[1], "g", 1); // full: it is awake already
    }

private:
    static void on_woken(struct ev_loop * /*loop*/, ev_io *watcher, int /*events*/) {
        char byte = 0;
        while (read(watcher->fd, &byte, 1) > 0) {
        }
        static_cast<queued_sender *>(watcher->data)->send_queued();
    }

    void send_queued() {
        std::unique_lock hold{lock_};
        while (!queue_.empty()) {
            const std::vector<uint8_t> message = std::move(queue_.front());
            queue_.pop_front();
            hold.unlock();
            sender_.send(message.data() + k_head_bytes, message.size() - k_head_bytes);
            hold.lock();
        }
    }

    bare_sender sender_;
    struct ev_loop *const loop_;
    ev_io woken_{};
    ev_io readable_{};
    std::array<int, 2> pipe_{};
    std::mutex lock_;
    std::deque<std::vector<uint8_t>> queue_;
};

class bus_sender : public fan_sender {
public:
    explicit bus_sender(uint16_t receivers) {
        start_node(k_sender_id, nullptr);
        learn_nodes(k_sender_id, 1, receivers);
    }
    void send(const uint8_t *payload, size_t size_bytes) override {
        (void)vision_brocast_msg(payload, static_cast<int>(size_bytes));
    }
};

struct watched_socket {
    ev_io ev;
    board *notes;
};

void on_datagram(struct ev_loop * /*loop*/, ev_io *watcher, int /*events*/) {
    alignas(8) std::array<uint8_t, k_most_datagram> datagram;
    while (recv(watcher->fd, datagram.data(), datagram.size(), 0) >= 0) {
        reinterpret_cast<watched_socket *>(watcher)->notes->note();
    }
}

/// As many sockets as there are receivers on one loop.
void start_sockets(uint16_t first, uint16_t receivers, board &notes) {
    static std::deque<watched_socket> sockets; // which the loop points to
    struct ev_loop *loop = ev_loop_new(EVFLAG_NOENV);
    for (uint16_t number = first; number < first + receivers; ++number) {
        watched_socket &made = sockets.emplace_back(watched_socket{{}, &notes});
        ev_io_init(&made.ev, on_datagram, own_socket(number), EV_READ);
        ev_io_start(loop, &made.ev);
    }
    std::thread([loop] { ev_run(loop, 0); }).detach();
}

board *node_notes = nullptr; // a process has one node

} // namespace

std::unique_ptr<fan_sender> make_fan_sender(const std::string &contender, const std::string &directory,
                                            uint16_t receivers) {
    if (contender == "bare-loop") {
        return std::make_unique<bare_sender>(receivers);
    }
    if (contender == "bare-queue") {
        return std::make_unique<queued_sender>(receivers);
    }
    if (contender == "vision_brocast_msg") {
        return std::make_unique<bus_sender>(receivers);
    }
    return make_peer_sender(contender, directory, receivers);
}

void start_fan_receivers(const std::string &contender, const std::string &directory, uint16_t first,
                         uint16_t receivers, board &notes) {
    if (contender == "bare-loop" || contender == "bare-queue" ||
        (contender == "vision_brocast_msg" && receivers > 1)) {
        start_sockets(first, receivers, notes);
    } else if (contender == "vision_brocast_msg") {
        node_notes = &notes;
        start_node(first, [](void *, MsgExtra *) { node_notes->note(); });
        learn_nodes(first, k_sender_id, k_sender_id);
    } else {
        start_peer_receivers(contender, directory, receivers, notes);
    }
}

} // namespace bench
