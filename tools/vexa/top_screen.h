/**
 * @file
 * The picture of `vexa top`: from what has been counted and what the user has chosen to lines for a terminal.
 * Nothing here reads a clock, a socket or a key.
 *
 *     const vexa::text_screen lines = vexa::top_screen(numbers, look, {.columns = 80, .rows = 24});
 */
#ifndef VEXA_TOP_SCREEN_H
#define VEXA_TOP_SCREEN_H

#include "capture.h"
#include "flow_table.h"
#include "socket_watch.h"
#include "text_screen.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vexa {

struct flow_row {
    flow_key key;
    flow_names names;
    std::shared_ptr<const flow_sample> sample;
    std::optional<rate> per_second;
    uint64_t messages = 0;
    uint64_t bytes = 0;
    int64_t first_ns = 0;
    int64_t last_ns = 0;
    std::vector<uint32_t> history; /**< messages in each of the last seconds */
};

/** All that there is to show of a moment. */
struct top_numbers {
    std::string source = {}; /**< "any" */
    int64_t now_ns = 0;
    std::vector<flow_row> flows = {};
    std::vector<node_socket> sockets = {};
    capture_counts capture = {};
    uint64_t forgotten = 0; /**< flows */
};

/** What flows are sorted by; in the order of the columns. */
enum class top_sort { from, to, kind, type, rate, bytes, last };
constexpr int k_top_sorts = 7;

/** The name of a column as it stands in its title and, in small letters, at --sort. */
const char *name_of(top_sort column);

/** What the user has chosen. */
struct top_look {
    top_sort sort = top_sort::rate;
    bool reversed = false; /**< else texts count up and numbers count down */
    message_filter filter = {};
    std::string filter_text = {};
    std::optional<std::string> typing = std::nullopt; /**< a filter that is being typed */
    std::string complaint = {};                       /**< about it */
    size_t first_row = 0;                             /**< that is shown; the others are scrolled away */
    bool paused = false;
    bool shows_help = false;
    bool shows_sockets = false;
    bool in_blocks = true; /**< the terminal has the characters of UTF-8 */
};

enum class rates { now, mean };

/** The flows as they are at a moment. */
std::vector<flow_row> rows_of(const flow_table &flows, int64_t now_ns, rates which);

/** Those that the filter lets pass, in order. Rates count as the same when they differ by little: rows stay
 * in their places, then. */
std::vector<flow_row> chosen(const std::vector<flow_row> &flows, const top_look &look);

text_screen top_screen(const top_numbers &numbers, const top_look &look, screen_size size);

/** How many rows of a table there is room for. */
size_t room_for_rows(screen_size size);

/** The same for an output that is no terminal: what the table of flows and that of the sockets say. */
std::string top_text(const top_numbers &numbers, const top_look &look);

/** One JSON object; the members are named in docs and do not change. */
std::string top_json(const top_numbers &numbers, const top_look &look);

} // namespace vexa

#endif
