// The stand-in log library, seen from the program that uses it: a process of its own writes, the test reads.
#include "child_process.h"
#include "emulator.h"
#include "log_capture.h"
#include "node_mapping.h"
#include "vision_log.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <unistd.h>

using namespace std::chrono_literals;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

namespace {

constexpr auto k_patience = 30s;
constexpr size_t k_longest_line = 2048; // with its line feed

struct finished {
    int status = -1;
    std::vector<std::string> lines; // of both outputs
};

finished run(const std::vector<std::string> &command) {
    child_process process{command, {.error_file = "", .merge_errors = true}};
    finished result;
    while (const auto line = process.wait_line(k_patience)) {
        result.lines.push_back(*line);
    }
    result.status = process.wait_exit(k_patience).value_or(-1);
    return result;
}

std::vector<std::string> lines_of(std::vector<std::string> options) {
    options.insert(options.begin(), MSGLOG_PROBE);
    const finished result = run(options);
    EXPECT_EQ(result.status, 0);
    return result.lines;
}

std::string line_of(std::vector<std::string> options) {
    const std::vector<std::string> lines = lines_of(std::move(options));
    EXPECT_EQ(lines.size(), 1U);
    return lines.empty() ? "" : lines[0];
}

std::string said(int module, int level, const std::string &text) {
    return line_of({"say", std::to_string(module), std::to_string(level), text});
}

/// What the library writes to a terminal: the other end of a pseudo-terminal is its standard error.
std::string on_terminal(std::vector<std::string> options) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(grantpt(terminal), 0);
    EXPECT_EQ(unlockpt(terminal), 0);
    options.insert(options.begin(), MSGLOG_PROBE);
    child_process process{options, {.error_file = ptsname(terminal), .merge_errors = false}};
    EXPECT_EQ(process.wait_exit(k_patience), 0);
    std::string text(4096, '\0');
    const ssize_t size = read(terminal, text.data(), text.size());
    text.resize(size > 0 ? static_cast<size_t>(size) : 0);
    (void)close(terminal);
    return text;
}

} // namespace

TEST(Msglog, ALineTellsTimeLevelModuleUnitFunctionLineAndText) {
    EXPECT_THAT(said(MODULE_MSG_ROUTE, VISION_LOG_LEVEL_INFO, "text\n"),
                MatchesRegex("[0-2][0-9]:[0-5][0-9]:[0-6][0-9]\\.[0-9][0-9][0-9] INFO  ROUTE "
                             "src/probe:say:42 text"));
}

TEST(Msglog, EveryLevelHasItsName) {
    const std::vector<std::string> names = {"EMERG", "ERROR", "WARN ", "INFO ", "DEBUG"};
    for (int level = VISION_LOG_LEVEL_EMERGENCY; level <= VISION_LOG_LEVEL_DBG; ++level) {
        EXPECT_THAT(said(MODULE_LOG, level, "text"),
                    HasSubstr(' ' + names[static_cast<size_t>(level)] + " LOG src/probe"));
    }
}

TEST(Msglog, EveryModuleHasItsName) {
    EXPECT_THAT(said(MODULE_LOG, VISION_LOG_LEVEL_INFO, "text"), HasSubstr(" LOG src/probe"));
    EXPECT_THAT(said(MODULE_VEXA_VISION, VISION_LOG_LEVEL_INFO, "text"), HasSubstr(" VISION src/probe"));
    EXPECT_THAT(said(MODULE_MSG_ROUTE, VISION_LOG_LEVEL_INFO, "text"), HasSubstr(" ROUTE src/probe"));
}

TEST(Msglog, UnknownLevelsAndModulesAreMarkedAndTheLineComesAllTheSame) {
    for (const int unknown : {-1, 5, 1000000}) {
        EXPECT_THAT(said(unknown, unknown, "text"), HasSubstr(" ?     ? src/probe:say:42 text"));
    }
}

TEST(Msglog, AProcessWithANameHasItInItsLines) {
    EXPECT_THAT(line_of({"named", "soa"}), HasSubstr(" INFO  soa ROUTE src/probe"));
}

TEST(Msglog, FifteenCharactersOfANameAreKept) {
    EXPECT_THAT(line_of({"named", "abcdefghijklmnopqrst"}), HasSubstr(" abcdefghijklmno ROUTE"));
}

TEST(Msglog, NoNameIsTheEmptyName) {
    EXPECT_THAT(line_of({"nameless"}), HasSubstr(" INFO  ROUTE src/probe"));
}

TEST(Msglog, AMessageIsOneLineWhateverLineEndsItBrings) {
    for (const char *text : {"text", "text\n", "text\r\n", "\n\rtext\n\r", "\n\n\ntext\n\n"}) {
        EXPECT_THAT(said(MODULE_MSG_ROUTE, VISION_LOG_LEVEL_INFO, text), EndsWith(":42 text"));
    }
    EXPECT_THAT(said(MODULE_MSG_ROUTE, VISION_LOG_LEVEL_INFO, "two\nlines\n"), EndsWith(":42 two lines"));
    EXPECT_THAT(said(MODULE_MSG_ROUTE, VISION_LOG_LEVEL_INFO, "\n"), EndsWith(":42 "));
}

TEST(Msglog, ALongMessageIsCutAndItsLineEndKept) {
    const std::string line = line_of({"long", "5000"});
    EXPECT_EQ(line.size(), k_longest_line - 1);
    EXPECT_THAT(line, EndsWith("xxx"));
}

TEST(Msglog, AMessageThatJustFitsIsWhole) {
    const size_t prefix = line_of({"long", "0"}).size();
    const size_t fits = k_longest_line - 1 - prefix;
    for (const size_t length : {fits - 1, fits, fits + 1}) {
        EXPECT_EQ(line_of({"long", std::to_string(length)}).size(), prefix + std::min(length, fits));
    }
}

TEST(Msglog, LinesOfSeveralThreadsDoNotMix) {
    const std::vector<std::string> lines = lines_of({"threads", "8", "200"});
    EXPECT_EQ(lines.size(), 8U * 200U);
    std::set<std::string> messages;
    for (const std::string &line : lines) {
        ASSERT_THAT(line, MatchesRegex("[0-9:.]+ INFO  ROUTE src/probe:thread:[0-9]+ [0-9]+ of [0-9] x+"));
        const std::string message = line.substr(line.find(":thread:"));
        EXPECT_EQ(message.size() - message.find(" x"), 201U);
        messages.insert(message);
    }
    EXPECT_EQ(messages.size(), lines.size()) << "each message once";
}

TEST(Msglog, LeavesErrnoAsItWas) {
    const std::string both = line_of({"errno"});
    const std::string before = both.substr(0, both.find(' '));
    EXPECT_EQ(both, before + ' ' + before);
}

TEST(Msglog, IsInColourOnATerminal) {
    const std::string text = on_terminal({"say", "2", "1", "text\n"});
    EXPECT_THAT(text, testing::StartsWith("\033[31m"));
    EXPECT_THAT(text, EndsWith("text\033[0m\r\n")) << "the colour ends with the line";
}

TEST(Msglog, ALongMessageOnATerminalLosesItsEndAndNotItsColours) {
    EXPECT_THAT(on_terminal({"long", "5000"}), EndsWith("xxx\033[0m\r\n"));
}

TEST(Msglog, HasNoColourElsewhere) {
    EXPECT_THAT(said(MODULE_MSG_ROUTE, VISION_LOG_LEVEL_ERROR, "text\n"), Not(HasSubstr("\033")));
}

TEST(Msglog, WritesTheLibrarysLinesWhenTheProgramDefinesNoLogOfItsOwn) {
    EXPECT_THAT(line_of({"library"}),
                ContainsRegex(" INFO  ROUTE src/node_mapping:nmapping_get:[0-9]+ inval, nodeid 128$"));
}

TEST(Msglog, AProgramThatDefinesControlLogGetsTheLibrarysLines) {
    vexa_node_t node;
    EXPECT_EQ(nmapping_get(128, &node), -1);
    const auto lines = logs::with_format("inval, nodeid %u\n");
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].module, MODULE_MSG_ROUTE);
    EXPECT_EQ(lines[0].level, VISION_LOG_LEVEL_INFO);
    EXPECT_EQ(lines[0].unit, "src/node_mapping");
    EXPECT_EQ(lines[0].text, "inval, nodeid 128\n");
}

namespace {

/// A directory of the test's own, gone at its end.
class MsglogSwap : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/msglog_swap_XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        directory_ = name;
    }
    void TearDown() override { std::filesystem::remove_all(directory_); }

    [[nodiscard]] const std::string &directory() const { return directory_; }

    [[nodiscard]] finished configure(const std::string &library) const {
        return run({CMAKE_PROGRAM, "-S", MSGLOG_SWAP_DIR, "-B", directory_, "-G", "Ninja",
                    std::string("-DCMAKE_C_COMPILER=") + C_COMPILER,
                    std::string("-DMSGLOG_SOURCE_DIR=") + MSGLOG_SOURCE_DIR, "-DVEXAMSG_MSGLOG=" + library});
    }

private:
    std::string directory_;
};

} // namespace

TEST_F(MsglogSwap, TheLibraryThatIsNamedTakesTheStandInsPlace) {
    const std::string library = directory() + "/libother.so";
    ASSERT_EQ(
        run({C_COMPILER, "-shared", "-fPIC", std::string(MSGLOG_SWAP_DIR) + "/other_msglog.c", "-o", library})
            .status,
        0);
    const finished configured = configure(library);
    ASSERT_EQ(configured.status, 0) << testing::PrintToString(configured.lines);
    ASSERT_EQ(run({CMAKE_PROGRAM, "--build", directory()}).status, 0);
    const finished spoken = run(emulator::started({directory() + "/speaker"}));
    EXPECT_EQ(spoken.status, 0);
    EXPECT_THAT(spoken.lines,
                testing::ElementsAre("other library for speaker", "[2|2|src/speaker|main|7] 3 apples"));
}

TEST_F(MsglogSwap, ALibraryThatIsNotThereStopsTheConfigurationByName) {
    const finished configured = configure(directory() + "/no_such_library.so");
    EXPECT_NE(configured.status, 0);
    EXPECT_THAT(testing::PrintToString(configured.lines), HasSubstr("no_such_library.so"));
}
