/**
 * @file
 * What travels on the bus, summed up: a flow for each sender, destination, kind and message type, with its
 * rate. What is malformed or cut is a flow of its own.
 *
 *     vexa::flow_table flows;
 *     flows.see(datagram);
 *     for (const auto &[key, flow] : flows.all()) { show(flow.names.from, flow.meter.now(now_ns)); }
 */
#ifndef VEXA_FLOW_TABLE_H
#define VEXA_FLOW_TABLE_H

#include "datagrams.h"
#include "decoder.h"
#include "message_filter.h"
#include "rate_meter.h"

#include <compare>
#include <map>
#include <memory>
#include <string>

namespace vexa {

/** Nodes where the datagram has them, which is on the routing bus; addresses elsewhere. */
struct flow_key {
    endpoint from_address = {};
    endpoint to_address = {};
    uint16_t src = 0;
    uint16_t dst = 0;
    uint16_t kind = 0;  /**< of the routing bus, or the link's message id */
    int32_t type = -1;  /**< first word of a status, and of a message when it is a type's; else -1 */
    int envelope = 0;   /**< its place in k_envelopes */
    int form = -1;      /**< its place in the envelope's forms; -1: unknown */
    uint8_t damage = 0; /**< a formats::severity, of cut and malformed; else 0 */
    auto operator<=>(const flow_key &) const = default;
};

struct flow_names {
    std::string from; /**< "vio(3)"; of the link "192.168.1.5:40000" */
    std::string to;
    std::string kind;   /**< "0 status"; of the link "track_status" */
    std::string type;   /**< "vio_cfg(2)"; "" without one */
    std::string damage; /**< "cut", "malformed"; "" of most */
};

/** What a filter asks of a message, kept of a flow's first one. */
struct flow_sample {
    udp_datagram datagram; /**< without its bytes */
    formats::decoded read; /**< the numbers of its header and its key only */

    [[nodiscard]] bool matches(const message_filter &filter) const {
        return filter.matches({datagram, read});
    }
};

struct flow {
    rate_meter meter;
    flow_names names;
    std::shared_ptr<const flow_sample> sample;
};

class flow_table {
public:
    /** @param most  flows that are kept; for a new one beyond, the longest silent one is forgotten */
    explicit flow_table(size_t most = 1000) : most_(most) {}

    /** Counts a datagram; false when it is none of this system's. */
    bool see(const udp_datagram &datagram);

    [[nodiscard]] const std::map<flow_key, flow> &all() const { return flows_; }

    /** How many flows had to be forgotten. */
    [[nodiscard]] uint64_t forgotten() const { return forgotten_; }

    /** Datagrams that were none of this system's. */
    [[nodiscard]] uint64_t others() const { return others_; }

private:
    flow &flow_of(const flow_key &key, const udp_datagram &datagram, formats::decoded &&read);
    void forget_one();

    size_t most_;
    std::map<flow_key, flow> flows_;
    uint64_t forgotten_ = 0;
    uint64_t others_ = 0;
};

} // namespace vexa

#endif
