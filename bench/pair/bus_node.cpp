// The library's own ways to send. Each pair is two nodes, which need no manager: they are told of each other
// by a manager's message that they send themselves.
#include "contenders.h"
#include "node_mapping.h"
#include "vision_service_route_funcs.h"
#include "vx_msg_def.h"

#include <array>
#include <atomic>
#include <chrono>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace bench {
namespace {

using namespace std::chrono_literals;

constexpr char k_ip[] = "127.0.0.1";

listener *receiver = nullptr; // a process has one node

void on_message(void *payload, MsgExtra *extra) {
    receiver->on_message(static_cast<const uint8_t *>(payload),
                         static_cast<size_t>(extra->len) - VX_MSG_HEAD_SIZE);
}

std::array<uint8_t, VX_MSG_HEAD_SIZE + VX_MGR_HEAD_SIZE + VX_NODE_RECORD_SIZE> notice_of(uint16_t own,
                                                                                         uint16_t other) {
    std::array<uint8_t, VX_MSG_HEAD_SIZE + VX_MGR_HEAD_SIZE + VX_NODE_RECORD_SIZE> message{};
    vx_msg_head_t head =
        vx_msg_head_make(MSTP_NODE_MGR, VX_MGR_HEAD_SIZE + VX_NODE_RECORD_SIZE, VX_NODE_MANAGER_ID, own);
    vx_msg_head_store(message.data(), &head);
    message[2] = 0x80; // accepted: REGISTERs become rare
    ut_put_le16(message.data() + VX_MSG_HEAD_SIZE, MGR_CMD_NOTIFY);
    ut_put_le16(message.data() + VX_MSG_HEAD_SIZE + 2, 1);
    vexa_node_t node{};
    memcpy(node.ip, k_ip, sizeof k_ip);
    node.node_id = other;
    node.port = static_cast<uint16_t>(VX_NODE_PORT_BASE + other);
    node.stat = NODE_STAT_ACTIVED;
    vexa_node_store(message.data() + VX_MSG_HEAD_SIZE + VX_MGR_HEAD_SIZE, &node);
    return message;
}

void learn(uint16_t own, uint16_t other) {
    const int fd = checked(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket");
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    to.sin_port = htons(static_cast<uint16_t>(VX_NODE_PORT_BASE + own));
    const auto notice = notice_of(own, other);
    while (nmapping_get_stat(other) != NODE_STAT_ACTIVED) { // the node may not be there yet
        (void)sendto(fd, notice.data(), notice.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to);
        std::this_thread::sleep_for(1ms);
    }
    (void)close(fd);
}

class bus_node : public side {
public:
    bus_node(const place &where, listener &to)
        : own_(id_of(where, where.asks)), other_(id_of(where, !where.asks)) {
        receiver = &to;
        if (vision_msg_component_init(static_cast<NodeID>(own_), "bench", k_ip, on_message) != 0) {
            throw std::runtime_error("the node does not start");
        }
        learn(own_, other_);
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
