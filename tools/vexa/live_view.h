/**
 * @file
 * A page that follows the bus: the loop of the subcommands that redraw a terminal.
 *
 *     vexa::run_live(tap, {.take = ..., .press = ..., .draw = ...}, 1.0);
 */
#ifndef VEXA_LIVE_VIEW_H
#define VEXA_LIVE_VIEW_H

#include "key_reader.h"
#include "tap.h"
#include "text_screen.h"

#include <functional>

namespace vexa {

struct live_page {
    std::function<void(const udp_datagram &datagram)> take;
    std::function<bool(const key &pressed)> press; /**< false: to end */
    std::function<void()> refresh; /**< called before a picture that is due, not one for a key */
    std::function<text_screen(screen_size size)> draw;
};

/**
 * Shows the page until a key, a signal or the tap ends it. The terminal is as it was before, then.
 * @param interval_s  between two pictures; keys and a new size are answered at once
 */
void run_live(bus_tap &tap, const live_page &page, double interval_s);

} // namespace vexa

#endif
