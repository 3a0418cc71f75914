/**
 * @file
 * What "vexa send" and "vexa status send" have in common: a payload goes to one node, directly or through the
 * queue, or to all nodes below the sender.
 */
#ifndef VEXA_USER_MESSAGE_H
#define VEXA_USER_MESSAGE_H

#include "node_options.h"
#include "payload.h"
#include "stream.h"
#include "vx_msg_def.h"

namespace vexa {

struct message_options {
    vx_msg_type kind = MSTP_USER_DATA_PROC_BY_CALLBACK; /**< or MSTP_USER_DATA_OVER_WRITE */
    uint16_t type = 0;                                  /**< of a status */
    uint16_t to = 0;
    bool broadcast = false;
    bool queued = false;
    bool json = false;
    payload_options payload;
    stream_options stream;
    node_options node;
};

/** Adds the options but for --type. */
void add_message_options(CLI::App &command, message_options &options);

/** Joins, waits for the receivers, sends, leaves. An exit_status. @throws node_trouble */
int run_messages(const message_options &options);

} // namespace vexa

#endif
