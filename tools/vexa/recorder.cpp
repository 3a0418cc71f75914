// Which packets are written, and when. See recorder.h.
#include "recorder.h"

#include "wall_clock.h"

#include <utility>

namespace vexa {
namespace {

using std::chrono::steady_clock;

constexpr auto k_capture_delay = std::chrono::milliseconds(100); // more than packets take to get here

} // namespace

recorder::recorder(recorder_options how, pcapng::section about, pcapng::interface from)
    : how_(std::move(how)),
      about_(std::move(about)),
      from_(std::move(from)),
      picker_(how_.what),
      sink_([this](const raw_packet &packet, const seen_message *message) { handle(packet, message); }),
      ring_(how_.ring) {
    if (how_.ring.is_given()) {
        check_target(how_.to);
    } else {
        to_ = std::make_unique<recording>(how_.to, about_, from_);
    }
}

bool recorder::take(const raw_packet &packet) {
    picker_.feed(packet, sink_);
    return !enough_;
}

void recorder::handle(const raw_packet &packet, const seen_message *message) {
    if (to_) {
        write(packet, message != nullptr);
        return;
    }
    ring_.add(packet, message != nullptr);
    if (message != nullptr && how_.trigger && how_.trigger->matches(*message)) {
        fire(packet.time_ns);
    }
}

void recorder::write(const raw_packet &packet, bool completes) {
    const bool too_late = last_ns_ && packet.time_ns > *last_ns_;
    const bool too_much = how_.most_bytes && to_->size_with(packet) > *how_.most_bytes;
    enough_ = enough_ || too_late || too_much;
    if (enough_) {
        return;
    }
    to_->add(packet);
    messages_ += completes ? 1 : 0;
    enough_ = how_.count > 0 && messages_ >= how_.count;
}

void recorder::trigger_now() {
    if (!to_) {
        fire(wall_clock_ns());
    }
}

void recorder::fire(int64_t time_ns) {
    to_ = std::make_unique<recording>(how_.to, about_, from_);
    packets_before_ = ring_.packets();
    ring_.drain([this](const raw_packet &packet, bool completes) { write(packet, completes); });
    last_ns_ = time_ns + how_.after_ns;
    last_ = steady_clock::now() + std::chrono::nanoseconds(how_.after_ns) + k_capture_delay;
}

bool recorder::tick(const capture_counts &so_far) {
    picker_.release_old(wall_clock_ns(), sink_);
    if (to_) {
        to_->tick(so_far);
    }
    return !enough_ && steady_clock::now() < last_;
}

void recorder::finish(const capture_counts &counts) {
    picker_.finish(sink_);
    if (to_) {
        to_->finish(counts);
    }
}

} // namespace vexa
