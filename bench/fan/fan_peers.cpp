// Publish and subscribe of LCM, nng and ZeroMQ. Every receiver subscribes for itself, on a thread of its own.
#include "fan_peers.h"

#include <array>
#include <fmt/core.h>
#include <stdexcept>
#include <thread>
#ifdef BENCH_LCM
#include <lcm/lcm.h>
#endif
#ifdef BENCH_NNG
#include <nng/nng.h>
#include <nng/protocol/pubsub0/pub.h>
#include <nng/protocol/pubsub0/sub.h>
#endif
#ifdef BENCH_ZEROMQ
#include <zmq.h>
#endif

namespace bench {
namespace {

// Used as far as there is any other bus.
[[maybe_unused]] constexpr size_t k_most_message = 8192; // [bytes]

[[maybe_unused]] std::string address_in(const std::string &directory, const char *who) {
    return fmt::format("ipc://{}/{}-fan", directory, who);
}

[[maybe_unused]] void must(bool done, const char *what) {
    if (!done) {
        throw std::runtime_error(what);
    }
}

#ifdef BENCH_LCM
constexpr char k_network[] = "udpm://239.255.76.67:7667?ttl=0";
constexpr char k_channel[] = "fan";

class lcm_sender : public fan_sender {
public:
    void send(const uint8_t *payload, size_t size_bytes) override {
        (void)lcm_publish(lcm_, k_channel, payload, static_cast<unsigned>(size_bytes));
    }

private:
    lcm_t *const lcm_ = lcm_create(k_network);
};

void receive_lcm(board &notes) {
    lcm_t *lcm = lcm_create(k_network);
    must(lcm != nullptr, "lcm_create");
    const auto note = [](const lcm_recv_buf_t *, const char *, void *to) {
        static_cast<board *>(to)->note();
    };
    (void)lcm_subscribe(lcm, k_channel, note, &notes);
    std::thread([lcm] {
        while (lcm_handle(lcm) == 0) {
        }
    }).detach();
}
#endif

#ifdef BENCH_NNG
class nng_sender : public fan_sender {
public:
    explicit nng_sender(const std::string &address) {
        must(nng_pub0_open(&socket_) == 0 && nng_listen(socket_, address.c_str(), nullptr, 0) == 0,
             "nng_listen");
    }
    void send(const uint8_t *payload, size_t size_bytes) override {
        (void)nng_send(socket_, const_cast<uint8_t *>(payload), size_bytes,
                       0); // copies; the C type forgets const
    }

private:
    nng_socket socket_ = NNG_SOCKET_INITIALIZER;
};

void receive_nng(const std::string &address, board &notes) {
    nng_socket socket = NNG_SOCKET_INITIALIZER;
    must(nng_sub0_open(&socket) == 0, "nng_sub0_open");
    must(nng_socket_set(socket, NNG_OPT_SUB_SUBSCRIBE, "", 0) == 0, "nng_socket_set");
    must(nng_dial(socket, address.c_str(), nullptr, NNG_FLAG_NONBLOCK) == 0, "nng_dial");
    std::thread([socket, &notes] {
        std::array<uint8_t, k_most_message> message;
        for (;;) {
            size_t size = message.size();
            if (nng_recv(socket, message.data(), &size, 0) == 0) {
                notes.note();
            }
        }
    }).detach();
}
#endif

#ifdef BENCH_ZEROMQ
void *zeromq_context() {
    static void *const one = zmq_ctx_new();
    return one;
}

class zeromq_sender : public fan_sender {
public:
    explicit zeromq_sender(const std::string &address) {
        must(zmq_bind(socket_, address.c_str()) == 0, "zmq_bind");
    }
    void send(const uint8_t *payload, size_t size_bytes) override {
        (void)zmq_send(socket_, payload, size_bytes, 0);
    }

private:
    void *const socket_ = zmq_socket(zeromq_context(), ZMQ_PUB);
};

void receive_zeromq(const std::string &address, board &notes) {
    void *socket = zmq_socket(zeromq_context(), ZMQ_SUB);
    must(zmq_setsockopt(socket, ZMQ_SUBSCRIBE, "", 0) == 0, "zmq_setsockopt");
    must(zmq_connect(socket, address.c_str()) == 0, "zmq_connect");
    std::thread([socket, &notes] {
        std::array<uint8_t, k_most_message> message;
        for (;;) {
            if (zmq_recv(socket, message.data(), message.size(), 0) >= 0) {
                notes.note();
            }
        }
    }).detach();
}
#endif

struct fan_peer {
    const char *name;
    std::unique_ptr<fan_sender> (*send)(const std::string &directory);
    void (*receive)(const std::string &directory, board &notes);
};

const fan_peer k_none{"", nullptr, nullptr}; // so that the table is never empty
const fan_peer k_peers[] = {
    k_none,
#ifdef BENCH_LCM
    {"lcm", [](const std::string &) -> std::unique_ptr<fan_sender> { return std::make_unique<lcm_sender>(); },
     [](const std::string &, board &notes) { receive_lcm(notes); }},
#endif
#ifdef BENCH_NNG
    {"nng",
     [](const std::string &directory) -> std::unique_ptr<fan_sender> {
         return std::make_unique<nng_sender>(address_in(directory, "nng"));
     },
     [](const std::string &directory, board &notes) { receive_nng(address_in(directory, "nng"), notes); }},
#endif
#ifdef BENCH_ZEROMQ
    {"zeromq",
     [](const std::string &directory) -> std::unique_ptr<fan_sender> {
         return std::make_unique<zeromq_sender>(address_in(directory, "zeromq"));
     },
     [](const std::string &directory, board &notes) {
         receive_zeromq(address_in(directory, "zeromq"), notes);
     }},
#endif
};

const fan_peer &peer_named(const std::string &name) {
    for (const fan_peer &peer : k_peers) {
        if (peer.send != nullptr && name == peer.name) {
            return peer;
        }
    }
    throw std::invalid_argument(name + " knows no broadcast here");
}

} // namespace

std::unique_ptr<fan_sender> make_peer_sender(const std::string &contender, const std::string &directory,
                                             uint16_t /*receivers*/) {
    return peer_named(contender).send(directory);
}

void start_peer_receivers(const std::string &contender, const std::string &directory, uint16_t receivers,
                          board &notes) {
    const fan_peer &peer = peer_named(contender);
    for (uint16_t i = 0; i < receivers; ++i) {
        peer.receive(directory, notes);
    }
}

bool is_fan_peer(const std::string &contender) {
    for (const fan_peer &peer : k_peers) {
        if (peer.send != nullptr && contender == peer.name) {
            return true;
        }
    }
    return false;
}

} // namespace bench
