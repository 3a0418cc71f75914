/**
 * @file
 * All contenders by name. Those of other makers' libraries are there when this was built with them.
 */
#ifndef BENCH_CONTENDERS_H
#define BENCH_CONTENDERS_H

#include "side.h"

#include <span>

namespace bench {

std::unique_ptr<side> make_bare_udp(const place &where, listener &to);
std::unique_ptr<side> make_bare_loop(const place &where, listener &to);
std::unique_ptr<side> make_bare_queue(const place &where, listener &to);
std::unique_ptr<side> make_bus_direct(const place &where, listener &to);
std::unique_ptr<side> make_bus_queued(const place &where, listener &to);
std::unique_ptr<side> make_bus_broadcast(const place &where, listener &to);
std::unique_ptr<side> make_bus_polled(const place &where, listener &to);
std::unique_ptr<side> make_cyclonedds(const place &where, listener &to);
std::unique_ptr<side> make_lcm(const place &where, listener &to);
std::unique_ptr<side> make_mosquitto(const place &where, listener &to);
std::unique_ptr<side> make_nng(const place &where, listener &to);
std::unique_ptr<side> make_zeromq(const place &where, listener &to);

struct contender {
    const char *name;
    make_side make; ///< null: not built, for want of `package`
    const char *package;
};

/** In the order in which they are measured. */
std::span<const contender> contenders();

/** Null when there is none of that name. */
const contender *find_contender(const std::string &name);

} // namespace bench

#endif
