// The loop of the tools that listen. See tap.h.
#include "tap.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iterator>
#include <poll.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace vexa {
namespace {

using std::chrono::steady_clock;

constexpr int k_packets_a_turn = 1000; // then the signals are looked at again
constexpr int k_longest_poll_ms = 1000;

int open_signals() {
    sigset_t asked_to_end;
    (void)sigemptyset(&asked_to_end);
    (void)sigaddset(&asked_to_end, SIGINT);
    (void)sigaddset(&asked_to_end, SIGTERM);
    if (sigprocmask(SIG_BLOCK, &asked_to_end, nullptr) != 0) {
        throw std::system_error(errno, std::generic_category(), "sigprocmask");
    }
    const int signals = signalfd(-1, &asked_to_end, SFD_CLOEXEC);
    if (signals < 0) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    return signals;
}

} // namespace

bus_tap::bus_tap(const tap_options &options)
    : capture_(options.file.empty() ? capture::live(options.interface, options.how)
                                    : capture::file(options.file)),
      end_signals_(open_signals()),
      last_packets_(options.file.empty() ? 3 * options.how.delay_ms : 0),
      limited_(options.timeout_s > 0) {
    const std::chrono::duration<double> limit(options.timeout_s);
    until_ = steady_clock::now() + std::chrono::duration_cast<steady_clock::duration>(limit);
}

bus_tap::~bus_tap() {
    (void)close(end_signals_); // nothing is written through it
}

int bus_tap::patience_ms(int idle_ms) const {
    if (!capture_.is_live()) {
        return 0;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until_ - steady_clock::now()).count();
    return limited_ ? static_cast<int>(std::clamp<int64_t>(left, 0, idle_ms)) : idle_ms;
}

/// Takes what has been captured. False when this has ended the run.
bool bus_tap::take_waiting(const packet_taker &take, tap_end &why) {
    raw_packet packet;
    for (int i = 0; i < k_packets_a_turn; ++i) {
        const capture::outcome got = capture_.next(packet);
        if (got == capture::outcome::nothing) {
            break;
        }
        if (got == capture::outcome::end) {
            why = tap_end::file_ended;
            return false;
        }
        if (!take(packet)) {
            why = tap_end::enough;
            return false;
        }
    }
    return true;
}

tap_end bus_tap::run(const taker &take) {
    return run(
        take, [] { return true; }, k_longest_poll_ms);
}

tap_end bus_tap::run(const taker &take, const idler &idle, int idle_ms) {
    bool wanted = true;
    const auto hand_on = [&](const udp_datagram &datagram) { wanted = wanted && take(datagram); };
    const auto feed = [&](const raw_packet &packet) {
        assembler_.feed(packet, hand_on);
        return wanted;
    };
    const tap_end why = run_packets(feed, idle, idle_ms);
    if (why == tap_end::file_ended) {
        assembler_.finish(hand_on);
    }
    return wanted ? why : tap_end::enough;
}

tap_end bus_tap::run_packets(const packet_taker &take, const idler &idle, int idle_ms) {
    tap_end why = tap_end::enough;
    bool asked = false;
    std::vector<pollfd> all = {pollfd{end_signals_, POLLIN, 0}, pollfd{capture_.fd(), POLLIN, 0}};
    std::ranges::transform(also_, std::back_inserter(all), [](int fd) { return pollfd{fd, POLLIN, 0}; });
    for (;;) {
        all[0] = {asked ? -1 : end_signals_, POLLIN, 0};
        if (poll(all.data(), all.size(), patience_ms(idle_ms)) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (all[0].revents != 0) {
            if (last_packets_.count() == 0) {
                return tap_end::asked;
            }
            asked = true;
            limited_ = true;
            until_ = steady_clock::now() + last_packets_;
        }
        if (!take_waiting(take, why)) {
            return why;
        }
        if (!idle()) {
            return tap_end::enough;
        }
        if (limited_ && steady_clock::now() >= until_) {
            return asked ? tap_end::asked : tap_end::timed_out;
        }
    }
}

} // namespace vexa
