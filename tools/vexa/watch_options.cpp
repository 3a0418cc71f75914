// Options of the subcommands that follow the bus. See watch_options.h.
#include "watch_options.h"

#include "terminal.h"

#include <fmt/core.h>

namespace vexa {

const char *const k_watch_help = "\nSends nothing. On a terminal it follows the bus until q or Ctrl-C. It is "
                                 "shown once, after --listen seconds, "
                                 "with --once and --json, of a file, and where the output is no terminal.";

bool watch_options::is_once() const {
    return once || json || !tap.file.empty() || !is_redrawable();
}

tap_options watch_options::once_tap() const {
    tap_options how = tap;
    how.timeout_s = tap.file.empty() ? listen_s : 0;
    return how;
}

void add_watch_options(CLI::App &command, watch_options &options) {
    CLI::Option *file =
        command
            .add_option("-r,--read", options.tap.file, "a pcap or pcapng file instead; - is standard input")
            ->type_name("FILE");
    command
        .add_option("-i,--interface", options.tap.interface, "network interface to listen on; any for all")
        ->capture_default_str()
        ->excludes(file);
    command.add_flag("--once", options.once, "show it once, after --listen seconds");
    command.add_option("--listen", options.listen_s, "listen for so many seconds when it is shown once")
        ->check(CLI::Range(0.001, 86400.0))
        ->capture_default_str();
    command.add_option("--interval", options.interval_s, "seconds between two pictures")
        ->check(CLI::Range(0.05, 3600.0))
        ->capture_default_str();
    command.add_flag("--json", options.json, "show it once, as one JSON object");
    options.tap.how.delay_ms = 50; // nobody sees the difference, and the processor wakes less often
}

void say_listening(const char *program, const watch_options &options) {
    if (options.tap.file.empty()) {
        fmt::print(stderr, "vexa {}: listening on {} for {} s\n", program, options.tap.interface,
                   options.listen_s);
    }
}

void say_losses(const char *program, const capture_counts &counts) {
    if (counts.dropped > 0) {
        fmt::print(stderr, "vexa {}: {} of {} packets came too fast and were not seen\n", program,
                   counts.dropped, counts.received);
    }
}

} // namespace vexa
