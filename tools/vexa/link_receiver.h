/**
 * @file
 * A stand-in for the flight side or the camera as a running program: one UDP socket, one thread. Every
 * datagram is read, checked, counted and shown; nothing is answered.
 */
#ifndef VEXA_LINK_RECEIVER_H
#define VEXA_LINK_RECEIVER_H

#include "link_output.h"

#include <string>

namespace vexa {

struct link_options {
    link_end end = link_end::flight;
    std::string program; /**< "vexa flight", for what is written to standard error */
    std::string bind;    /**< IPv4 address */
    uint16_t port = 0;
    uint64_t count = 0;   /**< datagrams after which it ends; 0: no limit */
    double timeout_s = 0; /**< after which it ends; 0: no limit */
    link_style style = link_style::text;
};

/**
 * Receives until `count` datagrams have come, the time is over, or SIGINT or SIGTERM asks for the end; then
 * prints a summary.
 * @return an exit_status: 1 when the address cannot be bound, a datagram was malformed, or the time was over
 * before `count` had come; standard error says which
 */
int run_link(const link_options &options);

} // namespace vexa

#endif
