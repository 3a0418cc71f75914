// Passive listening. See bus_listener.h.
#include "bus_listener.h"

#include "bench_socket.h"
#include "capture.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <poll.h>

namespace vexa {
namespace {

using clock = std::chrono::steady_clock;

constexpr auto k_last_packets = std::chrono::milliseconds(60); // the capture collects for a third of that

/// A time-out for poll that does not end early.
int left_ms(clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, 3'600'000));
}

} // namespace

listen_end listen_to_bus(const listen_options &options,
                         const std::function<bool(const udp_datagram &)> &visit,
                         const std::function<void()> &ready) {
    const descriptor end_signals = open_end_signals();
    capture packets = capture::live(options.interface, {});
    if (ready) {
        ready();
    }
    auto end = clock::now() +
               std::chrono::duration_cast<clock::duration>(std::chrono::duration<double>(options.seconds));
    datagram_assembler assembler;
    listen_end how = listen_end::over;
    const datagram_assembler::sink sink = [&](const udp_datagram &d) {
        how = how == listen_end::enough || !visit(d) ? listen_end::enough : how;
    };
    while (clock::now() < end && how != listen_end::enough) {
        const bool listens_to_signals = how != listen_end::signalled;
        std::array<pollfd, 2> both = {pollfd{listens_to_signals ? end_signals.get() : -1, POLLIN, 0},
                                      pollfd{packets.fd(), POLLIN, 0}};
        if (poll(both.data(), both.size(), left_ms(end)) < 0 && errno != EINTR) {
            fail_errno("poll");
        }
        if (both[0].revents != 0) {
            how = listen_end::signalled;
            end = clock::now() + k_last_packets;
        }
        raw_packet packet;
        while (how != listen_end::enough && packets.next(packet) == capture::outcome::packet) {
            assembler.feed(packet, sink);
        }
    }
    return how;
}

} // namespace vexa
