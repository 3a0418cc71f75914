// A soak node's application. See generator.h.
#include "generator.h"

#include "node_record.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace soak {
namespace {

using namespace std::chrono_literals;

constexpr int k_fields = 73;       // of the heartbeat frame
constexpr auto k_first_burst = 1s; // of the first node; each next one follows by k_between_bursts
constexpr auto k_between_bursts = 6s;
constexpr size_t k_burst = 1200;       // more than the queue takes
constexpr size_t k_burst_payload = 48; // [bytes]
constexpr auto k_longest_stall = 1s;   // that the callback puts up with
constexpr auto k_round_pause = 2ms;    // between messages of a round

/// Keeps the callback, and with it the I/O thread, from returning.
class stall_gate {
public:
    /// The callback's: waits while the gate is wanted shut.
    void pass() {
        std::unique_lock hold{lock_};
        if (wanted_) {
            stalled_ = true;
            changed_.notify_all();
            (void)changed_.wait_for(hold, k_longest_stall, [this] { return !wanted_; });
            stalled_ = false;
        }
    }

    /// The application's: returns with the callback stopped, or false because none came.
    bool shut() {
        std::unique_lock hold{lock_};
        wanted_ = true;
        return changed_.wait_for(hold, k_longest_stall, [this] { return stalled_; });
    }

    void open() {
        const std::lock_guard hold{lock_};
        wanted_ = false;
        changed_.notify_all();
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    bool wanted_ = false;
    bool stalled_ = false;
};

stall_gate gate;

int call(way by, uint16_t target, const void *payload, int size) {
    switch (by) {
    case way::direct:
    case way::app_direct:
        return vision_send_msg(static_cast<NodeID>(target), payload, size);
    case way::queued:
    case way::app_queued:
        return vxmsg_send_general(target, MSTP_USER_DATA_PROC_BY_CALLBACK, payload, size);
    case way::status:
        return vision_send_status(static_cast<NodeID>(target), payload, size);
    case way::broadcast:
        return vision_brocast_msg(payload, size);
    case way::status_broadcast:
        return vision_broadcast_status(payload, size);
    default:
        return -1;
    }
}

void set_heartbeat(uint16_t self, uint32_t number) {
    const auto pairs = heartbeat_pairs(self, number);
    record_own_heartbeat(true);
    const int result = vision_set_hearbeat(pairs.data(), static_cast<int>(pairs.size()));
    record_own_heartbeat(false);
    record_call(way::heartbeat, PROXY_NODE_ID, 0, result == 0);
}

} // namespace

void on_message(void *payload, MsgExtra *extra) {
    const auto size = static_cast<size_t>(extra->len) - VX_MSG_HEAD_SIZE;
    record_callback({static_cast<const uint8_t *>(payload), size}, static_cast<uint16_t>(extra->src),
                    static_cast<uint16_t>(extra->dst));
    gate.pass();
}

generator::generator(uint64_t seed, uint16_t self, const std::vector<uint16_t> &ids)
    : self_(self), others_(ids), dice_(mixed(seed ^ self)) {
    std::erase(others_, self);
    const auto turn = std::ranges::count_if(others_, [self](uint16_t id) { return id < self; });
    until_burst_ = k_first_burst + turn * k_between_bursts;
}

void generator::resume(clock::time_point now) {
    last_tick_ = now;
}

void generator::tick(clock::time_point now) {
    const clock::duration passed = now - last_tick_;
    last_tick_ = now;
    for (int row = 0; row < static_cast<int>(way::number_of_ways); ++row) {
        const auto by = static_cast<way>(row);
        double &credit = credit_.at(static_cast<size_t>(row));
        credit += can(by) ? info_of(by).rate_hz * std::chrono::duration<double>(passed).count() : 0;
        const int due = static_cast<int>(credit);
        credit -= due;
        for (int i = 0; i < due; ++i) {
            send(by, some_target(by));
        }
    }
    until_burst_ -= passed;
    if (until_burst_.count() <= 0) {
        burst();
        until_burst_ = (others_.size() + 1) * k_between_bursts;
    }
}

void generator::send_round() {
    for (int row = 0; row < static_cast<int>(way::number_of_ways); ++row) {
        const auto by = static_cast<way>(row);
        if (!is_user_data(by) || !can(by)) {
            continue;
        }
        const bool once = is_broadcast(by) || by == way::app_direct || by == way::app_queued;
        for (const uint16_t other : others_) {
            if (!(by == way::queued && other == PROXY_NODE_ID)) {
                send_sized(by, once ? some_target(by) : other, k_burst_payload);
                std::this_thread::sleep_for(k_round_pause);
            }
            if (once) {
                break;
            }
        }
    }
    for (uint32_t number = 0; self_ == PROXY_NODE_ID && number < k_fields; ++number) {
        set_heartbeat(self_, number);
        std::this_thread::sleep_for(k_round_pause);
    }
}

/// The proxy is the way to the app, not one of its users; the lowest node's broadcasts reach nobody.
bool generator::can(way by) const {
    const bool lowest = std::ranges::none_of(others_, [this](uint16_t id) { return id < self_; });
    const bool to_app = by == way::app_direct || by == way::app_queued;
    return !(lowest && is_broadcast(by)) && !(self_ == PROXY_NODE_ID && to_app);
}

/// The proxy's queued messages are those to the app: a log line names only the next hop.
uint16_t generator::some_target(way by) {
    if (is_broadcast(by)) {
        return k_no_target;
    }
    if (by == way::app_direct || by == way::app_queued) {
        return NODE_APP;
    }
    uint16_t target = PROXY_NODE_ID;
    while (target == PROXY_NODE_ID) {
        target = others_[dice_() % others_.size()];
        if (by != way::queued) {
            break;
        }
    }
    return target;
}

size_t generator::some_size() {
    const auto share = dice_() % 100;
    const size_t most = share < 85 ? 128 : share < 95 ? 512 : share < 99 ? 1400 : 8160;
    return k_least_payload + dice_() % (most - k_least_payload);
}

void generator::send(way by, uint16_t target) {
    if (by == way::heartbeat) {
        set_heartbeat(self_, ++number_);
    } else {
        send_sized(by, target, some_size());
    }
}

void generator::send_sized(way by, uint16_t target, size_t size) {
    const std::span<uint8_t> payload = std::span{payload_}.first(size);
    write_payload(payload, {by, self_, target, ++number_});
    const int result = call(by, target, payload.data(), static_cast<int>(size));
    record_call(by, target, size, result == 0);
}

void generator::burst() {
    if (gate.shut()) {
        const uint16_t target = some_target(way::queued);
        for (size_t i = 0; i < k_burst; ++i) {
            send_sized(way::queued, target, k_burst_payload);
        }
    }
    gate.open();
}

} // namespace soak
