// The limits of the bus's design. The loop: a non-blocking socket on libev, read until it is empty, sent on
// from any thread. The queue: a list behind a mutex before that loop, and a pipe that wakes it.
#include "bare_socket.h"
#include "contenders.h"

#include <array>
#include <deque>
#include <ev.h>
#include <fcntl.h>
#include <mutex>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace bench {
namespace {

/// A watcher that knows whose it is.
template <class Owner>
struct watcher_of {
    ev_io ev;
    Owner *owner;
};

class bare_loop : public side {
public:
    bare_loop(const place &where, listener &to)
        : socket_(open_bare_socket(where, SOCK_NONBLOCK)),
          to_(to),
          loop_(ev_loop_new(EVFLAG_NOENV)),
          readable_{{}, this} {
        watch(readable_.ev, socket_.fd, [](struct ev_loop *, ev_io *watcher, int) {
            reinterpret_cast<watcher_of<bare_loop> *>(watcher)->owner->receive();
        });
    }

    void run() {
        std::thread([this] { ev_run(loop_, 0); }).detach();
    }

    void send(const uint8_t *payload, size_t size_bytes) override { send_bare(socket_, payload, size_bytes); }

protected:
    void watch(ev_io &watcher, int fd, void (*ready)(struct ev_loop *, ev_io *, int)) {
        ev_io_init(&watcher, ready, fd, EV_READ);
        ev_io_start(loop_, &watcher);
    }

    [[nodiscard]] const bare_socket &socket() const { return socket_; }

private:
    void receive() {
        alignas(8) std::array<uint8_t, k_most_datagram> datagram;
        for (;;) {
            sockaddr_in from{};
            socklen_t from_size = sizeof from;
            const ssize_t size = recvfrom(socket_.fd, datagram.data(), datagram.size(), 0,
                                          reinterpret_cast<sockaddr *>(&from), &from_size);
            if (size < 0) {
                return;
            }
            to_.on_message(datagram.data() + k_head_bytes, static_cast<size_t>(size) - k_head_bytes);
        }
    }

    const bare_socket socket_;
    listener &to_;
    struct ev_loop *const loop_;
    watcher_of<bare_loop> readable_;
};

class bare_queue : public bare_loop {
public:
    bare_queue(const place &where, listener &to) : bare_loop(where, to), woken_{{}, this} {
        (void)checked(pipe2(pipe_.data(), O_NONBLOCK | O_CLOEXEC), "pipe2");
        watch(woken_.ev, pipe_[0], [](struct ev_loop *, ev_io *watcher, int) {
            reinterpret_cast<watcher_of<bare_queue> *>(watcher)->owner->send_queued();
        });
    }

    void send(const uint8_t *payload, size_t size_bytes) override {
        {
            const std::lock_guard hold{lock_};
            queue_.emplace_back(payload - k_head_bytes, payload + size_bytes);
        }
        [[maybe_unused]] const ssize_t written = write(pipe_[1], "g", 1); // full: it is awake already
    }

private:
    bool take(std::vector<uint8_t> &message) {
        const std::lock_guard hold{lock_};
        if (queue_.empty()) {
            return false;
        }
        message = std::move(queue_.front());
        queue_.pop_front();
        return true;
    }

    void send_queued() {
        char byte = 0;
        while (read(pipe_[0], &byte, 1) > 0) {
        }
        for (std::vector<uint8_t> message; take(message);) {
            send_bare(socket(), message.data() + k_head_bytes, message.size() - k_head_bytes);
        }
    }

    std::array<int, 2> pipe_{};
    std::mutex lock_;
    std::deque<std::vector<uint8_t>> queue_;
    watcher_of<bare_queue> woken_;
};

} // namespace

std::unique_ptr<side> make_bare_loop(const place &where, listener &to) {
    auto made = std::make_unique<bare_loop>(where, to);
    made->run();
    return made;
}

std::unique_ptr<side> make_bare_queue(const place &where, listener &to) {
    auto made = std::make_unique<bare_queue>(where, to);
    made->run();
    return made;
}

} // namespace bench
