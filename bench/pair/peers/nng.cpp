// nng: a pair of sockets between processes of one machine. The answering side listens.
#include "contenders.h"

#include <array>
#include <fmt/core.h>
#include <nng/nng.h>
#include <nng/protocol/pair0/pair.h>
#include <stdexcept>
#include <thread>

namespace bench {
namespace {

constexpr size_t k_most_message = 8192; // [bytes]

void check(int result) {
    if (result != 0) {
        throw std::runtime_error(nng_strerror(result));
    }
}

class nng_side : public side {
public:
    nng_side(const place &where, listener &to) {
        const std::string address = fmt::format("ipc://{}/nng-{}", where.directory, where.number);
        check(nng_pair0_open(&socket_));
        check(where.asks ? nng_dial(socket_, address.c_str(), nullptr, 0)
                         : nng_listen(socket_, address.c_str(), nullptr, 0));
        std::thread([this, &to] { receive(to); }).detach();
    }

    void send(const uint8_t *payload, size_t size_bytes) override {
        (void)nng_send(socket_, const_cast<uint8_t *>(payload), size_bytes,
                       0); // copies; the C type forgets const
    }

private:
    void receive(listener &to) const {
        alignas(8) std::array<uint8_t, k_most_message> message;
        for (;;) {
            size_t size = message.size();
            if (nng_recv(socket_, message.data(), &size, 0) == 0) {
                to.on_message(message.data(), size);
            }
        }
    }

    nng_socket socket_ = NNG_SOCKET_INITIALIZER;
};

} // namespace

std::unique_ptr<side> make_nng(const place &where, listener &to) {
    return std::make_unique<nng_side>(where, to);
}

} // namespace bench
