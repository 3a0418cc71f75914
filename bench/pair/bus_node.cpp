// The library's own ways to send. Each pair is two nodes, which need no manager: they are told of each other
// by a manager's message that they send themselves.
#include "bus_table.h"
#include "contenders.h"
#include "vision_service_route_funcs.h"
#include "vx_msg_def.h"

#include <array>
#include <atomic>
#include <stdexcept>
#include <thread>

namespace bench {
namespace {

listener *receiver = nullptr; // a process has one node

void on_message(void *payload, MsgExtra *extra) {
    receiver->on_message(static_cast<const uint8_t *>(payload),
                         static_cast<size_t>(extra->len) - VX_MSG_HEAD_SIZE);
}

class bus_node : public side {
public:
    bus_node(const place &where, listener &to)
        : own_(id_of(where, where.asks)), other_(id_of(where, !where.asks)) {
        receiver = &to;
        if (vision_msg_component_init(static_cast<NodeID>(own_), "bench", k_bus_ip, on_message) != 0) {
            throw std::runtime_error("the node does not start");
        }
        learn_nodes(own_, other_, other_);
    }

protected:
    /// The asking side has the higher id, or nobody would hear it broadcast.
    static uint16_t id_of(const place &where, bool asks) {
        return static_cast<uint16_t>(1 + 2 * where.number + (asks ? 1 : 0));
    }
    [[nodiscard]] NodeID other() const { return static_cast<NodeID>(other_); }

private:
    const uint16_t own_;
    const uint16_t other_;
};

class direct : public bus_node {
public:
    direct(const place &where, listener &to) : bus_node(where, to) {}
    void send(const uint8_t *payload, size_t size_bytes) override {
        (void)vision_send_msg(other(), payload, static_cast<int>(size_bytes));
    }
};

class queued : public bus_node {
public:
    queued(const place &where, listener &to) : bus_node(where, to) {}
    void send(const uint8_t *payload, size_t size_bytes) override {
        (void)vxmsg_send_general(static_cast<uint16_t>(other()), MSTP_USER_DATA_PROC_BY_CALLBACK, payload,
                                 static_cast<int>(size_bytes));
    }
};

/// The question is broadcast; the answer is not, since it would not come back to a higher id.
class broadcast : public bus_node {
public:
    broadcast(const place &where, listener &to) : bus_node(where, to), asks_(where.asks) {}
    void send(const uint8_t *payload, size_t size_bytes) override {
        if (asks_) {
            (void)vision_brocast_msg(payload, static_cast<int>(size_bytes));
        } else {
            (void)vxmsg_send_general(static_cast<uint16_t>(other()), MSTP_USER_DATA_PROC_BY_CALLBACK, payload,
                                     static_cast<int>(size_bytes));
        }
    }

private:
    const bool asks_;
};

/// Statuses stay where they are when they have been read: a new one is known by its number.
class polled : public bus_node {
public:
    polled(const place &where, listener &to) : bus_node(where, to), to_(to) {
        std::thread([this] { poll(); }).detach();
    }

    void send(const uint8_t *payload, size_t size_bytes) override {
        (void)vision_send_status(other(), payload, static_cast<int>(size_bytes));
    }

    void expect(bool messages) override {
        expecting_ = messages;
        expecting_.notify_one();
    }

private:
    [[noreturn]] void poll() {
        alignas(8) static std::array<uint8_t, VX_MSG_MAX_PAYLOAD> payload;
        uint32_t last = 0;
        MsgExtra extra{};
        for (;;) {
            expecting_.wait(false);
            const int size = vision_recv_status(MSG_VISION_STATE, payload.data(),
                                                static_cast<int>(payload.size()), &extra);
            const uint32_t number = size > 0 ? ut_get_le32(payload.data() + 4) : last;
            if (number == last) {
                std::this_thread::yield();
                continue;
            }
            last = number;
            to_.on_message(payload.data(), static_cast<size_t>(size));
        }
    }

    listener &to_;
    std::atomic<bool> expecting_{false};
};

} // namespace

std::unique_ptr<side> make_bus_direct(const place &where, listener &to) {
    return std::make_unique<direct>(where, to);
}

std::unique_ptr<side> make_bus_queued(const place &where, listener &to) {
    return std::make_unique<queued>(where, to);
}

std::unique_ptr<side> make_bus_broadcast(const place &where, listener &to) {
    return std::make_unique<broadcast>(where, to);
}

std::unique_ptr<side> make_bus_polled(const place &where, listener &to) {
    return std::make_unique<polled>(where, to);
}

} // namespace bench
