// Rates from time stamps. See rate_meter.h.
#include "rate_meter.h"

#include <algorithm>

namespace vexa {
namespace {

constexpr int64_t k_ns_per_s = 1'000'000'000;
constexpr int64_t k_slot_ns = 100'000'000;
constexpr int64_t k_window_ns = 3 * k_ns_per_s;
constexpr int64_t k_set_back_ns = k_ns_per_s;
constexpr int64_t k_on_its_way_ns = 300'000'000; // that a packet may take until it is handed to the meter

double seconds(int64_t ns) {
    return static_cast<double>(ns) / static_cast<double>(k_ns_per_s);
}

rate per_second(uint64_t messages, uint64_t bytes, int64_t during_ns) {
    return {static_cast<double>(messages) / seconds(during_ns),
            static_cast<double>(bytes) / seconds(during_ns)};
}

} // namespace

void rate_meter::begin(int64_t time_ns, size_t bytes) {
    first_bytes_ = bytes;
    first_ns_ = time_ns;
    last_ns_ = time_ns;
    base_ns_ = time_ns;
    messages_ = 0;
    bytes_ = 0;
    used_ = 0;
    seconds_.fill(0);
    newest_second_ = time_ns / k_ns_per_s;
}

void rate_meter::add(int64_t time_ns, size_t bytes) {
    if (messages_ == 0 || time_ns < last_ns_ - k_set_back_ns) {
        begin(time_ns, bytes);
    } else {
        time_ns = std::max(time_ns, last_ns_);
        const int64_t number = time_ns / k_slot_ns;
        if (used_ == 0 || newest(0).number != number) {
            head_ = (head_ + 1) % k_slots;
            base_ns_ = used_ == k_slots ? slots_[head_].last_ns : base_ns_;
            used_ = std::min(used_ + 1, k_slots);
            slots_[head_] = {.number = number};
        }
        slot &to = slots_[head_];
        ++to.messages;
        to.bytes += bytes;
        to.longest_gap_ns = std::max(to.longest_gap_ns, time_ns - last_ns_);
        to.last_ns = time_ns;
        last_ns_ = time_ns;
    }
    ++messages_;
    bytes_ += bytes;
    count_second(time_ns);
}

void rate_meter::count_second(int64_t time_ns) {
    const int64_t second = time_ns / k_ns_per_s;
    const int64_t first_new = std::max(newest_second_ + 1, second - static_cast<int64_t>(k_seconds) + 1);
    for (int64_t i = first_new; i <= second; ++i) {
        seconds_[static_cast<size_t>(i) % k_seconds] = 0;
    }
    newest_second_ = std::max(newest_second_, second);
    ++seconds_[static_cast<size_t>(second) % k_seconds];
}

/// Back from the last message to the first one that is older than it by the window; further where messages
/// are rare, so that there is always one behind which to begin.
rate_meter::reach rate_meter::last_seconds() const {
    reach all{.begin_ns = base_ns_};
    for (size_t age = 0; age < used_; ++age) {
        const slot &each = newest(age);
        if (each.last_ns <= last_ns_ - k_window_ns) {
            all.begin_ns = each.last_ns;
            break;
        }
        all.messages += each.messages;
        all.bytes += each.bytes;
        all.longest_gap_ns = std::max(all.longest_gap_ns, each.longest_gap_ns);
    }
    return all;
}

rate rate_meter::of_the_window(int64_t now_ns) const {
    uint64_t messages = 0;
    uint64_t bytes = 0;
    for (size_t age = 0; age < used_ && newest(age).last_ns > now_ns - k_window_ns; ++age) {
        messages += newest(age).messages;
        bytes += newest(age).bytes;
    }
    return per_second(messages, bytes, k_window_ns);
}

std::optional<rate> rate_meter::now(int64_t now_ns) const {
    const int64_t silence = now_ns - last_ns_;
    if (messages_ < 2) {
        return messages_ == 0 || silence < k_window_ns ? std::nullopt : std::optional{rate{}};
    }
    const reach last = last_seconds();
    if (silence > last.longest_gap_ns + last.longest_gap_ns / 2 + k_on_its_way_ns) {
        return of_the_window(now_ns);
    }
    return last_ns_ > last.begin_ns
               ? std::optional{per_second(last.messages, last.bytes, last_ns_ - last.begin_ns)}
               : std::nullopt;
}

std::optional<rate> rate_meter::mean() const {
    return last_ns_ > first_ns_
               ? std::optional{per_second(messages_ - 1, bytes_ - first_bytes_, last_ns_ - first_ns_)}
               : std::nullopt;
}

std::vector<uint32_t> rate_meter::history(int64_t now_ns, size_t seconds) const {
    const int64_t end = (now_ns - k_on_its_way_ns) / k_ns_per_s; // the running second is not whole
    const auto wanted = static_cast<int64_t>(std::min(seconds, k_seconds));
    std::vector<uint32_t> all;
    for (int64_t second = end - wanted; second < end; ++second) {
        const bool kept =
            second <= newest_second_ && second > newest_second_ - static_cast<int64_t>(k_seconds);
        all.push_back(kept && second >= 0 ? seconds_[static_cast<size_t>(second) % k_seconds] : 0);
    }
    return all;
}

} // namespace vexa
