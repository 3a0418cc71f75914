/**
 * @file
 * The soak's bus: the node manager and the nodes as child processes, the relay between them in this one.
 * Whoever waits for the processes lets the relay work meanwhile.
 */
#ifndef SOAK_BENCH_H
#define SOAK_BENCH_H

#include "account.h"
#include "child_process.h"
#include "memory.h"
#include "relay.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace soak {

/** Ends the soak: what happened instead of what should have. */
class failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** All that can be looked at while nothing moves. */
struct snapshot {
    observation counted;
    std::map<uint16_t, memory_report> memory;
    std::map<uint16_t, std::string> frames; /**< heartbeat frames, 56 bytes in hexadecimal digits */
    bool tables_whole = false;              /**< every node has every node in its table, as it really is */
};

class bench {
public:
    struct settings {
        std::string programs; /**< directory with the programs, "build-release/bin" */
        std::string log_file; /**< receives the nodes' log lines; empty: they are only counted */
        uint64_t seed = 1;
        std::vector<uint16_t> ids; /**< of the nodes, the proxy among them */
        bool given_back = false;   /**< what is expected of copies of queued messages */
        uint32_t steal = 0;        /**< datagrams that the relay swallows uncounted */
        std::string sabotage;      /**< what the first node does wrong */
    };

    explicit bench(settings how);

    /** Starts manager and nodes, and waits until every node knows every other. */
    void start();

    /** Sends a command to every node and waits for all answers. */
    std::map<uint16_t, std::string> ask_all(const std::string &command);

    /** Lets the relay and the processes work. */
    void run_for(std::chrono::milliseconds time);

    /** Stops the traffic and waits until nothing is on its way. */
    void quieten();

    /** Everything, as it stands now. */
    snapshot look();

    /** The nodes leave the bus. They can still be looked at. */
    void leave();

    /** Ends the nodes, then the manager. Its report.
     * @throws failure when one ends otherwise than it should */
    manager_report end();

    relay &between() { return relay_; }

    /** What the manager has seen happen, "left" and the like, with how often. */
    [[nodiscard]] const std::map<std::string, uint64_t> &manager_events() const { return events_; }

    [[nodiscard]] const settings &how() const { return how_; }

private:
    void start_node(uint16_t id);
    void turn(std::chrono::milliseconds patience);
    void hear_manager();
    void hear_nodes();
    void await(const std::function<bool()> &condition, const std::string &what);
    void end_nodes();

    settings how_;
    relay relay_;
    std::unique_ptr<child_process> manager_;
    bool manager_listens_ = false;
    std::optional<manager_report> manager_said_;
    std::map<std::string, uint64_t> events_;
    std::map<uint16_t, std::unique_ptr<child_process>> nodes_;
    std::map<uint16_t, std::string> answers_;
    relay::clock::time_point last_traffic_{};
};

} // namespace soak

#endif
