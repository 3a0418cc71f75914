/**
 * @file
 * The soak's bookkeeping: how often each thing has happened, by what it was and to which message. Every
 * process of the soak keeps one, and at the end they are laid beside each other. Room is taken once, at
 * construction, so that counting never shows in the memory that is being watched.
 *
 *     soak::tally counts{4096};
 *     counts.add({.what = soak::event::call, .by = soak::way::direct, .sender = 3, .target = 5});
 */
#ifndef SOAK_TALLY_H
#define SOAK_TALLY_H

#include <bit>
#include <compare>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace soak {

/** How a message travels: by which call, or as which message of the session. */
enum class way : uint8_t {
    none, /**< nobody's: garbage, or a message that is not what it was */
    direct,
    queued,
    app_direct,
    app_queued,
    status,
    broadcast,
    status_broadcast,
    heartbeat,
    heartbeat_on, /**< a heartbeat change as the proxy sends it on */
    registration,
    table, /**< the node manager's */
    number_of_ways
};

/** What becomes of a datagram in a receiver. */
enum class outcome : uint8_t {
    none,
    whole,             /**< the application gets what was sent to it */
    damaged_callback,  /**< the callback gets something else */
    damaged_status,    /**< the receive queue keeps something else */
    damaged_heartbeat, /**< other heartbeat pairs are applied */
    table,             /**< its records, if any, go into the node table */
    too_short,         /**< from here on: dropped */
    wrong_magic,
    wrong_ids,
    irrelevant_kind,
    status_cut_short,
    status_foreign,
    request, /**< the node manager can read it; from here on: the manager's outcomes */
    refused_by_manager,
    number_of_outcomes
};

/** What is counted. */
enum class event : uint8_t {
    // by a node
    call,        /**< the application has called; a broadcast counts once for each node that ought to get it.
                      Of the relay: it has made garbage */
    refused,     /**< the call has said no */
    inactive,    /**< not sent: the next hop was not active when the message left its queue */
    overstocked, /**< the transmit queue was full and has dropped its oldest message */
    failed,      /**< the system would not send it */
    astray,      /**< sent to an address where nobody of the bus is */
    handed,      /**< sent to an address of the bus, which `place` names */
    read,        /**< received; `result` is what it must become */
    given,       /**< the application has seen it become that */
    overwritten, /**< kept for polling, and replaced before it was seen */
    unpolled,    /**< kept under a key that nobody polls */
    line_due,    /**< a line that the library must log; `place` is a log_line */
    line_seen,   /**< and has logged */
    // by the relay
    taken,     /**< received at the socket `place` */
    lost,      /**< dropped on purpose */
    doubled,   /**< sent once more than it came */
    corrupted, /**< changed on purpose */
    delayed,   /**< sent late */
    held_back, /**< sent behind its successor */
    put,       /**< sent to the node `place`, where it must become `result` */
    unsendable /**< the system would not send it */
};

/** What is counted together. `target` is the destination in the header. */
struct tally_key {
    event what{};
    way by = way::none;
    outcome result = outcome::none;
    uint8_t place = 0;
    uint16_t sender = 0;
    uint16_t target = 0;
    auto operator<=>(const tally_key &) const = default;
};
static_assert(sizeof(tally_key) == sizeof(uint64_t));

/** @par Threads  None of its own: the owner locks. */
class tally {
public:
    /** @param room  a power of two: how many different keys it can take */
    explicit tally(size_t room) : cells_(room) {}

    /** @throws std::length_error when there is no room for another key */
    void add(const tally_key &key, uint64_t times = 1) {
        cell &one = cells_[index_of(key)];
        one.key = key;
        one.used = true;
        one.count += times;
    }

    [[nodiscard]] uint64_t get(const tally_key &key) const { return cells_[index_of(key)].count; }

    template <class Visitor>
    void each(Visitor visit) const {
        for (const cell &one : cells_) {
            if (one.count != 0) {
                visit(one.key, one.count);
            }
        }
    }

private:
    struct cell {
        tally_key key;
        uint64_t count = 0;
        bool used = false;
    };

    /// Where the key is, or would be.
    [[nodiscard]] size_t index_of(const tally_key &key) const {
        const uint64_t spread = std::bit_cast<uint64_t>(key) * 0x9E3779B97F4A7C15U;
        const size_t mask = cells_.size() - 1;
        for (size_t step = 0; step < cells_.size(); ++step) {
            const size_t index = ((spread >> 32) + step) & mask;
            if (!cells_[index].used || cells_[index].key == key) {
                return index;
            }
        }
        throw std::length_error("soak: a tally is full");
    }

    std::vector<cell> cells_;
};

} // namespace soak

#endif
