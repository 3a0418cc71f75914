/**
 * @file
 * What the node manager shows on standard output: for people, for programs (one JSON object a line), or only
 * what went wrong. Each line is flushed as it is written, so that a pipe's reader sees it at once.
 */
#ifndef VEXA_MANAGER_OUTPUT_H
#define VEXA_MANAGER_OUTPUT_H

#include "node_registry.h"

#include <map>
#include <nlohmann/json_fwd.hpp>

namespace vexa {

enum class manager_style { text, quiet, json };

/** What the manager has done, for the summary at its end. */
struct manager_counts {
    uint64_t received = 0;    /**< datagrams */
    uint64_t answered = 0;    /**< REGISTERs */
    uint64_t notified = 0;    /**< table messages sent because the table changed */
    uint64_t send_failed = 0; /**< messages that the system did not take */
    std::array<uint64_t, static_cast<size_t>(refusal::number_of_refusals)> refused{};
};

class manager_output {
public:
    explicit manager_output(manager_style style) : style_(style) {}

    void listening(endpoint where, double keep_alive_s, int missed) const;
    void table_changed(const node_registry::change &change, const node_registry &registry) const;

    /** Says the 1st, 10th, 100th ... refusal of a kind and id: a node that keeps asking must not fill the
     * disk.
     * @param node_id  the id concerned, 0 when the datagram got no further than its header */
    void refused(refusal why, endpoint from, uint16_t node_id);

    /** Says the 1st, 10th, 100th ... message that the system did not take. */
    void send_failed(endpoint to, int error, uint64_t times) const;
    void summary(const manager_counts &counts, const node_registry &registry) const;

private:
    static void say(const nlohmann::json &object);

    manager_style style_;
    std::map<std::pair<refusal, uint16_t>, uint64_t> refusals_said_;
};

} // namespace vexa

#endif
