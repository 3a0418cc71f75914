/**
 * @file
 * Datagrams as a capture hands them on, with times of the test's own.
 *
 *     captured d(bus::message({1, 9, 3}, bus::text("hello")), 9, 3);
 *     table.see(d.at(1.5));
 */
#ifndef TEST_ROUTE_DATAGRAMS_H
#define TEST_ROUTE_DATAGRAMS_H

#include "datagrams.h"
#include "route_messages.h"

#include <cmath>

class captured {
public:
    static constexpr int64_t k_begin_ns = 1'700'000'000'000'000'000;

    /** From one node's socket to another's. */
    captured(bus::bytes payload, uint16_t from, uint16_t to)
        : captured(std::move(payload), of(from), of(to)) {}
    captured(bus::bytes payload, vexa::endpoint from, vexa::endpoint to)
        : payload_(std::move(payload)), from_(from), to_(to) {}

    /** So many seconds after the test's beginning. */
    [[nodiscard]] vexa::udp_datagram at(double seconds) const {
        return {.time_ns = k_begin_ns + std::llround(seconds * 1e9),
                .src = from_,
                .dst = to_,
                .wire_size = payload_.size(),
                .bytes = payload_};
    }

    static vexa::endpoint of(uint16_t id) {
        return {0xC0A80100U + (id == 0 ? 1 : id), static_cast<uint16_t>(9000 + id)};
    }

private:
    bus::bytes payload_;
    vexa::endpoint from_;
    vexa::endpoint to_;
};

#endif
