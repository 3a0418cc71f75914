// Playing. See replay_player.h.
#include "replay_player.h"

#include "amount.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <fmt/core.h>
#include <poll.h>
#include <sys/socket.h>

namespace vexa {
namespace {

using std::chrono::nanoseconds;

constexpr int64_t k_seek_ns = 5'000'000'000;
constexpr auto k_longest_wait = std::chrono::milliseconds(200); // then the progress is shown again

descriptor open_socket() {
    descriptor socket{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    const int on = 1;
    if (socket.get() < 0 || setsockopt(socket.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0) {
        fail_errno("socket");
    }
    return socket;
}

} // namespace

replay_player::replay_player(replay_source &source, const player_options &how, int end_signals)
    : source_(source),
      how_(how),
      end_signals_(end_signals),
      socket_(open_socket()),
      paused_(how.paused),
      anchor_ns_(how.begin_ns) {
}

replay_result replay_player::run() {
    const auto begin = clock::now();
    do {
        source_.rewind(how_.begin_ns);
        anchor_ns_ = how_.begin_ns;
        anchor_ = clock::now();
    } while (play_round() && (how_.rounds == 0 || result_.rounds < how_.rounds));
    line_.clear();
    result_.seconds = std::chrono::duration<double>(clock::now() - begin).count();
    return result_;
}

/// False when it was ended before the recording's end.
bool replay_player::play_round() {
    replay_message next;
    bool has_next = source_.next(next);
    const bool is_empty = !has_next;
    while (has_next) {
        const step what = wait_for(next);
        if (what == step::end) {
            result_.was_ended = true;
            return false;
        }
        if (what == step::send) {
            send(next);
        }
        has_next = source_.next(next);
    }
    ++result_.rounds;
    return !is_empty;
}

int64_t replay_player::position() const {
    if (paused_ || how_.rate <= 0) {
        return anchor_ns_;
    }
    const auto passed = static_cast<double>(nanoseconds(clock::now() - anchor_).count());
    return anchor_ns_ + static_cast<int64_t>(passed * how_.rate);
}

/// The schedule is absolute, so that a late message does not make the ones behind it late.
replay_player::clock::time_point replay_player::due(int64_t position_ns) const {
    const auto ahead = static_cast<double>(position_ns - anchor_ns_);
    return how_.rate <= 0 ? anchor_ : anchor_ + nanoseconds(static_cast<int64_t>(ahead / how_.rate));
}

replay_player::step replay_player::wait_for(const replay_message &next) {
    for (;;) {
        const auto when = paused_ ? clock::time_point::max() : due(next.position_ns);
        poll_until(when);
        if (ended_) {
            return step::end;
        }
        if (std::exchange(sought_, false)) {
            return step::sought;
        }
        if (std::exchange(one_step_, false)) {
            anchor_ns_ = next.position_ns;
            return step::send;
        }
        if (!paused_ && clock::now() >= due(next.position_ns)) {
            anchor_ns_ = how_.rate <= 0 ? next.position_ns : anchor_ns_;
            return step::send;
        }
    }
}

/// Waits, but not longer than the progress may stand still, and sees to keys and signals.
void replay_player::poll_until(clock::time_point when) {
    if (line_.is_due()) {
        show_progress();
    }
    const auto now = clock::now();
    const auto left = std::clamp<nanoseconds>(when > now ? when - now : nanoseconds(0), nanoseconds(0),
                                              nanoseconds(k_longest_wait));
    const timespec time{.tv_sec = 0, .tv_nsec = left.count()};
    std::array<pollfd, 2> both = {pollfd{end_signals_, POLLIN, 0}, pollfd{keyboard_.fd(), POLLIN, 0}};
    if (ppoll(both.data(), both.size(), &time, nullptr) < 0 && errno != EINTR) {
        fail_errno("ppoll");
    }
    ended_ = ended_ || both[0].revents != 0;
    if (both[1].revents != 0) {
        for (const key &each : keyboard_.take()) {
            handle(each);
        }
        show_progress();
    }
}

void replay_player::handle(const key &pressed) {
    if (pressed.is(' ')) {
        set_paused(!paused_);
    } else if (pressed.is('s') || pressed.is('n')) {
        set_paused(true);
        one_step_ = true;
    } else if (pressed.is('q')) {
        ended_ = true;
    } else if (pressed.kind == key_kind::right) {
        seek(k_seek_ns);
    } else if (pressed.kind == key_kind::left) {
        seek(-k_seek_ns);
    }
}

void replay_player::set_paused(bool paused) {
    anchor_ns_ = position();
    anchor_ = clock::now();
    paused_ = paused;
}

void replay_player::seek(int64_t by_ns) {
    anchor_ns_ = std::clamp(position() + by_ns, how_.begin_ns, std::max(how_.begin_ns, how_.length_ns));
    anchor_ = clock::now();
    source_.rewind(anchor_ns_);
    sought_ = true;
}

void replay_player::send(const replay_message &message) {
    const sockaddr_in to = to_sockaddr(message.dst);
    const ssize_t sent = sendto(socket_.get(), message.bytes.data(), message.bytes.size(), 0,
                                reinterpret_cast<const sockaddr *>(&to), sizeof to);
    if (sent < 0) {
        ++result_.failures[{message.dst, errno}];
        return;
    }
    ++result_.sent;
    result_.bytes += message.bytes.size();
}

void replay_player::show_progress() {
    line_.show(fmt::format("vexa replay: {:.1f} of {:.1f} s{}  {} messages{}{}", seconds_of(position()),
                           seconds_of(how_.length_ns),
                           how_.rounds != 1 ? fmt::format("  round {}", result_.rounds + 1) : "",
                           result_.sent, paused_ ? "  paused" : "",
                           has_keyboard() ? "  (space pause, s step, arrows 5 s, q quit)" : ""));
}

} // namespace vexa
