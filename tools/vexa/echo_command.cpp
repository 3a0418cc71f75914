// `vexa echo`: the messages on the bus, a line each.
#include "echo_command.h"

#include "echo_output.h"
#include "tap.h"
#include "watch_options.h"

#include <fmt/core.h>
#include <fmt/ranges.h>
#include <memory>

namespace vexa {
namespace {

struct echo_options {
    tap_options tap;
    std::vector<std::string> filter;
    std::vector<std::string> fields;
    echo_style style = echo_style::text;
    uint64_t count = 0; // 0: no limit
    bool all = false;
};

int run_echo(const echo_options &options, const message_filter &filter) {
    bus_tap tap(options.tap);
    if (options.tap.file.empty()) {
        fmt::print(stderr, "vexa echo: listening on {}\n", options.tap.interface);
    }
    const echo_output output(options.style, options.fields);
    output.begin();
    uint64_t shown = 0;
    const tap_end why = tap.run([&](const udp_datagram &datagram) {
        const formats::decoded read = formats::decode({.bytes = datagram.bytes,
                                                       .wire_size = datagram.wire_size,
                                                       .dst_port = datagram.dst.port,
                                                       .incomplete = datagram.incomplete});
        const seen_message message{datagram, read};
        if ((read.wire != nullptr || options.all) && filter.matches(message)) {
            output.message(message);
            ++shown;
        }
        return options.count == 0 || shown < options.count;
    });
    say_losses("echo", tap.counts());
    if (options.count > shown && why != tap_end::asked) {
        fmt::print(stderr, "vexa echo: {} of {} messages came {}\n", shown, options.count,
                   why == tap_end::file_ended ? "before the end of the file" : "in time");
        return k_failed;
    }
    return k_ok;
}

/// Looks at everything the user has written before anything is opened.
int check_and_run(const echo_options &options) {
    for (const std::string &name : options.fields) {
        if (name != "all" && !is_field_name(name)) {
            fmt::print(stderr,
                       "vexa echo: no message has a field '{}'; 'vexa echo --fields all' shows their names\n",
                       name);
            return k_usage;
        }
    }
    try {
        return run_echo(options, message_filter(fmt::format("{}", fmt::join(options.filter, " "))));
    } catch (const filter_error &wrong) {
        fmt::print(stderr, "vexa echo: {}\n{}\n", wrong.what(), message_filter::help());
        return k_usage;
    } catch (const capture_error &failure) {
        fmt::print(stderr, "vexa echo: {}\n", failure.what());
        return k_failed;
    }
}

void add_options(CLI::App &command, echo_options &options) {
    command.add_option("filter", options.filter, "which messages to show; without one all");
    CLI::Option *file = command.add_option("-r,--read", options.tap.file,
                                           "a pcap or pcapng file instead; - is standard input");
    command.add_option("-i,--interface", options.tap.interface, "network interface to listen on")
        ->capture_default_str()
        ->excludes(file);
    command.add_option("--count", options.count, "end after this many messages")
        ->check(CLI::Range(uint64_t{1}, uint64_t{1} << 53));
    command.add_option("--timeout", options.tap.timeout_s, "end after this many seconds")
        ->check(CLI::Range(0.001, 1e9));
    command
        .add_option("--fields", options.fields,
                    "fields to show besides, by name, with commas between: dst,node.port; or all")
        ->delimiter(',')
        ->allow_extra_args(false);
    CLI::Option *csv = command.add_flag_callback(
        "--csv", [&options] { options.style = echo_style::csv; },
        "a table: a head line, a row for each message, a column for each of --fields");
    command
        .add_flag_callback(
            "--json", [&options] { options.style = echo_style::json; },
            "one JSON object a line, with all fields and what is wrong")
        ->excludes(csv);
    command.add_flag("--all", options.all, "UDP datagrams too that are none of this system's");
}

} // namespace

void add_echo_command(CLI::App &app, int &status) {
    CLI::App *command = app.add_subcommand(
        "echo", "Shows the messages on the bus as they pass, a readable line each; sends nothing");
    auto options = std::make_shared<echo_options>();
    add_options(*command, *options);
    command->footer(fmt::format(
        "\n{}\n\n"
        "A malformed or cut datagram is shown as such, with what is wrong and at which byte.\n"
        "Exit status: 0 ended as asked (--count, SIGINT, SIGTERM, --timeout without --count, end of the "
        "file), 1 fewer than --count messages came or nothing can be captured, 2 wrong usage.\n\n"
        "Example: what the manager and the nodes say to each other\n"
        "  sudo vexa echo family manager\n"
        "Example: the next heartbeat operation of node 9 for a program to read, within ten seconds\n"
        "  sudo vexa echo --json --count 1 --timeout 10 from 9 family heartbeat\n"
        "Example: a table of the destinations and keys in a file, without those to the proxy\n"
        "  vexa echo -r bus.pcapng --csv --fields dst,key 'family user and not to proxy'",
        message_filter::help()));
    command->callback([options, &status] { status = check_and_run(*options); });
}

} // namespace vexa
