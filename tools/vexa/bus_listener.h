/**
 * @file
 * Listens to the bus for a while without taking part in it: every UDP datagram that this machine sends or
 * receives, from the capture layer, with a bound.
 *
 *     vexa::listen_to_bus({"any", 11}, [&](const vexa::udp_datagram &d) { note(d); return true; });
 */
#ifndef VEXA_BUS_LISTENER_H
#define VEXA_BUS_LISTENER_H

#include "datagrams.h"

#include <functional>
#include <string>

namespace vexa {

struct listen_options {
    std::string interface = "any";
    double seconds = 11; /**< keep-alives, and the manager's answers to them, come every 10 s */
};

/** How listening ended. */
enum class listen_end {
    over,     /**< the time is */
    enough,   /**< the visitor wanted no more */
    signalled /**< SIGINT or SIGTERM came; what had happened before was still seen */
};

/**
 * @param visit  sees every datagram; false: enough
 * @param ready  called once everything that happens from then on will be seen
 * @throws capture_error when this program may not see the packets; the text says what to do
 */
listen_end listen_to_bus(const listen_options &options,
                         const std::function<bool(const udp_datagram &)> &visit,
                         const std::function<void()> &ready = {});

} // namespace vexa

#endif
