// The work that every contender does. See work.h.
#include "work.h"

#include "bare_socket.h"
#include "utils/ut_le.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <numeric>
#include <thread>
#include <utility>

namespace bench {
namespace {

using namespace std::chrono_literals;

constexpr auto k_patience = 1s;
constexpr uint32_t k_most_lost = 3;   // of one order, which then is given up
constexpr auto k_settled = 200ms;     // without a message
constexpr size_t k_number_offset = 4; // behind the key of a status
constexpr size_t k_time_offset = 8;
constexpr int64_t k_second_ns = 1'000'000'000;

void sleep_until(int64_t ns) {
    const timespec until{ns / k_second_ns, ns % k_second_ns};
    (void)clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
}

} // namespace

int64_t now_ns() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now); // cannot fail for this clock
    return now.tv_sec * k_second_ns + now.tv_nsec;
}

message_buffer::message_buffer() : bytes_(k_most_datagram) {
}

uint8_t *message_buffer::payload() {
    return bytes_.data() + k_head_bytes;
}

void message_buffer::set_number(uint32_t number) {
    ut_put_le32(payload() + k_number_offset, number);
}

void message_buffer::set_time(int64_t ns) {
    ut_put_le32(payload() + k_time_offset, static_cast<uint32_t>(ns));
    ut_put_le32(payload() + k_time_offset + 4, static_cast<uint32_t>(ns >> 32));
}

uint32_t number_of(const uint8_t *payload) {
    return ut_get_le32(payload + k_number_offset);
}

int64_t time_of(const uint8_t *payload) {
    return static_cast<int64_t>(ut_get_le32(payload + k_time_offset)) |
           static_cast<int64_t>(ut_get_le32(payload + k_time_offset + 4)) << 32;
}

ask_result asker::ask(side &own, const ask_order &order) {
    own_ = &own;
    order_ = order;
    result_ = {};
    result_.samples_ns.reserve(order.count);
    answered_ = 0;
    done_ = false;
    send_burst();
    std::unique_lock hold{lock_};
    while (!done_) {
        const uint32_t before = answered_;
        const bool in_time = wake_.wait_for(hold, k_patience, [this] { return done_; });
        if (in_time || answered_ != before) {
            continue;
        }
        if (++result_.lost == k_most_lost) {
            number_ += order_.burst; // whatever still comes is no answer any more
            break;
        }
        send_burst();
    }
    return result_;
}

uint32_t asker::stream(side &own, size_t size_bytes, uint32_t per_second, uint32_t count) {
    const int64_t begin = now_ns();
    for (uint32_t i = 0; i < count; ++i) {
        const int64_t due = begin + k_second_ns * i / per_second;
        if (now_ns() < due) {
            sleep_until(due);
        }
        out_.set_number(++number_);
        out_.set_time(now_ns());
        own.send(out_.payload(), size_bytes);
    }
    return count;
}

void asker::send_burst() {
    number_ += order_.burst - number_ % order_.burst; // a burst ends at a multiple of its length
    begun_ns_ = now_ns();
    for (uint32_t i = 0; i < order_.burst; ++i) {
        out_.set_number(++number_);
        own_->send(out_.payload(), order_.size_bytes);
    }
}

void asker::on_message(const uint8_t *payload, size_t /*size_bytes*/) {
    if (number_of(payload) != number_) {
        return; // the answer to a burst that was given up
    }
    result_.samples_ns.push_back(static_cast<uint32_t>(now_ns() - begun_ns_) / order_.burst);
    if (++answered_ < order_.count) {
        send_burst();
        return;
    }
    const std::lock_guard hold{lock_};
    done_ = true;
    wake_.notify_one();
}

void answerer::answer_every(side &own, uint32_t burst) {
    own_ = &own;
    burst_ = burst;
}

void answerer::settle() {
    const auto arrived = [this] {
        const std::lock_guard hold{lock_};
        return delays_ns_.size();
    };
    for (size_t before = arrived();; before = arrived()) {
        std::this_thread::sleep_for(k_settled);
        if (arrived() == before) {
            return;
        }
    }
}

std::vector<uint32_t> answerer::take_delays() {
    const std::lock_guard hold{lock_};
    return std::exchange(delays_ns_, {});
}

void answerer::on_message(const uint8_t *payload, size_t size_bytes) {
    const uint32_t burst = burst_.load(std::memory_order_relaxed);
    if (burst == 0) {
        const std::lock_guard hold{lock_};
        delays_ns_.push_back(static_cast<uint32_t>(now_ns() - time_of(payload)));
    } else if (number_of(payload) % burst == 0) {
        own_.load(std::memory_order_relaxed)->send(payload, size_bytes);
    }
}

uint32_t percentile(std::vector<uint32_t> &samples, double share) {
    if (samples.empty()) {
        return 0;
    }
    const auto rank = static_cast<size_t>(share * static_cast<double>(samples.size() - 1));
    std::nth_element(samples.begin(), samples.begin() + static_cast<ptrdiff_t>(rank), samples.end());
    return samples[rank];
}

double mean(const std::vector<uint32_t> &samples) {
    return samples.empty()
               ? 0
               : std::accumulate(samples.begin(), samples.end(), 0.0) / static_cast<double>(samples.size());
}

} // namespace bench
