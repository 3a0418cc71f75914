// `vexa nodes`: who is on the bus.
#include "nodes_command.h"

#include "live_view.h"
#include "nodes_screen.h"
#include "wall_clock.h"
#include "watch_options.h"

#include <algorithm>
#include <fmt/core.h>
#include <memory>

namespace vexa {
namespace {

/// What is known, and since when the clock stands still in a file.
class knowledge {
public:
    explicit knowledge(const tap_options &options)
        : source_(options.file.empty() ? options.interface : options.file), is_live_(options.file.empty()) {}

    void see(const udp_datagram &datagram) {
        nodes_.see(datagram);
        newest_ns_ = std::max(newest_ns_, datagram.time_ns);
    }

    [[nodiscard]] nodes_numbers numbers(const capture_counts &capture) const {
        return {source_, is_live_ ? wall_clock_ns() : newest_ns_, nodes_.all(), capture};
    }

private:
    std::string source_;
    bool is_live_;
    node_watch nodes_;
    int64_t newest_ns_ = 0;
};

int run_once(const watch_options &options) {
    bus_tap tap(options.once_tap());
    knowledge known(options.tap);
    say_listening("nodes", options);
    (void)tap.run([&](const udp_datagram &datagram) {
        known.see(datagram);
        return true;
    });
    const nodes_numbers numbers = known.numbers(tap.counts());
    if (options.json) {
        fmt::print("{}\n", nodes_json(numbers));
    } else if (!numbers.nodes.empty()) {
        fmt::print("{}", nodes_text(numbers));
    }
    say_losses("nodes", numbers.capture);
    if (numbers.nodes.empty()) {
        fmt::print(stderr, "vexa nodes: nobody was heard; 'vexa doctor' looks for the cause\n");
    }
    return numbers.nodes.empty() ? k_failed : k_ok;
}

int run_live_page(const watch_options &options) {
    bus_tap tap(options.tap);
    knowledge known(options.tap);
    nodes_page page([&] { return known.numbers(tap.counts()); });
    run_live(tap,
             {.take = [&](const udp_datagram &datagram) { known.see(datagram); },
              .press = [&](const key &pressed) { return page.press(pressed); },
              .refresh = [&] { page.refresh(); },
              .draw = [&](screen_size size) { return page.draw(size); }},
             options.interval_s);
    return k_ok;
}

int check_and_run(const watch_options &options) {
    try {
        return options.is_once() ? run_once(options) : run_live_page(options);
    } catch (const capture_error &failure) {
        fmt::print(stderr, "vexa nodes: {}\n", failure.what());
        return k_failed;
    }
}

} // namespace

void add_nodes_command(CLI::App &app, int &status) {
    CLI::App *command =
        app.add_subcommand("nodes", "Shows who is on the bus, as the traffic tells it; sends nothing");
    auto options = std::make_shared<watch_options>();
    options->listen_s = 11; // keep-alives, and the manager's answers with the table, come every 10 s
    add_watch_options(*command, *options);
    command->footer(fmt::format(
        "{}\n\n"
        "State: active or inactive as the node manager says; registering: it asks to be let in and has not "
        "been "
        "answered; heard: it sends, and nothing says who it is. A node is 'active, silent' that has missed "
        "two "
        "keep-alives. Its address is the registered one; until that is known, where its datagrams come "
        "from.\n"
        "Registered since: the moment at which it was seen to register; 'before' it when it was registered "
        "already.\n"
        "Exit status: 0 ended as asked, 1 nobody was heard or nothing can be captured, 2 wrong usage.\n\n"
        "Example: follow who comes and goes\n"
        "  sudo vexa nodes\n"
        "Example: the table once, for a program to read\n"
        "  sudo vexa nodes --json\n"
        "Example: who was on the bus when a file was recorded\n"
        "  vexa nodes --read bus.pcapng",
        k_watch_help));
    command->callback([options, &status] { status = check_and_run(*options); });
}

} // namespace vexa
