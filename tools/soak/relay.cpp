// The relay. See relay.h.
#include "relay.h"

#include "manager_protocol.h"
#include "receiver.h"

#include <arpa/inet.h>
#include <cerrno>
#include <stdexcept>
#include <sys/socket.h>

namespace soak {
namespace {

using namespace std::chrono_literals;

constexpr size_t k_relay_counts = size_t{1} << 18;
constexpr size_t k_streams = size_t{1} << 14;
constexpr int k_socket_room = 4 << 20;    // [bytes] asked for; the system may give less
constexpr int k_datagrams_per_turn = 128; // of one socket, then the others have their turn
constexpr auto k_longest_hold = 50ms;
constexpr auto k_garbage_every = 50ms;
constexpr uint64_t k_steal_every = 211; // datagrams
constexpr uint16_t k_manager_port_id = 0;

vexa::descriptor open_socket(const char *ip, uint16_t port) {
    auto socket = vexa::bind_udp("vexa_soak", vexa::parse_endpoint(ip, port));
    if (!socket) {
        throw std::runtime_error("the relay's address is taken");
    }
    // Less room than asked for is no failure: what is dropped for want of it, the system counts.
    (void)setsockopt(socket->get(), SOL_SOCKET, SO_RCVBUF, &k_socket_room, sizeof k_socket_room);
    return std::move(*socket);
}

sockaddr_in destination_of(uint16_t port_id) {
    return vexa::to_sockaddr(
        port_id == k_manager_port_id
            ? vexa::parse_endpoint(k_manager_ip, k_manager_real_port)
            : vexa::parse_endpoint(k_relay_ip, static_cast<uint16_t>(VX_NODE_PORT_BASE + port_id)));
}

/// The port that the other nodes are to send to.
void write_relay_port(std::vector<uint8_t> &datagram) {
    constexpr size_t record = VX_MSG_HEAD_SIZE + VX_MGR_HEAD_SIZE;
    if (datagram.size() >= record + VX_NODE_RECORD_SIZE) {
        vexa_node_t node = vexa_node_load(&datagram[record]);
        node.port = static_cast<uint16_t>(k_relay_port_base + node.node_id);
        vexa_node_store(&datagram[record], &node);
    }
}

bool is_session(way by) {
    return by == way::registration || by == way::table;
}

} // namespace

relay::relay(settings how)
    : how_(std::move(how)), counts_(k_relay_counts), ordinals_(k_streams), room_(65536) {
    sockets_.emplace(k_manager_port_id, open_socket(k_manager_ip, VX_NODE_PORT_BASE));
    std::vector<uint16_t> ids = how_.ids;
    ids.push_back(k_witness);
    for (const uint16_t id : ids) {
        sockets_.emplace(id, open_socket(k_relay_ip, static_cast<uint16_t>(k_relay_port_base + id)));
    }
}

std::vector<int> relay::sockets() const {
    std::vector<int> all;
    for (const auto &[id, socket] : sockets_) {
        all.push_back(socket.get());
    }
    return all;
}

bool relay::service() {
    bool busy = false;
    for (const auto &[id, socket] : sockets_) {
        for (int i = 0; i < k_datagrams_per_turn && take(id, socket.get()); ++i) {
            busy = true;
        }
    }
    if (hostile_ && clock::now() >= garbage_due_) {
        send_garbage();
        garbage_due_ = clock::now() + k_garbage_every;
        busy = true;
    }
    return send_due() || busy;
}

std::optional<relay::clock::time_point> relay::next_due() const {
    std::optional<clock::time_point> next;
    const auto consider = [&next](clock::time_point when) { next = next ? std::min(*next, when) : when; };
    if (!delayed_.empty()) {
        consider(delayed_.begin()->first);
    }
    for (const auto &[id, one] : held_) {
        consider(one.first);
    }
    if (hostile_) {
        consider(garbage_due_);
    }
    return next;
}

/// Receives one datagram. False when there is none.
bool relay::take(uint16_t port_id, int socket) {
    const ssize_t size = recv(socket, room_.data(), room_.size(), MSG_DONTWAIT);
    if (size < 0) {
        return errno == EINTR;
    }
    const std::span<const uint8_t> datagram = std::span{room_}.first(static_cast<size_t>(size));
    pass({{datagram.begin(), datagram.end()}, stream_of(datagram), port_id});
    return true;
}

void relay::pass(parcel one) {
    if (stolen(one)) {
        return;
    }
    count(event::taken, one);
    if (one.port_id == k_witness) {
        count(event::lost, one);
        return;
    }
    if (one.stream.by == way::registration) {
        write_relay_port(one.bytes);
    }
    let_happen(std::move(one));
}

/// Only what the nodes' applications send: what the session repeats would not be missed.
bool relay::stolen(const parcel &one) {
    if (how_.steal == 0 || !hostile_ || !is_user_data(one.stream.by) || ++passed_ % k_steal_every != 0) {
        return false;
    }
    --how_.steal;
    return true;
}

void relay::let_happen(parcel one) {
    fate its;
    if (hostile_) {
        const uint64_t ordinal = ordinals_.get(one.stream);
        ordinals_.add(one.stream);
        its = fate_of(how_.seed, one.stream, ordinal,
                      is_session(one.stream.by) ? k_hostile_session : k_hostile);
    }
    switch (its.what) {
    case mishap::lose:
        count(event::lost, one);
        return;
    case mishap::corrupt:
        count(event::corrupted, one);
        corrupt(one.bytes, its.dice);
        break;
    case mishap::twice:
        count(event::doubled, one);
        put(one);
        break;
    case mishap::none:
        break;
    }
    schedule(std::move(one), its);
}

void relay::schedule(parcel one, const fate &its) {
    const uint16_t port_id = one.port_id;
    if (its.delay.count() > 0) {
        count(event::delayed, one);
        delayed_.emplace(clock::now() + its.delay, std::move(one));
        return;
    }
    if (its.hold) {
        count(event::held_back, one);
        held_.emplace(port_id, std::pair{clock::now() + k_longest_hold, std::move(one)});
        return;
    }
    put(one);
    for (auto at = held_.find(port_id); at != held_.end(); at = held_.find(port_id)) {
        put(at->second.second); // behind its successor now
        held_.erase(at);
    }
}

bool relay::send_due() {
    const clock::time_point now = clock::now();
    bool sent = false;
    while (!delayed_.empty() && delayed_.begin()->first <= now) {
        put(delayed_.begin()->second);
        delayed_.erase(delayed_.begin());
        sent = true;
    }
    for (auto at = held_.begin(); at != held_.end();) {
        if (at->second.first > now) {
            ++at;
            continue;
        }
        put(at->second.second);
        at = held_.erase(at);
        sent = true;
    }
    return sent;
}

void relay::put(const parcel &one) {
    // The manager answers to where a REGISTER comes from: that must be the socket for the node.
    const auto own = sockets_.find(one.port_id == k_manager_port_id ? one.stream.sender : one.port_id);
    const int socket = own != sockets_.end() ? own->second.get() : sockets_.begin()->second.get();
    const sockaddr_in to = destination_of(one.port_id);
    if (sendto(socket, one.bytes.data(), one.bytes.size(), 0, reinterpret_cast<const sockaddr *>(&to),
               sizeof to) < 0) {
        count(event::unsendable, one);
    } else {
        count_put(one);
    }
}

void relay::count_put(const parcel &one) {
    if (one.port_id == k_manager_port_id) {
        const bool readable = std::holds_alternative<vexa::manager_request>(vexa::read_request(one.bytes));
        count(event::put, one, readable ? outcome::request : outcome::refused_by_manager);
    } else {
        count(event::put, one, judge(one.bytes, one.port_id).what);
    }
}

void relay::send_garbage() {
    const uint64_t dice = mixed(how_.seed ^ ++garbage_sent_);
    const size_t choice = dice % (how_.ids.size() + 1);
    const uint16_t port_id = choice == how_.ids.size() ? k_manager_port_id : how_.ids[choice];
    const parcel one{garbage(mixed(dice)), {}, port_id};
    count(event::call, one);
    put(one);
}

void relay::count(event what, const parcel &one, outcome result) {
    tally_key key = one.stream;
    key.what = what;
    key.result = result;
    key.place = static_cast<uint8_t>(one.port_id);
    counts_.add(key);
}

} // namespace soak
