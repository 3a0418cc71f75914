// `vexa replay`: a recording, sent again.
#include "replay_command.h"

#include "amount.h"
#include "echo_output.h"
#include "replay_player.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fmt/core.h>
#include <fmt/ranges.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

namespace vexa {
namespace {

struct replay_options {
    std::vector<std::string> files;
    std::string filter;
    std::vector<std::string> ids;
    std::vector<std::string> addresses;
    player_options player;
    std::optional<int64_t> from_ns;
    std::optional<int64_t> to_ns;
    std::optional<uint64_t> loop; // 0: until it is ended
    bool fast = false;
    bool dry_run = false;
    bool json = false;
};

/// Messages in words, each with its number.
std::string left_out(const replay_counts &counts) {
    const std::array<std::pair<uint64_t, const char *>, 4> reasons = {
        {{counts.incomplete, "with missing IP fragments"},
         {counts.cut, "of which the capture kept only a part"},
         {counts.strange, "that are none of this system's"},
         {counts.others, "packets that are no UDP over IPv4"}}};
    std::string text;
    for (const auto &[count, what] : reasons) {
        if (count > 0) {
            text += fmt::format("{}{} {}", text.empty() ? "" : ", ", count, what);
        }
    }
    return text;
}

void say_what_cannot_be_sent(const replay_counts &counts) {
    for (const std::string &cut : counts.cuts) {
        fmt::print(stderr, "vexa replay: the recording is cut off; it is replayed up to there: {}\n", cut);
    }
    if (const std::string text = left_out(counts); !text.empty()) {
        fmt::print(stderr, "vexa replay: cannot be sent: {}\n", text);
    }
}

/// Goes through the whole recording, so that what is wrong with it is known before anything is sent.
replay_counts scan(replay_source &source) {
    replay_message message;
    while (source.next(message)) {
    }
    replay_counts all = source.counts();
    source.rewind(0);
    return all;
}

void show_messages(replay_source &source, bool as_json) {
    replay_message message;
    while (source.next(message)) {
        const udp_datagram datagram{.time_ns = message.time_ns,
                                    .src = message.src,
                                    .dst = message.dst,
                                    .wire_size = message.bytes.size(),
                                    .bytes = message.bytes};
        const formats::decoded read = formats::decode(
            {.bytes = message.bytes, .wire_size = message.bytes.size(), .dst_port = message.dst.port});
        const seen_message seen{datagram, read};
        fmt::print("{}\n", as_json ? message_json(seen)
                                   : fmt::format("{:12.6f} s  to {}  {}  {}", seconds_of(message.position_ns),
                                                 to_text(message.dst), way_text(seen), message_text(seen)));
    }
}

nlohmann::ordered_json failures_json(const replay_result &done) {
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    for (const auto &[what, count] : done.failures) {
        all.push_back({{"to", to_text(what.first)}, {"messages", count}, {"reason", strerror(what.second)}});
    }
    return all;
}

void say_result(const replay_result &done, const replay_counts &counts, bool as_json) {
    if (as_json) {
        const nlohmann::ordered_json object = {{"sent", done.sent},
                                               {"bytes", done.bytes},
                                               {"seconds", done.seconds},
                                               {"rounds", done.rounds},
                                               {"ended_early", done.was_ended},
                                               {"failed", failures_json(done)},
                                               {"incomplete", counts.incomplete},
                                               {"captured_in_part", counts.cut},
                                               {"none_of_ours", counts.strange},
                                               {"no_udp", counts.others},
                                               {"left_out_by_filter_or_time", counts.filtered},
                                               {"cut_off", counts.cuts}};
        fmt::print("{}\n", object.dump());
    } else {
        fmt::print("sent {} message{}, {}, in {:.3f} s\n", done.sent, done.sent == 1 ? "" : "s",
                   size_text(done.bytes), done.seconds);
    }
    for (const auto &[what, count] : done.failures) {
        fmt::print(stderr, "vexa replay: {} messages to {} could not be sent: {}\n", count,
                   to_text(what.first), strerror(what.second));
    }
}

void say_beginning(const replay_options &options, const replay_counts &counts) {
    const player_options &how = options.player;
    const std::string pace = how.rate <= 0   ? "as fast as possible"
                             : how.rate == 1 ? "as recorded"
                                             : fmt::format("{:g} times as fast as recorded", how.rate);
    fmt::print(stderr, "vexa replay: {} {} messages ({}, {}), {}{}\n",
               options.dry_run ? "would send" : "not passive: sends", counts.messages,
               size_text(counts.bytes), time_text(counts.end_ns - std::min(counts.end_ns, how.begin_ns)),
               pace,
               how.rounds == 0  ? ", again and again"
               : how.rounds > 1 ? fmt::format(", {} times", how.rounds)
                                : "");
}

int play(const replay_options &options, replay_source &source, const replay_counts &counts) {
    const descriptor end_signals = open_end_signals();
    replay_player player(source, options.player, end_signals.get());
    if (options.player.paused && !player.has_keyboard()) {
        fmt::print(stderr, "vexa replay: --pause needs a terminal for the key that goes on\n");
        return k_usage;
    }
    say_beginning(options, counts);
    const replay_result done = player.run();
    say_result(done, counts, options.json);
    return done.failures.empty() ? k_ok : k_failed;
}

int replay(const replay_options &options, replay_choice choice) {
    replay_source source(options.files, std::move(choice));
    const replay_counts counts = scan(source);
    say_what_cannot_be_sent(counts);
    if (counts.messages == 0) {
        fmt::print(stderr, "vexa replay: there is no message to send{}\n",
                   counts.filtered > 0
                       ? fmt::format("; {} are left out by the filter or the times given", counts.filtered)
                       : "");
        return k_failed;
    }
    replay_options complete = options;
    complete.player.length_ns = counts.end_ns;
    if (options.dry_run) {
        say_beginning(complete, counts);
        show_messages(source, options.json);
        return k_ok;
    }
    return play(complete, source, counts);
}

/// A recording is read to its end before it is played, and may be played again.
bool can_be_read_again(const std::string &file) {
    std::error_code unknown;
    return file != "-" && (std::filesystem::is_regular_file(file, unknown) ||
                           !std::filesystem::exists(file, unknown)); // which opening it says better
}

int check_and_run(replay_options options) {
    for (const std::string &file : options.files) {
        if (!can_be_read_again(file)) {
            fmt::print(stderr, "vexa replay: {} is read more than once, and must be a file on a disk\n",
                       file);
            return k_usage;
        }
    }
    replay_choice choice;
    try {
        choice.wanted = message_filter(options.filter);
        for (const std::string &text : options.ids) {
            choice.other.add_id(text);
        }
        for (const std::string &text : options.addresses) {
            choice.other.add_address(text);
        }
    } catch (const filter_error &wrong) {
        fmt::print(stderr, "vexa replay: {}\n{}\n", wrong.what(), message_filter::help());
        return k_usage;
    } catch (const std::invalid_argument &wrong) {
        fmt::print(stderr, "vexa replay: {}\n", wrong.what());
        return k_usage;
    }
    choice.from_ns = options.from_ns.value_or(choice.from_ns);
    choice.to_ns = options.to_ns.value_or(choice.to_ns);
    options.player.begin_ns = choice.from_ns;
    options.player.rate = options.fast ? 0 : options.player.rate;
    options.player.rounds = options.loop.value_or(1);
    try {
        return replay(options, std::move(choice));
    } catch (const capture_error &failure) {
        fmt::print(stderr, "vexa replay: {}\n", failure.what());
        return k_failed;
    }
}

void add_choice(CLI::App &command, replay_options &options) {
    command
        .add_option("FILE", options.files, "pcapng or pcap files; several are played one behind the other")
        ->required()
        ->type_name("FILE");
    command.add_option("--filter", options.filter, "which messages to send (default: all)")
        ->type_name("FILTER");
    add_time(command, "--from", options.from_ns, "begin so far into the recording");
    add_time(command, "--to", options.to_ns, "end so far into the recording");
    command
        .add_option("--map-id", options.ids,
                    "another node id: 5=7 makes 7 of every 5, in headers, node records and ports; several "
                    "with commas between")
        ->type_name("OLD=NEW")
        ->delimiter(',')
        ->allow_extra_args(false);
    command
        .add_option("--map-address", options.addresses,
                    "another destination: 192.168.1.2=127.0.0.1, each with a :port if wanted; several with "
                    "commas between")
        ->type_name("OLD=NEW")
        ->delimiter(',')
        ->allow_extra_args(false);
}

void add_pace(CLI::App &command, replay_options &options) {
    CLI::Option *rate = command
                            .add_option("--rate", options.player.rate,
                                        "times as fast as recorded: 0.5, 2, 10; 0: as fast as possible")
                            ->check(CLI::Range(0.0, 1e6))
                            ->type_name("X")
                            ->capture_default_str();
    command.add_flag("--fast", options.fast, "as fast as possible")->excludes(rate);
    command.add_option("--loop", options.loop, "play it N times; without N until it is ended")
        ->expected(0, 1)
        ->check(CLI::Range(uint64_t{0}, uint64_t{1} << 53))
        ->default_str("0")
        ->type_name("[N]");
    command.add_flag("--pause", options.player.paused, "begin paused: s sends a message, space goes on");
    command.add_flag("--dry-run", options.dry_run, "send nothing; show what would be sent, a line each");
    command.add_flag("--json", options.json,
                     "at the end a JSON object with what was sent; with --dry-run an object a message");
}

} // namespace

void add_replay_command(CLI::App &app, int &status) {
    CLI::App *command = app.add_subcommand(
        "replay", "Sends the messages of a recording again, with their times (sends on the bus)");
    auto options = std::make_shared<replay_options>();
    add_choice(*command, *options);
    add_pace(*command, *options);
    command->footer(fmt::format(
        "\nThis is not passive: it sends the recorded messages to where they went, as they were, with the "
        "recorded senders' ids but from this machine's address. It takes no part in the bus as a node.\n"
        "On a terminal: space pauses and goes on, s or n sends the next message, the arrows left and right "
        "go 5 s back and forth, q ends.\n"
        "TIME: 500ms, 30s, 5min, 1h; without a unit seconds.\n"
        "{}\n\n"
        "Exit status: 0 all was sent, or it was ended, 1 a file cannot be read, has no message to send, or "
        "some could not be sent, 2 wrong usage.\n\n"
        "Example: a flight's first minute at the desk, where one machine is all of them\n"
        "  vexa replay flight.pcapng --to 1min --map-address 192.168.1.5=127.0.0.1\n"
        "Example: what node 9 said, to node 7 instead of node 5, ten times as fast, until Ctrl-C\n"
        "  vexa replay bus.pcapng --filter 'from 9' --map-id 5=7 --rate 10 --loop\n"
        "Example: look before anything is sent\n"
        "  vexa replay bus.pcapng --dry-run",
        message_filter::help()));
    command->callback([options, &status] { status = check_and_run(*options); });
}

} // namespace vexa
