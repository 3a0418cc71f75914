// `vexa top`: who sends how much to whom.
#include "top_command.h"

#include "live_view.h"
#include "number_text.h"
#include "top_page.h"
#include "wall_clock.h"
#include "watch_options.h"

#include <algorithm>
#include <cctype>
#include <fmt/core.h>
#include <fmt/ranges.h>
#include <memory>

namespace vexa {
namespace {

struct top_options {
    watch_options watch;
    std::vector<std::string> filter;
    top_sort sort = top_sort::rate;
};

/// What is counted, and where.
class counters {
public:
    explicit counters(const tap_options &options)
        : source_(options.file.empty() ? options.interface : options.file), is_live_(options.file.empty()) {
        look_at_sockets(wall_clock_ns());
    }

    void see(const udp_datagram &datagram) {
        (void)flows_.see(datagram);
        newest_ns_ = std::max(newest_ns_, datagram.time_ns);
    }

    top_numbers numbers(const capture_counts &capture, rates which) {
        const int64_t now_ns = is_live_ ? wall_clock_ns() : newest_ns_;
        look_at_sockets(now_ns);
        return {.source = source_,
                .now_ns = now_ns,
                .flows = rows_of(flows_, now_ns, which),
                .sockets = sockets_.all(),
                .capture = capture,
                .forgotten = flows_.forgotten()};
    }

private:
    /// A file tells nothing of this machine.
    void look_at_sockets(int64_t now_ns) {
        if (is_live_) {
            const std::vector<udp_socket> table = udp_sockets_without_holders();
            sockets_.update(sockets_.needs_holders(table) ? udp_sockets() : table, now_ns);
        }
    }

    std::string source_;
    bool is_live_;
    flow_table flows_;
    socket_watch sockets_;
    int64_t newest_ns_ = 0;
};

int run_once(const top_options &options, const top_look &look) {
    bus_tap tap(options.watch.once_tap());
    counters counted(options.watch.tap);
    say_listening("top", options.watch);
    (void)tap.run([&](const udp_datagram &datagram) {
        counted.see(datagram);
        return true;
    });
    const top_numbers numbers = counted.numbers(tap.counts(), rates::mean);
    if (options.watch.json) {
        fmt::print("{}\n", top_json(numbers, look));
    } else {
        fmt::print("{}", top_text(numbers, look));
        say_losses("top", numbers.capture);
    }
    return k_ok;
}

int run_live_page(const top_options &options, const top_look &look) {
    bus_tap tap(options.watch.tap);
    counters counted(options.watch.tap);
    top_page page([&] { return counted.numbers(tap.counts(), rates::now); }, look);
    run_live(tap,
             {.take = [&](const udp_datagram &datagram) { counted.see(datagram); },
              .press = [&](const key &pressed) { return page.press(pressed); },
              .refresh = [&] { page.refresh(); },
              .draw = [&](screen_size size) { return page.draw(size); }},
             options.watch.interval_s);
    return k_ok;
}

int check_and_run(const top_options &options) {
    const std::string filter = fmt::format("{}", fmt::join(options.filter, " "));
    try {
        const top_look look{.sort = options.sort,
                            .filter = message_filter(filter),
                            .filter_text = filter,
                            .in_blocks = has_utf8()};
        return options.watch.is_once() ? run_once(options, look) : run_live_page(options, look);
    } catch (const filter_error &wrong) {
        fmt::print(stderr, "vexa top: {}\n{}\n", wrong.what(), message_filter::help());
        return k_usage;
    } catch (const capture_error &failure) {
        fmt::print(stderr, "vexa top: {}\n", failure.what());
        return k_failed;
    }
}

/// "rate" of "RATE/s".
std::string word_of(top_sort column) {
    std::string word = name_of(column);
    word.resize(std::min(word.find('/'), word.size()));
    std::ranges::transform(word, word.begin(), [](unsigned char c) { return std::tolower(c); });
    return word;
}

void add_sort(CLI::App &command, top_sort &sort) {
    std::vector<std::pair<std::string, top_sort>> words;
    words.reserve(k_top_sorts);
    for (int i = 0; i < k_top_sorts; ++i) {
        words.emplace_back(word_of(static_cast<top_sort>(i)), static_cast<top_sort>(i));
    }
    std::vector<std::string> names;
    std::ranges::transform(words, std::back_inserter(names), [](const auto &each) { return each.first; });
    command
        .add_option("--sort", sort,
                    fmt::format("column to sort by: {} (default: rate)", fmt::join(names, ", ")))
        ->transform(CLI::CheckedTransformer(words, CLI::ignore_case))
        ->type_name("COLUMN");
}

} // namespace

void add_top_command(CLI::App &app, int &status) {
    CLI::App *command =
        app.add_subcommand("top", "Shows who sends how much to whom, and what was dropped; sends nothing");
    auto options = std::make_shared<top_options>();
    options->watch.listen_s = 5;
    command->add_option("filter", options->filter, "which flows to show; without one all");
    add_watch_options(*command, options->watch);
    add_sort(*command, options->sort);
    command->footer(fmt::format(
        "{}\n\n"
        "A flow is what one sender sends to one destination of one kind and message type; each datagram of "
        "it "
        "counts, one that the proxy hands on a second time, too. What is cut or malformed is a flow of its "
        "own. "
        "Rates come from the packets' time stamps: live over about three seconds, once over the whole time.\n"
        "Drops are those of the capture itself, and those of the system at the sockets of this machine's "
        "nodes "
        "for want of room.\n"
        "Keys: s < > sort, r reverse, / filter, p pause, Tab sockets, h help, q quit.\n\n"
        "{}\n\n"
        "Exit status: 0 ended as asked, 1 nothing can be captured, 2 wrong usage.\n\n"
        "Example: follow the bus\n"
        "  sudo vexa top\n"
        "Example: what node 9 sends, the largest first, measured for ten seconds\n"
        "  sudo vexa top --once --listen 10 --sort bytes from 9\n"
        "Example: the same of a file, for a program to read\n"
        "  vexa top --read bus.pcapng --json from 9",
        k_watch_help, message_filter::help()));
    command->callback([options, &status] { status = check_and_run(*options); });
}

} // namespace vexa
