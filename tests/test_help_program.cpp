// Help, manual pages and completion of every subcommand there is, walked from "vexa --help" on.
#include "bench.h"

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <sstream>

using bench::run;
using testing::HasSubstr;
using testing::Not;
using words = std::vector<std::string>;

namespace {

std::string joined(const words &all, const std::string &between) {
    std::string text;
    for (const std::string &each : all) {
        text += (text.empty() ? "" : between) + each;
    }
    return text;
}

words with(words all, const std::string &last) {
    all.push_back(last);
    return all;
}

std::string help_of(const words &command) {
    const auto result = run(with(command, "--help"));
    EXPECT_EQ(result.status, 0) << joined(command, " ");
    return result.output;
}

/// The names that a help text lists under a heading; empty without it.
words listed_under(const std::string &help, const std::string &heading) {
    words found;
    std::istringstream lines{help};
    bool inside = false;
    for (std::string line; std::getline(lines, line);) {
        if (line == heading) {
            inside = true;
        } else if (line.empty()) {
            inside = false;
        } else if (inside && line.size() > 2 && line[2] != ' ') {
            found.push_back(line.substr(2, line.find_first_of(" ,", 2) - 2));
        }
    }
    return found;
}

/// The long options of a help text.
words options_in(const std::string &help) {
    words found;
    std::istringstream lines{help};
    for (std::string line; std::getline(lines, line);) {
        const size_t at = line.find("--");
        if (line.starts_with("  -") && at != std::string::npos) {
            found.push_back(line.substr(at, line.find_first_of(" ,", at) - at));
        }
    }
    return found;
}

/// Every subcommand, each by its words.
void collect(const words &above, std::vector<words> &all) {
    for (const std::string &name : listed_under(help_of(above), "Subcommands:")) {
        const words command = with(above, name);
        all.push_back(command);
        collect(command, all);
    }
}

std::vector<words> all_commands() {
    std::vector<words> all;
    collect({}, all);
    return all;
}

/// What bash offers behind a command line whose last word is being typed.
words completed(const words &line) {
    std::string script = "source <('" VEXA_PROGRAM "' completion bash); COMP_WORDS=(vexa";
    for (const std::string &word : line) {
        script += " '" + word + "'";
    }
    script += "); COMP_CWORD=" + std::to_string(line.size()) + R"(; _vexa; printf '%s\n' "${COMPREPLY[@]}")";
    child_process bash{{"bash", "--noprofile", "--norc", "-uc", script},
                       {.error_file = "", .merge_errors = true}};
    words offered;
    while (const auto text = bash.wait_line(bench::k_patience)) {
        offered.push_back(*text);
    }
    EXPECT_EQ(bash.wait_exit(bench::k_patience), 0) << joined(offered, "\n");
    return offered;
}

} // namespace

TEST(Help, NamesEverySubcommand) {
    const auto all = all_commands();
    for (const words &expected : std::vector<words>{{"manager"},
                                                    {"flight"},
                                                    {"camera"},
                                                    {"send"},
                                                    {"status", "send"},
                                                    {"status", "recv"},
                                                    {"hb", "set"},
                                                    {"hb", "get"},
                                                    {"hb", "watch"},
                                                    {"nodes"},
                                                    {"top"},
                                                    {"doctor"},
                                                    {"explain"},
                                                    {"man"},
                                                    {"completion"}}) {
        EXPECT_THAT(all, testing::Contains(expected));
    }
}

TEST(Help, OfEachSubcommandHasAnExampleThatBeginsWithIt) {
    for (const words &command : all_commands()) {
        const std::string help = help_of(command);
        EXPECT_THAT(help, HasSubstr("\nExample")) << joined(command, " ");
        EXPECT_THAT(help, HasSubstr("vexa " + joined(command, " "))) << joined(command, " ");
    }
}

TEST(ManPages, ThereIsOneForEachSubcommandWithEveryOption) {
    for (const words &command : all_commands()) {
        words asked = {"man"};
        asked.insert(asked.end(), command.begin(), command.end());
        const auto page = run(asked);
        EXPECT_EQ(page.status, 0);
        for (std::string option : options_in(help_of(command))) {
            for (size_t at = 0; (at = option.find('-', at)) != std::string::npos; at += 2) {
                option.replace(at, 1, "\\-");
            }
            EXPECT_THAT(page.output, HasSubstr("\\fB" + option + "\\fR")) << joined(command, " ");
        }
        EXPECT_THAT(page.output, HasSubstr(".SH EXAMPLES\n")) << joined(command, " ");
    }
}

TEST(ManPages, AreWrittenWhereTheBuildPutsThem) {
    const std::filesystem::path directory = VEXA_SHARE "/man/man1";
    EXPECT_TRUE(exists(directory / "vexa.1"));
    for (const words &command : all_commands()) {
        EXPECT_TRUE(exists(directory / ("vexa-" + joined(command, "-") + ".1"))) << joined(command, " ");
    }
}

TEST(ManPages, AreReadByGroffWithoutAWarning) {
    size_t pages = 0;
    for (const auto &entry : std::filesystem::directory_iterator(VEXA_SHARE "/man/man1")) {
        child_process groff{{"groff", "-man", "-ww", "-Tascii", "-P-c", entry.path()},
                            {.error_file = "", .merge_errors = true}};
        std::string output;
        while (const auto line = groff.wait_line(bench::k_patience)) {
            output += *line + '\n';
        }
        EXPECT_EQ(groff.wait_exit(bench::k_patience), 0);
        EXPECT_THAT(output, Not(HasSubstr("warning"))) << entry.path();
        EXPECT_THAT(output, Not(HasSubstr("error:"))) << entry.path();
        ++pages;
    }
    EXPECT_GT(pages, 12U);
}

TEST(ManPages, OfNoSubcommandAreWrongUsage) {
    EXPECT_EQ(run({"man", "nosuch"}).status, 2);
    EXPECT_EQ(run({"man", "hb", "--directory", "/tmp"}).status, 2);
    EXPECT_EQ(run({"man", "--directory", "/proc/nosuch"}).status, 1);
}

TEST(Completion, OffersTheSubcommands) {
    EXPECT_EQ(completed({""}), listed_under(help_of({}), "Subcommands:"));
    EXPECT_EQ(completed({"hb", ""}), (words{"set", "get", "watch"}));
    EXPECT_THAT(completed({"man"}), testing::UnorderedElementsAre("man", "manager"));
}

TEST(Completion, OffersEveryOptionOfEverySubcommand) {
    for (const words &command : all_commands()) {
        words line = command;
        line.emplace_back("--");
        EXPECT_THAT(completed(line), testing::UnorderedElementsAreArray(options_in(help_of(command))))
            << joined(command, " ");
    }
}

TEST(Completion, OffersValuesByName) {
    EXPECT_EQ(completed({"send", "--to", "NODE_SOA"}), (words{"NODE_SOA", "NODE_SOA2"}));
    EXPECT_EQ(completed({"explain", "--to", "b"}), words{"broadcast"});
    EXPECT_EQ(completed({"status", "recv", "MSG_VIO"}), words{"MSG_VIO_CFG"});
    EXPECT_EQ(completed({"hb", "set", "WORK_M"}), words{"WORK_MODE="});
    EXPECT_EQ(completed({"hb", "get", "--id", "5", "WORK_S"}), words{"WORK_STATUS"});
    EXPECT_EQ(completed({"completion", ""}), words{"bash"});
    EXPECT_EQ(completed({"top", "--sort", "t"}), (words{"to", "type"}));
}

TEST(Completion, OffersFilesWhereAFileIsMeant) {
    const bench::scratch_file file;
    EXPECT_EQ(completed({"send", "--file", file.name().substr(0, file.name().size() - 1)}),
              words{file.name()});
    EXPECT_EQ(completed({"send", "--text", "/tmp"}), words{""}) << "text is no file";
}

TEST(Completion, AnOptionsValueIsNoSubcommand) {
    EXPECT_THAT(completed({"send", "--text", "hb", "--"}), testing::Contains("--broadcast"));
}
