/**
 * @file
 * What a while of listening tells about the health of a bus: who registers from where and who is answered,
 * what is malformed, cut or refused, how much comes to one port at a time.
 *
 *     vexa::traffic_watch watch;
 *     vexa::listen_to_bus(options, [&](const vexa::udp_datagram &d) { watch.see(d); return true; });
 */
#ifndef VEXA_TRAFFIC_WATCH_H
#define VEXA_TRAFFIC_WATCH_H

#include "datagrams.h"
#include "manager_protocol.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace vexa {

/** What has been seen of a node's registration. */
struct registration {
    std::map<endpoint, uint64_t> from; /**< where its REGISTERs came from, and how many */
    uint64_t accepted = 0;             /**< answers of the node manager to it */
};

/** One kind of datagram that is not as it must be, from one sender to one receiver. */
struct oddity {
    endpoint from;
    endpoint to;
    std::string what; /**< a clause */
    uint64_t times = 0;
};

/** How much came to one port at a time. */
struct burst {
    uint64_t bytes = 0; /**< within k_burst_ms, as the receiver's system charges them at least */
    uint64_t messages = 0;
};

constexpr int k_burst_ms = 100;

class traffic_watch {
public:
    void see(const udp_datagram &datagram);

    [[nodiscard]] const std::map<uint16_t, registration> &registrations() const { return registrations_; }
    [[nodiscard]] uint64_t manager_messages() const { return manager_messages_; }
    [[nodiscard]] uint64_t bus_messages() const { return bus_messages_; }
    [[nodiscard]] const std::optional<std::vector<vexa_node_t>> &table() const { return table_; }
    [[nodiscard]] std::vector<oddity> malformed() const { return list_of(malformed_); }
    [[nodiscard]] std::vector<oddity> cut() const { return list_of(cut_); }
    [[nodiscard]] std::vector<oddity> refused() const { return list_of(refused_); }
    [[nodiscard]] const std::map<endpoint, burst> &bursts() const { return worst_; }

private:
    using oddity_key = std::tuple<endpoint, endpoint, std::string>;
    using oddity_count = std::map<oddity_key, uint64_t>;

    struct window {
        int64_t start_ns = 0;
        burst sum;
    };

    static std::vector<oddity> list_of(const oddity_count &counted);
    static void count(oddity_count &where, const udp_datagram &datagram, const std::string &what);
    void note_session(const udp_datagram &datagram);
    void note_oddities(const udp_datagram &datagram);
    void note_burst(const udp_datagram &datagram);

    std::map<uint16_t, registration> registrations_; // by node id
    std::optional<std::vector<vexa_node_t>> table_;  // of the newest manager message
    uint64_t manager_messages_ = 0;
    uint64_t bus_messages_ = 0;
    oddity_count malformed_;
    oddity_count cut_;
    oddity_count refused_;
    std::map<endpoint, window> windows_; // by receiver
    std::map<endpoint, burst> worst_;    // by receiver
};

} // namespace vexa

#endif
