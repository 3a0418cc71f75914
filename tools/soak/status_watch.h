/**
 * @file
 * One polled status: what has arrived for its key, in order, and how far an application has followed. Seeing
 * one arrival means that those before it were overwritten unseen.
 */
#ifndef SOAK_STATUS_WATCH_H
#define SOAK_STATUS_WATCH_H

#include "receiver.h"

#include <array>
#include <cstdint>
#include <optional>

namespace soak {

/** @par Threads  None of its own: the owner locks. */
class status_watch {
public:
    struct arrival {
        uint64_t check;
        verdict what;
    };

    /** False when the application is so far behind that the oldest arrival is forgotten. */
    bool arrived(const arrival &one) {
        ring_[end_++ % ring_.size()] = one;
        return end_ - followed_ <= ring_.size();
    }

    /**
     * A poll has brought something.
     * @param received  its time of arrival
     * @param skip      called with each arrival that was overwritten before
     * @return whether it has ever arrived
     */
    template <class Skip>
    bool seen(uint64_t check, int64_t received, Skip skip, std::optional<arrival> &found) {
        found.reset();
        if (last_check_ == check && last_received_ == received) {
            return true; // the same again
        }
        uint64_t at = followed_;
        while (at < end_ && ring_[at % ring_.size()].check != check) {
            ++at;
        }
        if (at == end_) {
            return false;
        }
        for (; followed_ < at; ++followed_) {
            skip(ring_[followed_ % ring_.size()]);
        }
        found = ring_[followed_++ % ring_.size()];
        last_check_ = check;
        last_received_ = received;
        return true;
    }

    /** Nothing more is on its way: what has arrived since and is equal to what was seen has replaced it
     * within one microsecond. */
    template <class Skip>
    void settle(Skip skip) {
        while (followed_ < end_ && ring_[followed_ % ring_.size()].check == last_check_) {
            skip(ring_[followed_++ % ring_.size()]);
        }
    }

private:
    std::array<arrival, 1024> ring_{};
    uint64_t end_ = 0;      // arrivals so far
    uint64_t followed_ = 0; // those seen or known to have been overwritten
    std::optional<uint64_t> last_check_;
    int64_t last_received_ = 0;
};

} // namespace soak

#endif
