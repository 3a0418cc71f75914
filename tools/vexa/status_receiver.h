/** @file Waits for statuses of one type, as a node of the bus. */
#ifndef VEXA_STATUS_RECEIVER_H
#define VEXA_STATUS_RECEIVER_H

#include "bus_node.h"

namespace vexa {

struct status_receiver_options {
    uint16_t type = 0;
    uint64_t count = 1;
    double wait_s = 10; /**< once registered */
    bool json = false;
    node_options node;
};

/** Prints each new status. An exit_status: 1 when `count` of them did not come in time. @throws node_trouble
 */
int run_status_receiver(const status_receiver_options &options);

} // namespace vexa

#endif
