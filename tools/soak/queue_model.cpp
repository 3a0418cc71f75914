// The model of the receive queue. See queue_model.h.
#include "queue_model.h"

#include <algorithm>

namespace soak {
namespace {

constexpr size_t k_most_queued = 1024; // a put that finds more drops the oldest

constexpr size_t k_piece_head = 16;  // [bytes]
constexpr size_t k_piece_align = 16; // [bytes] as malloc's

} // namespace

void piece_model::take(size_t size) {
    const size_t room = (size + k_piece_align - 1) / k_piece_align * k_piece_align;
    if (used_ + room > k_piece) {
        ++pieces_;
        used_ = k_piece_head;
    }
    used_ += room;
}

size_t queue_model::copy_size(size_t payload_bytes) {
    return VX_MSG_HEAD_SIZE + std::max(payload_bytes, sizeof(uint16_t)); // there is always room for a key
}

put_result queue_model::put(const kept_status &arrived) {
    if (size_ > k_most_queued) {
        remove(0);
        append(arrived);
        return put_result::overstocked;
    }
    const auto found = std::ranges::find(entries_.begin(), entries_.begin() + size_, arrived.key,
                                         [](const entry &one) { return one.kept.key; });
    const auto index = static_cast<size_t>(found - entries_.begin());
    if (index == size_) {
        append(arrived);
        return put_result::first_of_its_key;
    }
    if (entries_.at(index).kept.length < arrived.length) {
        remove(index);
        append(arrived);
        return put_result::grown;
    }
    entries_.at(index).kept = arrived;
    return put_result::overwritten;
}

copies queue_model::held() const {
    copies all;
    for (const entry &one : entries()) {
        all.add(one.copy_bytes);
    }
    return all;
}

void queue_model::append(const kept_status &arrived) {
    entries_.at(size_++) = {arrived, copy_size(arrived.length)};
    made_.add(copy_size(arrived.length));
}

void queue_model::remove(size_t index) {
    std::move(entries_.begin() + index + 1, entries_.begin() + size_, entries_.begin() + index);
    --size_;
}

} // namespace soak
