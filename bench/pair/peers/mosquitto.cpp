// MQTT by libmosquitto, QoS 0, through a mosquitto broker on the loopback device.
#include "contenders.h"

#include <fmt/core.h>
#include <mosquitto.h>
#include <stdexcept>

namespace bench {
namespace {

constexpr int k_broker_port = 1883;
constexpr int k_keepalive_s = 60;

void check(int result) {
    if (result != MOSQ_ERR_SUCCESS) {
        throw std::runtime_error(mosquitto_strerror(result));
    }
}

class mosquitto_side : public side {
public:
    mosquitto_side(const place &where, listener &to) : out_(topic(where, where.asks)) {
        (void)mosquitto_lib_init();
        client_ = mosquitto_new(nullptr, true, &to);
        mosquitto_message_callback_set(client_, on_message);
        check(mosquitto_int_option(client_, MOSQ_OPT_TCP_NODELAY, 1));
        check(mosquitto_connect(client_, "127.0.0.1", k_broker_port, k_keepalive_s));
        check(mosquitto_subscribe(client_, nullptr, topic(where, !where.asks).c_str(), 0));
        check(mosquitto_loop_start(client_));
    }

    void send(const uint8_t *payload, size_t size_bytes) override {
        (void)mosquitto_publish(client_, nullptr, out_.c_str(), static_cast<int>(size_bytes), payload, 0,
                                false);
    }

private:
    static std::string topic(const place &where, bool of_asking_side) {
        return fmt::format("{}/{}", of_asking_side ? "ask" : "answer", where.number);
    }

    static void on_message(struct mosquitto * /*client*/, void *to, const mosquitto_message *message) {
        static_cast<listener *>(to)->on_message(static_cast<const uint8_t *>(message->payload),
                                                static_cast<size_t>(message->payloadlen));
    }

    const std::string out_;
    struct mosquitto *client_ = nullptr;
};

} // namespace

std::unique_ptr<side> make_mosquitto(const place &where, listener &to) {
    return std::make_unique<mosquitto_side>(where, to);
}

} // namespace bench
