/**
 * @file
 * The relay: every datagram of the bus passes through it, and some suffer. It owns the node manager's address
 * and a socket for each node; the nodes come to know those because the relay writes the port of its socket
 * into each REGISTER that it passes on, and the manager tells what it is told. Answers of the manager come
 * back to the same socket, and the relay knows by it which node they are for.
 *
 *     soak::relay relay{{.seed = 1, .ids = {1, 2, 127}, .steal = 0}};
 *     relay.set_hostile(true);
 *     while (...) { poll(relay.sockets() ...); relay.service(); }
 *
 * What it does to a datagram it counts when it has done it: a datagram that waits is neither lost nor put.
 */
#ifndef SOAK_RELAY_H
#define SOAK_RELAY_H

#include "bench_socket.h"
#include "mishaps.h"
#include "tally.h"

#include <chrono>
#include <map>
#include <optional>
#include <span>
#include <vector>

namespace soak {

class relay {
public:
    using clock = std::chrono::steady_clock;

    struct settings {
        uint64_t seed;
        std::vector<uint16_t> ids; /**< of the nodes, the proxy among them */
        uint32_t steal;            /**< datagrams to swallow without counting them: to see the check fail */
    };

    /** @throws std::runtime_error when an address of the relay is taken; standard error says which */
    explicit relay(settings how);

    /** Whether datagrams suffer, and garbage is sent. */
    void set_hostile(bool hostile) { hostile_ = hostile; }

    /** Passes on what has arrived and what is due. Does not wait. True when there was anything. */
    bool service();

    /** When service() has something to do although nothing arrives. */
    [[nodiscard]] std::optional<clock::time_point> next_due() const;

    /** How many datagrams wait to be sent. */
    [[nodiscard]] size_t waiting() const { return delayed_.size() + held_.size(); }

    /** The sockets to poll for reading. */
    [[nodiscard]] std::vector<int> sockets() const;

    [[nodiscard]] const tally &counts() const { return counts_; }

private:
    struct parcel {
        std::vector<uint8_t> bytes;
        tally_key stream;
        uint16_t port_id; // whose socket it came to, 0 for the manager's
    };

    bool take(uint16_t port_id, int socket);
    void pass(parcel one);
    bool stolen(const parcel &one);
    void let_happen(parcel one);
    void schedule(parcel one, const fate &its);
    void put(const parcel &one);
    void count_put(const parcel &one);
    void send_garbage();
    bool send_due();
    void count(event what, const parcel &one, outcome result = outcome::none);

    settings how_;
    bool hostile_ = false;
    std::map<uint16_t, vexa::descriptor> sockets_; // by id
    tally counts_;
    tally ordinals_;            // of each stream
    std::vector<uint8_t> room_; // for the datagram that is being received
    std::multimap<clock::time_point, parcel> delayed_;
    std::multimap<uint16_t, std::pair<clock::time_point, parcel>> held_; // by port_id, with their latest time
    uint64_t passed_ = 0;
    uint64_t garbage_sent_ = 0;
    clock::time_point garbage_due_{};
};

} // namespace soak

#endif
