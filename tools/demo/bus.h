/**
 * @file
 * The demo's bus: the node manager and the nodes as child processes, and what they have told so far. Nothing
 * moves by itself: whoever waits lets the processes be heard.
 *
 *     bus.start_node(5, "soa");
 *     bus.ask(5, "start", "started");
 *     if (!bus.wait([&] { return bus.node(9).table.active(5); }, 2s)) { ... }
 */
#ifndef DEMO_BUS_H
#define DEMO_BUS_H

#include "child_process.h"
#include "transcript.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace demo {

/** How the transcript calls a node. */
std::string node_name(int id);

/** "1, 3 and 5". */
std::string listed(const std::vector<int> &ids);

/** Ends the demo: what happened instead of what should have. */
class failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** A line of a node, "word name=value name=value". */
struct node_line {
    std::string word;
    std::map<std::string, std::string> values;

    [[nodiscard]] uint64_t number(const std::string &name) const; /**< throws failure when it is not there */
    [[nodiscard]] const std::string &text(const std::string &name) const;
    [[nodiscard]] bool has(const std::string &name) const { return values.contains(name); }
};

/** A message that has come to a node's callback. */
struct arrival {
    int src;
    int dst;
    uint32_t number;
    uint64_t delay_ns;
    uint64_t size;
};

/** A node of the table as another node sees it. */
struct known_node {
    bool active = false;
    std::string name;
    std::string address;
    uint64_t seen_ns = 0; /**< when that state was first seen */
};

/** A status that a watching node has found. */
struct seen_status {
    uint32_t number = 0;
    uint64_t delay_ns = 0;
};

/** What a node process has told. */
struct node_state {
    int id = 0;
    std::string name;
    std::map<int, known_node> table;
    std::map<int, std::vector<arrival>> arrivals; /**< by tag */
    std::map<int, seen_status> statuses;          /**< by key, the newest */
    std::string frame;                            /**< 56 bytes in hexadecimal digits */
    uint64_t frame_ns = 0;                        /**< when it was first seen */

    /** Whether this node's table has `other` as active. */
    [[nodiscard]] bool knows(int other) const;
    /** Byte `index` of its heartbeat frame. */
    [[nodiscard]] int frame_byte(size_t index) const;
};

class bus {
public:
    struct settings {
        std::string programs;                 /**< directory with the programs, "build-release/bin" */
        std::string log_file;                 /**< receives the nodes' log lines; empty: standard error */
        std::chrono::milliseconds time_limit; /**< of the whole demo */
    };

    bus(settings how, const transcript &out);

    /** Starts the node manager and waits until it listens. */
    void start_manager();
    void start_node(int id, const std::string &name);

    /** Asks the node manager to end. Its exit status. */
    int stop_manager();
    /** Ends a node's input, so that it ends. Its exit status. */
    int end_node(int id);

    [[nodiscard]] const node_state &node(int id) const;
    /** All nodes that were started and not ended, in the order of the ids. */
    [[nodiscard]] std::vector<int> ids() const;

    /** Whether the node manager has said that a node is active. */
    [[nodiscard]] bool manager_knows(int id) const { return manager_knows_.contains(id); }

    /** Lets the processes be heard until the condition holds. False when the time passes first. */
    bool wait(const std::function<bool()> &condition,
              std::chrono::milliseconds patience = std::chrono::seconds(2));

    /** Sends a command and waits for the line that answers it. Throws failure when none comes. */
    node_line ask(int id, const std::string &command, const std::string &answer);

    /** A number that no transfer has had. */
    int new_tag() { return ++last_tag_; }

    [[nodiscard]] const settings &how() const { return how_; }

private:
    struct member {
        node_state state;
        std::unique_ptr<child_process> process;
        std::optional<node_line> answer; // the line asked for, once it has come
        std::string awaited;             // its word; empty: none
    };

    member &find(int id);
    void hear(std::chrono::milliseconds patience);
    bool hear_manager();
    static void hear_node(member &speaker);
    static void note(member &speaker, const node_line &said);
    void show_manager_event(const std::string &line);

    settings how_;
    const transcript &out_;
    std::chrono::steady_clock::time_point end_;
    std::unique_ptr<child_process> manager_;
    bool manager_listens_ = false;
    std::set<int> manager_knows_; // the active nodes, as the manager last said
    std::map<int, member> members_;
    int last_tag_ = 0;
};

} // namespace demo

#endif
