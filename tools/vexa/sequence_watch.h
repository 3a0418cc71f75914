/**
 * @file
 * Follows the `sequence` of one sender of the vision link and says what is missing in it.
 *
 *     vexa::sequence_watch watch;
 *     watch.step(7);                    // the first one: nothing can be missing before it
 *     watch.step(10).missing;           // 2
 */
#ifndef VEXA_SEQUENCE_WATCH_H
#define VEXA_SEQUENCE_WATCH_H

#include <cstdint>
#include <optional>

namespace vexa {

class sequence_watch {
public:
    struct step_result {
        uint16_t missing = 0; /**< numbers left out just before this one */
        bool late = false;    /**< an older number: overtaken, sent twice, or the sender has started anew */
    };

    /** Takes the number of the next datagram. It counts as newer when it lies in the half before which the
     * last one stands, so a row of numbers may wrap; a late one does not move the row. */
    step_result step(uint16_t sequence) {
        if (!last_) {
            last_ = sequence;
            return {};
        }
        const auto ahead = static_cast<uint16_t>(sequence - *last_ - 1);
        if (ahead >= k_half) {
            return {.missing = 0, .late = true};
        }
        last_ = sequence;
        return {.missing = ahead, .late = false};
    }

private:
    static constexpr uint16_t k_half = 0x8000;

    std::optional<uint16_t> last_; // the newest number so far
};

} // namespace vexa

#endif
