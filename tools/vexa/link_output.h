/**
 * @file
 * What the stand-ins for the flight side and the camera show on standard output: a line for each datagram,
 * for people or as one JSON object, or only what is wrong. Each line is flushed as it is written, so that a
 * pipe's reader sees it at once.
 */
#ifndef VEXA_LINK_OUTPUT_H
#define VEXA_LINK_OUTPUT_H

#include "link_decode.h"
#include "manager_protocol.h"
#include "sequence_watch.h"

#include <map>

namespace vexa {

enum class link_style { text, quiet, json };

/** "flight side" or "camera". */
const char *name_of(link_end end);

/** How a datagram came. */
struct link_arrival {
    endpoint from;
    size_t bytes;         /**< that arrived */
    uint64_t received_ns; /**< CLOCK_MONOTONIC, for programs that know when it was sent */
};

/** What has come, for the summary at the end. */
struct link_counts {
    uint64_t received = 0;                   /**< datagrams, malformed ones too */
    uint64_t malformed = 0;                  /**< datagrams with something wrong */
    uint64_t missing = 0;                    /**< numbers left out in the rows of all senders */
    uint64_t late = 0;                       /**< datagrams with an older number than one before */
    std::map<std::string, uint64_t> by_name; /**< the others, per message */
};

class link_output {
public:
    link_output(link_end end, link_style style) : end_(end), style_(style) {}

    void listening(endpoint where) const;
    void datagram(const link_arrival &arrival, const link_datagram &read,
                  sequence_watch::step_result step) const;
    void summary(const link_counts &counts) const;

private:
    link_end end_;
    link_style style_;
};

} // namespace vexa

#endif
