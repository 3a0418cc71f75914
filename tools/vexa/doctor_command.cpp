// The command line of "vexa doctor", and how its facts are gathered.
#include "doctor_command.h"

#include "capture.h"
#include "diagnosis.h"
#include "named_value.h"

#include <algorithm>
#include <chrono>
#include <fmt/core.h>
#include <memory>
#include <nlohmann/json.hpp>

namespace vexa {
namespace {

using clock = std::chrono::steady_clock;
using nlohmann::ordered_json;

struct doctor_options {
    uint16_t id = 0; // 0: none is planned
    table_options table;
    bool list = false;
    bool quiet = false;
    bool json = false;
};

/// Listens; facts about the machine are taken before and after. Not being allowed to is a fact, too.
void listen(const doctor_options &options, doctor_facts &facts) {
    if (options.table.listen.seconds <= 0) {
        return;
    }
    traffic_watch watch;
    const auto start = clock::now();
    const auto visit = [&watch](const udp_datagram &datagram) {
        watch.see(datagram);
        return true;
    };
    const auto ready = [&options] {
        fmt::print(stderr, "vexa: listening for {} s; Ctrl-C ends that earlier\n",
                   options.table.listen.seconds);
    };
    try {
        (void)listen_to_bus(options.table.listen, visit, ready);
        facts.listened_s = std::chrono::duration<double>(clock::now() - start).count();
        facts.heard = std::move(watch);
    } catch (const capture_error &not_allowed) {
        const std::string text = not_allowed.what();
        facts.why_not_heard = text.substr(0, text.find('\n'));
    }
}

/// Joins the bus for a moment, when that was asked for.
void ask(const doctor_options &options, doctor_facts &facts) {
    if (!options.table.ask || facts.before.no_way) {
        return;
    }
    try {
        facts.table = get_table(options.table);
        facts.answered = true;
    } catch (const interrupted &) {
        throw;
    } catch (const node_trouble &trouble) {
        facts.not_answered = trouble.what();
    }
}

doctor_facts gather(const doctor_options &options) {
    doctor_facts facts;
    const vexa_node_t manager = preset_manager();
    facts.manager = parse_endpoint(manager.ip, manager.port);
    facts.before = look_at_machine(facts.manager);
    if (options.id != 0) {
        facts.id = options.id;
    }
    if (!options.table.file.empty()) {
        facts.table = get_table(options.table);
    }
    listen(options, facts);
    ask(options, facts);
    if (!facts.table && facts.heard && facts.heard->table()) {
        facts.table = known_table{*facts.heard->table(), "overheard from the node manager"};
    }
    facts.now = look_at_machine(facts.manager);
    return facts;
}

ordered_json as_json(const finding &what) {
    ordered_json line = {
        {"event", "finding"}, {"severity", name_of(what.words().how)}, {"code", what.words().code}};
    line["node_id"] = what.node ? ordered_json(*what.node) : ordered_json();
    line["text"] = what.text;
    line["advice"] = what.advice;
    return line;
}

void print(const finding &what, const doctor_options &options) {
    if (options.json) {
        fmt::print("{}\n", as_json(what).dump());
    } else if (!options.quiet || what.words().how == severity::problem) {
        fmt::print("{:<8} {}: {}{}{}\n", name_of(what.words().how), what.words().code, what.text,
                   what.advice.empty() ? "" : ". To do: ", what.advice);
    }
}

void print_symptoms() {
    for (const symptom_words &each : all_symptoms()) {
        fmt::print("{:<8} {:<20} {}\n", name_of(each.how), each.code, each.about);
    }
}

int run_doctor(const doctor_options &options) {
    if (options.list) {
        print_symptoms();
        return k_ok;
    }
    const std::vector<finding> findings = diagnose(gather(options));
    for (const finding &each : findings) {
        print(each, options);
    }
    const auto problems = std::count_if(findings.begin(), findings.end(), [](const finding &each) {
        return each.words().how == severity::problem;
    });
    if (options.json) {
        fmt::print("{}\n", ordered_json{{"event", "summary"}, {"problems", problems}}.dump());
    } else {
        fmt::print("{}\n", problems == 0
                               ? "Nothing wrong was found."
                               : fmt::format("{} problem{} found.", problems, problems == 1 ? "" : "s"));
    }
    return problems == 0 ? k_ok : k_failed;
}

} // namespace

void add_doctor_command(CLI::App &app, int &status) {
    CLI::App *command =
        app.add_subcommand("doctor", "Looks for what is wrong with the bus, and says what to do");
    auto options = std::make_shared<doctor_options>();
    add_named(*command, "--id", options->id, k_node_names,
              "a node that is to be started on this machine: is its port free, and its id?", PROXY_NODE_ID);
    add_table_options(*command, options->table);
    CLI::Option *quiet = command->add_flag("--quiet", options->quiet, "only problems, and the summary");
    command->add_flag("--json", options->json, "one JSON object a line: each finding, and the summary")
        ->excludes(quiet);
    command->add_flag("--list", options->list, "lists what can be found, and looks for nothing");
    command->footer(
        "\nIt looks at addresses, ports, processes and socket buffers of this machine, and listens; it sends "
        "nothing unless --ask is given. Processes of other users are seen by root only. Each finding is one "
        "line with what to do about it.\n"
        "Exit status: 0 no problem was found, 1 one was, or it could not look, 2 wrong usage.\n\n"
        "Example: everything, one keep-alive long\n"
        "  sudo vexa doctor\n"
        "Example: at once, without listening: ask the node manager, and see whether node 5 could start here\n"
        "  vexa doctor --listen 0 --ask --id 5\n"
        "Example: for a script\n"
        "  vexa doctor --json | jq -r 'select(.severity == \"problem\") | .code'");
    command->callback([options, &status] { status = run_doctor(*options); });
}

} // namespace vexa
