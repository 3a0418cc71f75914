// ZeroMQ: a PUSH and a PULL socket each way, between processes of one machine.
#include "contenders.h"

#include <array>
#include <fmt/core.h>
#include <stdexcept>
#include <thread>
#include <zmq.h>

namespace bench {
namespace {

constexpr size_t k_most_message = 8192; // [bytes]

class zeromq_side : public side {
public:
    zeromq_side(const place &where, listener &to) : in_(zmq_socket(context(), ZMQ_PULL)) {
        const std::string own = address(where, where.asks);
        const std::string other = address(where, !where.asks);
        if (zmq_bind(in_, own.c_str()) != 0 || zmq_connect(out_, other.c_str()) != 0) {
            throw std::runtime_error(zmq_strerror(zmq_errno()));
        }
        std::thread([this, &to] { receive(to); }).detach();
    }

    void send(const uint8_t *payload, size_t size_bytes) override {
        (void)zmq_send(out_, payload, size_bytes, 0);
    }

private:
    static void *context() {
        static void *const one = zmq_ctx_new();
        return one;
    }

    static std::string address(const place &where, bool of_asking_side) {
        return fmt::format("ipc://{}/zeromq-{}-{}", where.directory, where.number, of_asking_side ? 1 : 0);
    }

    void receive(listener &to) {
        alignas(8) std::array<uint8_t, k_most_message> message;
        for (;;) {
            const int size = zmq_recv(in_, message.data(), message.size(), 0);
            if (size >= 0) {
                to.on_message(message.data(), static_cast<size_t>(size));
            }
        }
    }

    void *const out_ = zmq_socket(context(), ZMQ_PUSH);
    void *const in_;
};

} // namespace

std::unique_ptr<side> make_zeromq(const place &where, listener &to) {
    return std::make_unique<zeromq_side>(where, to);
}

} // namespace bench
