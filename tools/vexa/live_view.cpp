// The loop of live pages. See live_view.h.
#include "live_view.h"

#include "terminal.h"

#include <algorithm>
#include <chrono>

namespace vexa {
namespace {

using std::chrono::steady_clock;

constexpr int k_longest_wait_ms = 100; // for the next picture to be due

class pictures {
public:
    pictures(terminal &screen, const live_page &page, double interval_s)
        : screen_(screen),
          page_(page),
          interval_(
              std::chrono::duration_cast<steady_clock::duration>(std::chrono::duration<double>(interval_s))) {
    }

    /// What is to be done between datagrams. False: to end.
    bool turn() {
        const terminal_news news = screen_.take_news();
        if (news.end || !std::ranges::all_of(news.keys, page_.press)) {
            return false;
        }
        const bool is_due = steady_clock::now() >= due_;
        if (is_due) {
            page_.refresh();
            due_ = steady_clock::now() + interval_;
        }
        if (is_due || news.redraw || !news.keys.empty()) {
            const screen_size size = terminal::size();
            text_screen lines = page_.draw(size);
            limit(lines, size);
            screen_.show(lines);
        }
        return true;
    }

private:
    terminal &screen_;
    const live_page &page_;
    steady_clock::duration interval_;
    steady_clock::time_point due_ = steady_clock::now();
};

} // namespace

void run_live(bus_tap &tap, const live_page &page, double interval_s) {
    terminal screen;
    for (const int fd : screen.fds()) {
        tap.wake_on(fd);
    }
    pictures shown(screen, page, interval_s);
    (void)shown.turn();
    (void)tap.run(
        [&](const udp_datagram &datagram) {
            page.take(datagram);
            return true;
        },
        [&] { return shown.turn(); }, k_longest_wait_ms);
}

} // namespace vexa
