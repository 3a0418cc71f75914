/**
 * @file
 * What a pair is measured with. The asking side sends a burst of messages (a burst of one is a round trip)
 * and waits for the answer to its last; or it sends a stream at a fixed pace. The answering side answers the
 * last message of each burst, or notes when each message of a stream came.
 */
#ifndef BENCH_WORK_H
#define BENCH_WORK_H

#include "side.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

namespace bench {

/** Time on the clock that all processes of a machine share [ns]. */
int64_t now_ns();

/** A payload with room for a header before it. */
class message_buffer {
public:
    message_buffer();
    [[nodiscard]] uint8_t *payload();
    /** Numbers the message, so that it is known from the one before. */
    void set_number(uint32_t number);
    void set_time(int64_t ns);

private:
    std::vector<uint8_t> bytes_;
};

uint32_t number_of(const uint8_t *payload);
int64_t time_of(const uint8_t *payload);

struct ask_order {
    size_t size_bytes;
    uint32_t burst; ///< messages per answer
    uint32_t count; ///< answers
};

struct ask_result {
    std::vector<uint32_t> samples_ns; ///< per burst: from the first send to the answer, divided by the burst
    uint32_t lost = 0; ///< bursts that were not answered within a second; after three the rest is not asked
};

class asker : public listener {
public:
    ask_result ask(side &own, const ask_order &order);
    /** @return the messages sent; they carry the time at which they were sent */
    uint32_t stream(side &own, size_t size_bytes, uint32_t per_second, uint32_t count);
    void on_message(const uint8_t *payload, size_t size_bytes) override;

private:
    void send_burst();

    side *own_ = nullptr;
    ask_order order_{};
    message_buffer out_;
    std::atomic<uint32_t> number_{0}; // of the last message sent
    int64_t begun_ns_ = 0;
    ask_result result_;
    std::atomic<uint32_t> answered_{0}; // of this order
    std::mutex lock_;                   // with `done_`, which the receiving thread sets
    std::condition_variable wake_;
    bool done_ = true;
};

class answerer : public listener {
public:
    /** Answers every message whose number can be divided by this; 0: notes when each one came instead. */
    void answer_every(side &own, uint32_t burst);
    /** Returns once no message of a stream has come for a fifth of a second. */
    void settle();
    /** How long each message of a stream was on its way [ns]. Once the stream is over. */
    std::vector<uint32_t> take_delays();
    void on_message(const uint8_t *payload, size_t size_bytes) override;

private:
    std::atomic<side *> own_{nullptr};
    std::atomic<uint32_t> burst_{0};
    std::mutex lock_;                 // guards the rest
    std::vector<uint32_t> delays_ns_; // of a stream
};

/** The sample below which this share of all samples lies; 0 when there are none. Reorders the samples. */
uint32_t percentile(std::vector<uint32_t> &samples, double share);

double mean(const std::vector<uint32_t> &samples);

} // namespace bench

#endif
