/**
 * @file
 * A node of the bus for the length of a command: registers with the node manager, waits with a bound until it
 * and its peer are there, says in words why not, and leaves the bus at its end. One at a time: the library
 * has one node per process.
 *
 *     vexa::bus_node node{options};
 *     node.wait_registered();
 *     node.wait_active(5);
 *     vision_send_msg(NODE_SOA, "hello", 5);
 */
#ifndef VEXA_BUS_NODE_H
#define VEXA_BUS_NODE_H

#include "bench_socket.h"
#include "vision_service_route_funcs.h"

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vexa {

/** The ids that a command takes when it is given none: they are nobody's by name. The highest free one. */
constexpr uint16_t k_first_tool_id = 110;
constexpr uint16_t k_last_tool_id = 119;

struct node_options {
    uint16_t id = 0; /**< 0: one of the tools' own that is free on this machine */
    std::string name = "vexa";
    std::string ip; /**< at which the others reach it; empty: this machine's address toward the manager */
    double timeout_s = 5; /**< for each wait */
    bool verbose = false; /**< shows the library's log lines */
};

/** The command cannot go on; the text says why and what to do. */
class node_trouble : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** SIGINT or SIGTERM came before the command had done what it was for. */
class interrupted : public node_trouble {
public:
    interrupted() : node_trouble("ended before it was done") {}
};

class bus_node {
public:
    using clock = std::chrono::steady_clock;

    /**
     * Starts the node.
     * @throws node_trouble when its port is taken or this machine has no way to the node manager
     */
    explicit bus_node(const node_options &options, msg_call_back heard = nullptr);
    ~bus_node();
    bus_node(const bus_node &) = delete;
    bus_node &operator=(const bus_node &) = delete;

    /** @throws node_trouble when the node manager does not accept it in time */
    void wait_registered();

    /**
     * Waits until the next hop for a destination is active.
     * @throws node_trouble when it is not in time, or when this machine has no way to it
     */
    void wait_active(uint16_t destination);

    /**
     * Waits until a broadcast of this node would reach somebody.
     * @throws node_trouble when it would not in time
     */
    void wait_audience();

    /** The active nodes below this one, which is where its broadcasts go. */
    [[nodiscard]] std::vector<uint16_t> audience() const;

    /** Waits for a time or for a condition, whichever comes first. False when the time came first.
     * @throws interrupted on SIGINT and SIGTERM */
    bool wait_until(clock::time_point end, const std::function<bool()> &condition);

    /** Sleeps. True when SIGINT or SIGTERM asks for the end, which is noticed at once. */
    bool sleep_until(clock::time_point end);

    [[nodiscard]] uint16_t id() const { return id_; }
    [[nodiscard]] const std::string &ip() const { return ip_; }

private:
    [[nodiscard]] clock::time_point deadline() const;

    descriptor end_signals_; // opened before the library's threads, which inherit that they are blocked
    double timeout_s_;
    vexa_node_t manager_;
    uint16_t id_;
    std::string ip_;
};

/** The node manager's record as the library presets it. */
vexa_node_t preset_manager();

} // namespace vexa

#endif
