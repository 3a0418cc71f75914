// The command lines of "vexa man" and "vexa completion".
#include "help_command.h"

#include "bash_completion.h"
#include "man_page.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fmt/core.h>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace vexa {
namespace {

struct man_options {
    std::vector<std::string> words; // of a subcommand
    std::string directory;
};

void write_pages(const CLI::App &app, const std::string &directory) {
    std::filesystem::create_directories(directory);
    for (const command_node &each : all_commands(app)) {
        const std::filesystem::path file = std::filesystem::path{directory} / man_page_file(each);
        std::ofstream out{file};
        out << man_page(each) << std::flush;
        if (!out) {
            throw std::runtime_error(fmt::format("cannot write {}: {}", file.string(), strerror(errno)));
        }
    }
}

void print_page(const CLI::App &app, const std::vector<std::string> &words) {
    std::string path = app.get_name();
    for (const std::string &word : words) {
        path += ' ' + word;
    }
    const std::vector<command_node> all = all_commands(app);
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const command_node &each) { return each.path == path; });
    if (found == all.end()) {
        throw CLI::ValidationError("there is no subcommand '" + path + "'");
    }
    fmt::print("{}", man_page(*found));
}

} // namespace

void add_man_command(CLI::App &app, int &status) {
    CLI::App *command =
        app.add_subcommand("man", "Prints the manual page of a subcommand, or writes all pages");
    auto options = std::make_shared<man_options>();
    CLI::Option *words =
        command->add_option("SUBCOMMAND", options->words, "whose page (default: the program's own)")
            ->type_name("WORD");
    command->add_option("--directory", options->directory, "write the pages of all subcommands there")
        ->type_name("DIR")
        ->excludes(words);
    command->footer("\nThe pages are made from the same texts as --help.\n"
                    "Exit status: 0 done, 1 a page could not be written, 2 wrong usage.\n\n"
                    "Example: read the page of 'vexa hb set'\n"
                    "  vexa man hb set | man -l -\n"
                    "Example: all pages where man looks for them\n"
                    "  vexa man --directory ~/.local/share/man/man1");
    command->callback([options, &app, &status] {
        if (options->directory.empty()) {
            print_page(app, options->words);
        } else {
            write_pages(app, options->directory);
        }
        status = k_ok;
    });
}

void add_completion_command(CLI::App &app, int &status) {
    CLI::App *command =
        app.add_subcommand("completion", "Prints the completion of this command line for a shell");
    auto shell = std::make_shared<std::string>();
    command->add_option("SHELL", *shell, "bash")
        ->required()
        ->check(CLI::IsMember({"bash"}))
        ->type_name("SHELL");
    command->footer("\nIt knows all subcommands, their options, and the names of nodes, message types and "
                    "heartbeat fields.\n"
                    "Exit status: 0 printed, 2 wrong usage.\n\n"
                    "Example: in this shell\n"
                    "  source <(vexa completion bash)\n"
                    "Example: in every shell to come\n"
                    "  vexa completion bash > ~/.local/share/bash-completion/completions/vexa");
    command->callback([shell, &app, &status] {
        if (*shell == "bash") { // the only one so far
            fmt::print("{}", bash_completion(all_commands(app)));
        }
        status = k_ok;
    });
}

} // namespace vexa
