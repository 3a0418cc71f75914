// The loop of the stand-ins for the flight side and the camera. See link_receiver.h.
#include "link_receiver.h"

#include "bench_socket.h"
#include "subcommand.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <fmt/core.h>
#include <poll.h>
#include <sys/socket.h>

namespace vexa {
namespace {

using clock = std::chrono::steady_clock;

constexpr size_t k_most_senders = 4096;     // whose rows of numbers are followed
constexpr double k_longest_poll_ms = 3.6e6; // then the clock is looked at again

uint64_t now_ns() {
    const auto now = clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

class link_receiver {
public:
    link_receiver(const link_options &options, int socket)
        : options_(options), socket_(socket), output_(options.end, options.style) {}

    void run(endpoint where, int end_signals) {
        output_.listening(where);
        while (!complete() && !asked_to_end(end_signals)) {
            receive();
            if (over()) {
                timed_out_ = true;
                break;
            }
        }
        output_.summary(counts_);
    }

    [[nodiscard]] int status() const {
        const bool short_of = timed_out_ && options_.count > 0 && !complete();
        if (counts_.malformed > 0) {
            fmt::print(stderr, "{}: {} of {} datagrams were malformed\n", options_.program, counts_.malformed,
                       counts_.received);
        }
        if (short_of) {
            fmt::print(stderr, "{}: {} of {} datagrams came in {} s\n", options_.program, counts_.received,
                       options_.count, options_.timeout_s);
        }
        return counts_.malformed > 0 || short_of ? k_failed : k_ok;
    }

private:
    [[nodiscard]] bool complete() const { return options_.count > 0 && counts_.received >= options_.count; }
    [[nodiscard]] bool over() const { return options_.timeout_s > 0 && left_ms() <= 0; }

    [[nodiscard]] double left_ms() const {
        const std::chrono::duration<double, std::milli> passed = clock::now() - start_;
        return options_.timeout_s * 1000 - passed.count();
    }

    /// Waits for a datagram, for the end of the time, or to be asked to end. True for the last.
    [[nodiscard]] bool asked_to_end(int end_signals) const {
        const double patience = options_.timeout_s > 0 ? std::clamp(left_ms(), 0.0, k_longest_poll_ms) : -1;
        std::array<pollfd, 2> both = {pollfd{end_signals, POLLIN, 0}, pollfd{socket_, POLLIN, 0}};
        if (poll(both.data(), both.size(), static_cast<int>(std::ceil(patience))) < 0 && errno != EINTR) {
            fail_errno("poll");
        }
        return both[0].revents != 0;
    }

    /// Takes one datagram, if there is one.
    void receive() {
        sockaddr_in from{};
        socklen_t from_size = sizeof from;
        const ssize_t size = recvfrom(socket_, buffer_.data(), buffer_.size(), MSG_DONTWAIT,
                                      reinterpret_cast<sockaddr *>(&from), &from_size);
        if (size >= 0) { // else there is none after all; poll says when there is one
            take({to_endpoint(from), static_cast<size_t>(size), now_ns()});
        }
    }

    void take(const link_arrival &arrival) {
        const link_datagram read = decode_link(options_.end, std::span{buffer_}.first(arrival.bytes));
        const sequence_watch::step_result step = follow(arrival.from, read.sequence);
        ++counts_.received;
        counts_.missing += step.missing;
        counts_.late += step.late ? 1 : 0;
        if (read.faults.empty()) {
            ++counts_.by_name[read.name];
        } else {
            ++counts_.malformed;
        }
        output_.datagram(arrival, read, step);
    }

    sequence_watch::step_result follow(endpoint from, std::optional<uint16_t> sequence) {
        if (!sequence || (rows_.size() >= k_most_senders && !rows_.contains(from))) {
            return {};
        }
        return rows_[from].step(*sequence);
    }

    const link_options &options_;
    int socket_;
    link_output output_;
    link_counts counts_;
    std::map<endpoint, sequence_watch> rows_; // per sender
    clock::time_point start_ = clock::now();
    bool timed_out_ = false;
    std::array<uint8_t, k_datagram_bytes> buffer_{};
};

} // namespace

int run_link(const link_options &options) {
    const endpoint where = parse_endpoint(options.bind, options.port);
    const descriptor end_signals = open_end_signals();
    const std::optional<descriptor> socket = bind_udp(options.program, where);
    if (!socket) {
        return k_failed;
    }
    link_receiver receiver{options, socket->get()};
    receiver.run(where, end_signals.get());
    return receiver.status();
}

} // namespace vexa
