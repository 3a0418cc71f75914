/**
 * @file
 * The pictures of `vexa nodes`: lines for a terminal, a table for other outputs, JSON.
 *
 *     const vexa::text_screen lines = vexa::nodes_screen(numbers, {}, {.columns = 80, .rows = 24});
 */
#ifndef VEXA_NODES_SCREEN_H
#define VEXA_NODES_SCREEN_H

#include "capture.h"
#include "key_reader.h"
#include "node_watch.h"
#include "text_screen.h"

#include <functional>
#include <map>
#include <string>

namespace vexa {

/** All that there is to show of a moment. */
struct nodes_numbers {
    std::string source; /**< "any" */
    int64_t now_ns = 0;
    std::map<uint16_t, seen_node> nodes;
    capture_counts capture;
};

struct nodes_look {
    size_t first_row = 0; /**< that is shown; the others are scrolled away */
    bool paused = false;
};

text_screen nodes_screen(const nodes_numbers &numbers, const nodes_look &look, screen_size size);
std::string nodes_text(const nodes_numbers &numbers);

/** One JSON object; the members are named in docs and do not change. */
std::string nodes_json(const nodes_numbers &numbers);

/** `vexa nodes` as something that is fed with keys and draws itself; the terminal is around it. */
class nodes_page {
public:
    /** @param now  gives the numbers of the moment; not asked while the picture is held */
    explicit nodes_page(std::function<nodes_numbers()> now) : now_(std::move(now)) {}

    void refresh();
    bool press(const key &pressed); /**< false when it is to end */
    text_screen draw(screen_size size) { return nodes_screen(numbers_, look_, size); }

private:
    std::function<nodes_numbers()> now_;
    nodes_numbers numbers_;
    nodes_look look_;
};

} // namespace vexa

#endif
