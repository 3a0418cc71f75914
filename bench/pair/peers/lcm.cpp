// LCM: UDP multicast, one channel each way.
#include "contenders.h"

#include <fmt/core.h>
#include <lcm/lcm.h>
#include <stdexcept>
#include <thread>

namespace bench {
namespace {

constexpr char k_network[] = "udpm://239.255.76.67:7667?ttl=0";

class lcm_side : public side {
public:
    lcm_side(const place &where, listener &to)
        : lcm_(lcm_create(k_network)), out_(channel(where, where.asks)) {
        if (lcm_ == nullptr) {
            throw std::runtime_error("lcm_create fails");
        }
        (void)lcm_subscribe(lcm_, channel(where, !where.asks).c_str(), on_message, &to);
        std::thread([this] {
            while (lcm_handle(lcm_) == 0) {
            }
        }).detach();
    }

    void send(const uint8_t *payload, size_t size_bytes) override {
        (void)lcm_publish(lcm_, out_.c_str(), payload, static_cast<unsigned>(size_bytes));
    }

private:
    static std::string channel(const place &where, bool of_asking_side) {
        return fmt::format("{}_{}", of_asking_side ? "ask" : "answer", where.number);
    }

    static void on_message(const lcm_recv_buf_t *received, const char * /*channel*/, void *to) {
        static_cast<listener *>(to)->on_message(static_cast<const uint8_t *>(received->data),
                                                received->data_size);
    }

    lcm_t *const lcm_;
    const std::string out_;
};

} // namespace

std::unique_ptr<side> make_lcm(const place &where, listener &to) {
    return std::make_unique<lcm_side>(where, to);
}

} // namespace bench
