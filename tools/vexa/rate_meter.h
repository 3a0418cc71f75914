/**
 * @file
 * How often something comes, told by the time stamps of what has come: never by when it was looked at.
 * Messages are not counted in a window whose ends fall anywhere between two of them, which at 1 Hz would be
 * wrong by one in a few, but from one message to another.
 *
 *     vexa::rate_meter meter;
 *     meter.add(packet_time_ns, bytes);
 *     meter.now(now_ns)->messages; // per second, over about the last three seconds
 *
 * Memory is bounded: slots of a tenth of a second, 33 that are not empty.
 */
#ifndef VEXA_RATE_METER_H
#define VEXA_RATE_METER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace vexa {

struct rate {
    double messages = 0; /**< per second */
    double bytes = 0;    /**< per second */
};

class rate_meter {
public:
    /** Takes a message. One that is older than the last counts as of the same time; the clock was set back
     * when it is older by a second, and the meter begins anew. */
    void add(int64_t time_ns, size_t bytes);

    /**
     * The rate at this moment; falls when the next message is overdue. Nothing after a single message, or
     * when all have the same time.
     */
    [[nodiscard]] std::optional<rate> now(int64_t now_ns) const;

    /** From the first message to the last. Nothing after a single message. */
    [[nodiscard]] std::optional<rate> mean() const;

    /** Messages in each of the last `seconds` whole seconds, oldest first; at most 60. */
    [[nodiscard]] std::vector<uint32_t> history(int64_t now_ns, size_t seconds) const;

    [[nodiscard]] uint64_t messages() const { return messages_; }
    [[nodiscard]] uint64_t bytes() const { return bytes_; }
    [[nodiscard]] int64_t first_ns() const { return first_ns_; }
    [[nodiscard]] int64_t last_ns() const { return last_ns_; }

private:
    static constexpr size_t k_slots = 33;
    static constexpr size_t k_seconds = 60;

    struct slot {
        int64_t number = 0; // of its tenth of a second
        uint32_t messages = 0;
        uint64_t bytes = 0;
        int64_t last_ns = 0;
        int64_t longest_gap_ns = 0; // before one of its messages
    };
    struct reach { // a row of messages, without the one that it begins behind
        uint64_t messages = 0;
        uint64_t bytes = 0;
        int64_t begin_ns = 0;
        int64_t longest_gap_ns = 0;
    };

    void begin(int64_t time_ns, size_t bytes);
    void count_second(int64_t time_ns);
    [[nodiscard]] const slot &newest(size_t age) const { return slots_[(head_ + k_slots - age) % k_slots]; }
    [[nodiscard]] reach last_seconds() const;
    [[nodiscard]] rate of_the_window(int64_t now_ns) const;

    uint64_t messages_ = 0;
    uint64_t bytes_ = 0;
    size_t first_bytes_ = 0;
    int64_t first_ns_ = 0;
    int64_t last_ns_ = 0;
    int64_t base_ns_ =
        0; // of the last message that is in no slot any more; the first is in none from the start
    std::array<slot, k_slots> slots_ = {};
    size_t head_ = 0; // the newest one
    size_t used_ = 0;
    std::array<uint32_t, k_seconds> seconds_ = {}; // each at its number, modulo
    int64_t newest_second_ = 0;
};

} // namespace vexa

#endif
