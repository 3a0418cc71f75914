/**
 * @file
 * What `vexa record` does with the packets that it sees: writes those that are wanted, up to a limit; or
 * keeps the newest in memory until something triggers, and writes what was before it and a while after it.
 *
 *     vexa::recorder all(options, section, interface);
 *     while (all.take(packet) && all.tick(counts)) { ... }
 *     all.finish(counts);
 */
#ifndef VEXA_RECORDER_H
#define VEXA_RECORDER_H

#include "packet_picker.h"
#include "packet_ring.h"
#include "recording.h"

#include <chrono>
#include <memory>
#include <optional>

namespace vexa {

struct recorder_options {
    recording_options to;
    packet_picker::options what = {};
    uint64_t count = 0;                         /**< messages; 0: no limit */
    std::optional<uint64_t> most_bytes = {};    /**< of all files together */
    amount ring = {};                           /**< given: wait for a trigger */
    std::optional<message_filter> trigger = {}; /**< without one only trigger_now() does */
    int64_t after_ns = 5'000'000'000;           /**< recorded behind the trigger */
};

class recorder {
public:
    /** Creates the file, or sees whether it could. @throws file_error */
    recorder(recorder_options how, pcapng::section about, pcapng::interface from);
    recorder(const recorder &) = delete;
    recorder &operator=(const recorder &) = delete;

    /** Takes a packet; false when no more are wanted. @throws file_error */
    bool take(const raw_packet &packet);

    /** Between packets, at least every 100 ms. False when no more are wanted. @throws file_error */
    bool tick(const capture_counts &so_far);

    /** Triggers, if it still waits for that. @throws file_error */
    void trigger_now();

    /** @throws file_error */
    void finish(const capture_counts &counts);

    /** What has been written; nullptr while it waits for a trigger. */
    [[nodiscard]] const recording *written() const { return to_.get(); }
    [[nodiscard]] const packet_ring &ring() const { return ring_; }

    /** Written. */
    [[nodiscard]] uint64_t messages() const { return messages_; }

    /** Packets that stood in the ring when it was triggered. */
    [[nodiscard]] uint64_t packets_before() const { return packets_before_; }

private:
    void handle(const raw_packet &packet, const seen_message *message);
    void write(const raw_packet &packet, bool completes);
    void fire(int64_t time_ns);

    recorder_options how_;
    pcapng::section about_;
    pcapng::interface from_;
    packet_picker picker_;
    packet_picker::sink sink_;
    packet_ring ring_;
    std::unique_ptr<recording> to_;
    uint64_t messages_ = 0;
    uint64_t packets_before_ = 0;
    bool enough_ = false;
    std::optional<int64_t> last_ns_ = {}; // since 1970; packets after it are not wanted
    std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::time_point::max();
};

} // namespace vexa

#endif
