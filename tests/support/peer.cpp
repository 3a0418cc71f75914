// Plays the other side of the bus. See peer.h.
#include "peer.h"

#include "log_capture.h"
#include "node_mapping.h"
#include "wait.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <ctime>
#include <mutex>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

// The callback is called without a context, so what it keeps is the process's.
std::mutex lock;
std::condition_variable changed;
std::vector<bus::heard> heard_so_far;
unsigned last_mark = 0; // heard
bool holding = false;
bool held = false;

const std::string k_mark = "mark of the test ";
const std::string k_hold = "hold the thread";
constexpr int k_no_kind = 3; // which a node remarks upon and drops
constexpr char k_no_kind_line[] = "mgr server receive irreletive msg\n";
constexpr bus::milliseconds k_again{500};

unsigned next_mark() {
    static std::atomic<unsigned> marks{0};
    return ++marks;
}

sockaddr_in address_of(const std::string &ip, uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    if (inet_pton(AF_INET, ip.c_str(), &address.sin_addr) != 1) {
        throw std::invalid_argument("no address: " + ip);
    }
    return address;
}

double kernel_stamp(msghdr &message) {
    for (cmsghdr *c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
        if (c->cmsg_level == SOL_SOCKET &&
            c->cmsg_type == SCM_TIMESTAMP) { // of its kind, the one that emulators know
            timeval stamp{};
            memcpy(&stamp, CMSG_DATA(c), sizeof stamp);
            return static_cast<double>(stamp.tv_sec) + static_cast<double>(stamp.tv_usec) / 1e6;
        }
    }
    return 0;
}

/// Whether the callback's message was one of this file's own. With the lock held.
bool dealt_with(std::unique_lock<std::mutex> &hold_lock, const std::string &words) {
    if (words.starts_with(k_mark)) {
        last_mark = static_cast<unsigned>(std::stoul(words.substr(k_mark.size())));
        return true;
    }
    if (words == k_hold) {
        held = true;
        changed.notify_all();
        changed.wait(hold_lock, [] { return !holding; });
        held = false;
        return true;
    }
    return false;
}

} // namespace

namespace bus {

peer::peer(const std::string &ip, uint16_t port) : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in address = address_of(ip, port);
    const int on = 1;
    const int room = 8 << 20; // [bytes] the system cuts it to its own limit
    (void)setsockopt(fd_, SOL_SOCKET, SO_TIMESTAMP, &on, sizeof on);
    (void)setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    if (bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        (void)close(fd_);
        throw std::runtime_error("cannot bind " + ip + ':' + std::to_string(port));
    }
}

peer::~peer() {
    (void)close(fd_);
}

std::optional<bytes> peer::receive(milliseconds patience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    pollfd one{fd_, POLLIN, 0};
    int ready = 0;
    while ((ready = poll(&one, 1, static_cast<int>(patience.count()))) < 0 && errno == EINTR) {
        patience = std::max(milliseconds(0),
                            std::chrono::duration_cast<milliseconds>(end - std::chrono::steady_clock::now()));
    }
    if (ready <= 0) {
        return std::nullopt;
    }
    bytes datagram(65536);
    sockaddr_in from{};
    iovec room{datagram.data(), datagram.size()};
    alignas(cmsghdr) char control[256];
    msghdr message{};
    message.msg_name = &from;
    message.msg_namelen = sizeof from;
    message.msg_iov = &room;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(fd_, &message, 0);
    datagram.resize(size > 0 ? static_cast<size_t>(size) : 0);
    last_port_ = ntohs(from.sin_port);
    last_arrival_s_ = kernel_stamp(message);
    return datagram;
}

void peer::send(const bytes &datagram, uint16_t to) const {
    const sockaddr_in address = address_of(ip_of(to), static_cast<uint16_t>(9000 + to));
    if (sendto(fd_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr *>(&address),
               sizeof address) != static_cast<ssize_t>(datagram.size())) {
        throw std::runtime_error("cannot send to node " + std::to_string(to));
    }
}

std::vector<bytes> peer::take_all() {
    std::vector<bytes> all;
    while (std::optional<bytes> next = receive(milliseconds(0))) {
        all.push_back(std::move(*next));
    }
    return all;
}

node_under_test::~node_under_test() {
    let_go();
    stop();
}

int node_under_test::start(msg_call_back callback) {
    return start("node", callback);
}

int node_under_test::start(const std::string &name, msg_call_back callback) {
    (void)manager().take_all(); // is there before the first REGISTER, and has forgotten earlier ones
    hears_ = callback == hear;
    return vision_msg_component_init(static_cast<NodeID>(id_), name.c_str(), ip_of(id_).c_str(), callback);
}

void node_under_test::stop() {
    vision_msg_component_deinit();
}

bool node_under_test::join(const ids &active, msg_call_back callback) {
    return start(callback) == 0 && accept(active);
}

bool node_under_test::accept(const ids &active) {
    const std::optional<bytes> request = manager().receive();
    if (!request || request->size() != 58) {
        return false;
    }
    std::vector<record> records = {record_of(k_witness)};
    (void)other(k_witness);
    for (const uint16_t id : active) {
        (void)other(id);
        records.push_back(record_of(id));
    }
    tell(table(records), k_accepted);
    return wait_until([] { return nmapping_get_stat(k_manager) == 1; }) && settle();
}

void node_under_test::tell(const bytes &payload, uint8_t flag) {
    send(message({2, k_manager, id_, flag}, payload));
}

bool node_under_test::settle() {
    // Datagrams are dealt with in the order of their arrival. One that a full socket has lost is sent again.
    const unsigned mark = next_mark();
    const auto end = std::chrono::steady_clock::now() + k_patience;
    while (std::chrono::steady_clock::now() < end) {
        if (!hears_) {
            if (settle_by_log(k_again)) {
                return true;
            }
            continue;
        }
        send(message({1, k_manager, id_}, text(k_mark + std::to_string(mark))));
        std::unique_lock hold_lock{lock};
        if (changed.wait_for(hold_lock, k_again, [mark] { return last_mark >= mark; })) {
            return true;
        }
    }
    return false;
}

bool node_under_test::settle_by_log(milliseconds patience) {
    const size_t before = logs::count(k_no_kind_line);
    send(message({k_no_kind, k_manager, id_}));
    return logs::wait_for(k_no_kind_line, before + 1, patience);
}

bool node_under_test::flush() {
    const bytes mark = text(k_mark + std::to_string(next_mark()));
    if (vxmsg_send_general(k_witness, 1, mark.data(), static_cast<int>(mark.size())) != 0) {
        return false;
    }
    for (;;) {
        const std::optional<bytes> next = other(k_witness).receive();
        if (!next || payload_of(*next) == mark) {
            return next.has_value();
        }
    }
}

bool node_under_test::hold() {
    {
        const std::lock_guard hold_lock{lock};
        holding = true;
    }
    send(message({1, k_manager, id_}, text(k_hold)));
    std::unique_lock hold_lock{lock};
    return changed.wait_for(hold_lock, k_patience, [] { return held; });
}

void node_under_test::let_go() {
    const std::lock_guard hold_lock{lock};
    holding = false;
    changed.notify_all();
}

void node_under_test::hear(void *payload, MsgExtra *extra) {
    const auto *from = static_cast<const uint8_t *>(payload);
    bytes copy(from, from + extra->len - static_cast<int>(k_head_size));
    std::unique_lock hold_lock{lock};
    if (!dealt_with(hold_lock, {copy.begin(), copy.end()})) {
        heard_so_far.push_back({std::move(copy), *extra});
    }
    changed.notify_all();
}

std::vector<heard> node_under_test::all_heard() {
    const std::lock_guard hold_lock{lock};
    return heard_so_far;
}

void node_under_test::forget_heard() {
    const std::lock_guard hold_lock{lock};
    heard_so_far.clear();
}

bool node_under_test::wait_heard(size_t how_many) {
    std::unique_lock hold_lock{lock};
    return changed.wait_for(hold_lock, k_patience, [=] { return heard_so_far.size() >= how_many; });
}

peer &node_under_test::other(uint16_t id) {
    std::unique_ptr<peer> &socket_of_it = others_[id];
    if (!socket_of_it) {
        socket_of_it = std::make_unique<peer>(id);
    }
    return *socket_of_it;
}

} // namespace bus
