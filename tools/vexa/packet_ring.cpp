// The newest packets. See packet_ring.h.
#include "packet_ring.h"

namespace vexa {
namespace {

constexpr size_t k_around = 64; // [bytes] of the allocator and of the deque, about

} // namespace

void packet_ring::add(const raw_packet &packet, bool completes) {
    held_.push_back({packet, {packet.bytes.begin(), packet.bytes.end()}, completes});
    held_packet &newest = held_.back();
    newest.packet.bytes = newest.bytes;
    bytes_ += sizeof newest + k_around + newest.bytes.size();
    while (holds_.time_ns && packet.time_ns - held_.front().packet.time_ns > *holds_.time_ns) {
        drop_oldest();
    }
    while (bytes_ > holds_.bytes.value_or(k_most_bytes) && held_.size() > 1) {
        drop_oldest();
        shortened_ = holds_.time_ns.has_value();
    }
}

void packet_ring::drop_oldest() {
    bytes_ -= sizeof held_.front() + k_around + held_.front().bytes.size();
    held_.pop_front();
}

void packet_ring::drain(const std::function<void(const raw_packet &, bool)> &to) {
    for (const held_packet &each : held_) {
        to(each.packet, each.completes);
    }
    held_.clear();
    bytes_ = 0;
}

} // namespace vexa
