/**
 * @file
 * The other side of the bus, played by the test: sockets that stand for the node manager and for other nodes,
 * and a node under test that is started among them.
 *
 *     bus::node_under_test node{NODE_SOA};
 *     ASSERT_TRUE(node.join({3, 127}));
 *     vision_send_msg(NODE_VIO, "hello", 5);
 *     EXPECT_EQ(node.other(3).receive(), bus::message({1, 5, 3}, bus::text("hello")));
 */
#ifndef TEST_PEER_H
#define TEST_PEER_H

#include "route_messages.h"
#include "vision_service_route_funcs.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace bus {

using std::chrono::milliseconds;

constexpr milliseconds k_patience{10'000};
constexpr uint16_t k_witness = 126; // a node above the others, whose broadcasts do not reach it

/** A UDP socket at an address of the test's network. */
class peer {
public:
    peer(const std::string &ip, uint16_t port);
    /** The socket of a node, at its address and port. */
    explicit peer(uint16_t id) : peer(ip_of(id), static_cast<uint16_t>(9000 + id)) {}
    ~peer();
    peer(const peer &) = delete;
    peer &operator=(const peer &) = delete;

    /** The next datagram; nothing when the time passes before it. */
    std::optional<bytes> receive(milliseconds patience = k_patience);

    /** Sends to the node with this id. */
    void send(const bytes &datagram, uint16_t to) const;

    /** Whether nothing has arrived. Says something only behind an event that came later on the same way. */
    bool silent() { return !receive(milliseconds(0)).has_value(); }

    /** Everything that has arrived. */
    std::vector<bytes> take_all();

    /** Where the last datagram came from. */
    [[nodiscard]] uint16_t last_port() const { return last_port_; }

    /** When the system took in the last datagram [s of the wall clock]. */
    [[nodiscard]] double last_arrival_s() const { return last_arrival_s_; }

private:
    int fd_;
    uint16_t last_port_ = 0;
    double last_arrival_s_ = 0;
};

/** One call of the application's callback. */
struct heard {
    bytes payload;
    MsgExtra extra;
};

/**
 * The library's node of this process, and the peers around it. Its manager answers only when told to. Stops
 * the node at its end.
 */
class node_under_test {
public:
    explicit node_under_test(uint16_t id) : id_(id) {}
    ~node_under_test();
    node_under_test(const node_under_test &) = delete;
    node_under_test &operator=(const node_under_test &) = delete;

    /** Starts the node under the name "node" and its address. */
    int start(msg_call_back callback = hear);
    int start(const std::string &name, msg_call_back callback = hear);
    void stop();

    /** Starts it, waits for its REGISTER and accepts it; these nodes and the witness are active then. */
    bool join(const ids &active, msg_call_back callback = hear);

    /** Waits for a REGISTER and answers it with a table in which these and the witness are active. */
    bool accept(const ids &active);

    /** Sends it a manager message. */
    void tell(const bytes &payload, uint8_t flag = 0);

    /** Waits until it has dealt with everything sent to it so far. */
    bool settle();

    /** Waits until everything that it has queued so far is sent: queues a last message, to the witness. */
    bool flush();

    peer &manager() { return other(k_manager); }
    /** The socket that stands for a node; opened when first asked for. */
    peer &other(uint16_t id);
    void send(const bytes &datagram) { manager().send(datagram, id_); }

    /** What the callback has heard so far, oldest first. */
    static std::vector<heard> all_heard();
    static void forget_heard();
    /** Waits until the callback has heard this many. */
    static bool wait_heard(size_t how_many);

    /** Keeps the I/O thread inside the callback until let go. */
    bool hold();
    static void let_go();

    /** The callback: keeps what it hears for all_heard. */
    static void hear(void *payload, MsgExtra *extra);

private:
    bool settle_by_log(milliseconds patience);

    uint16_t id_;
    bool hears_ = true; // it was started with this class's callback
    std::map<uint16_t, std::unique_ptr<peer>> others_;
};

} // namespace bus

#endif
