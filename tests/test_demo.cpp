// The demo as a user runs it, and what it says when something is missing: a stand-in for one of its programs
// makes a message vanish or a node die.
#include "child_process.h"
#include "udp_peer.h"
#include "wait.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/file.h>
#include <unistd.h>

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

namespace {

struct finished {
    int status = -1;
    std::string output;
};

/// The programs of the demo in a directory of the test's own, with another node.
class Demo : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/vexa_demo_test_XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        programs_ = name;
        std::filesystem::create_symlink(VEXA_PROGRAM, programs_ + "/vexa");
    }

    void TearDown() override { std::filesystem::remove_all(programs_); }

    /// Puts a bash script in the place of the node; $REAL is the real one.
    void replace_node(const std::string &script) {
        const std::string file = programs_ + "/vexa_demo_node";
        std::ofstream{file} << "#!/bin/bash\nREAL=" << DEMO_NODE_PROGRAM << "\n" << script;
        std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    }

    [[nodiscard]] const std::string &own_directory() const { return programs_; }
    [[nodiscard]] std::vector<std::string> own_programs() const { return {"--programs", programs_}; }

    static finished run(std::vector<std::string> options = {}) {
        options.insert(options.begin(), DEMO_PROGRAM);
        child_process process{options, {.error_file = "", .merge_errors = true}};
        finished result;
        while (const auto line = process.wait_line(30s)) {
            result.output += *line + '\n';
        }
        result.status = process.wait_exit(1s).value_or(-1);
        return result;
    }

private:
    std::string programs_;
};

class DemoEndedBy : public Demo, public testing::WithParamInterface<int> {};

/// Whether some process holds the lock of a file.
bool is_locked(const std::string &file) {
    const int fd = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const bool is_free = flock(fd, LOCK_EX | LOCK_NB) == 0;
    (void)close(fd);
    return !is_free;
}

/// The rows of the final table: name, sent, received.
struct row {
    std::string name;
    int sent;
    int received;
};

std::vector<row> rows_of(const std::string &output) {
    std::vector<row> rows;
    std::istringstream lines{output.substr(output.find("PATH  "))};
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line) && line.size() > 60 && line.find("SENT counts") == std::string::npos) {
        std::istringstream numbers{line.substr(47)};
        row each{line.substr(2, 44), 0, 0};
        numbers >> each.sent >> each.received;
        rows.push_back(each);
    }
    return rows;
}

} // namespace

TEST_F(Demo, EverythingArrivesOnEveryPath) {
    const finished result = run();
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_THAT(result.output, HasSubstr("\nEverything arrived.\n"));
    const std::vector<row> rows = rows_of(result.output);
    EXPECT_GE(rows.size(), 11U) << result.output;
    for (const row &each : rows) {
        EXPECT_GT(each.sent, 0) << each.name;
        EXPECT_EQ(each.received, each.sent) << each.name;
    }
}

TEST_F(Demo, ShowsWhatTheBusIsKnownFor) {
    const std::string output = run().output;
    for (const char *shown :
         {"listens at 192.168.1.1:9000", "(proxy) registered",
          "nodes 1, 3, 5, 9 and 127 hold this same table", "still addressed to 64001",
          "polls type 6: number 5 is the newest",
          "node 9    broadcasts 25 messages; they reach nodes 1, 3 and 5\n",
          "node 127  broadcasts 25 messages; they reach nodes 1, 3, 5 and 9\n",
          "node 1    broadcasts 25 messages; they reach nobody\n", "all five frames are equal, byte for byte",
          "manager   node 3 left; tells nodes 1, 5, 9 and 127", "a message to node 3 is refused now"}) {
        EXPECT_THAT(output, HasSubstr(shown));
    }
}

TEST_F(Demo, IsColourlessInAPipe) {
    EXPECT_THAT(run().output, Not(HasSubstr("\033")));
}

TEST_F(Demo, NamesTheMessageThatDidNotArrive) {
    replace_node("set -o pipefail\n\"$REAL\" \"$@\" | sed -u '/^got tag=1 .* number=7 /d'\n");
    const finished result = run(own_programs());
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("direct, 256 bytes: number 7 from node 9 did not reach node 1\n"));
    EXPECT_THAT(result.output, HasSubstr("Not everything arrived"));
    EXPECT_THAT(result.output, HasSubstr("Everybody leaves")) << "the demo goes on";
}

TEST_F(Demo, NamesTheFrameThatDiffers) {
    replace_node("set -o pipefail\n\"$REAL\" \"$@\" |"
                 "if [ \"$2\" = 3 ]; then sed -u 's/^frame hex=01/frame hex=ff/'; else cat; fi\n");
    const finished result = run(own_programs());
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("the frames differ at the end"));
}

TEST_F(Demo, NamesTheNodeThatDies) {
    replace_node("if [ \"$2\" = 5 ]; then read -r _; exit 3; fi; exec \"$REAL\" \"$@\"\n");
    const finished result = run(own_programs());
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("node 5 has ended, with status 3"));
    EXPECT_THAT(result.output, HasSubstr("PATH  ")) << "what was measured is shown all the same";
}

TEST_F(Demo, NamesTheNodeThatDoesNotAnswer) {
    replace_node("if [ \"$2\" = 5 ]; then cat >/dev/null; fi; exec \"$REAL\" \"$@\"\n");
    const finished result = run(own_programs());
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("node 5 does not answer 'start'"));
}

TEST_F(Demo, SaysWhyTheNodeManagerCannotStart) {
    const udp_peer holder{"192.168.1.1", 9000};
    const finished result = run();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("cannot bind 192.168.1.1:9000: Address already in use"));
    EXPECT_THAT(result.output, HasSubstr("the node manager has ended, with status 1"));
}

TEST_P(DemoEndedBy, LeavesNoChildBehind) {
    // Node 5 holds a lock for as long as it lives, and lives on when its input ends.
    const std::string lock = own_directory() + "/lock";
    replace_node("if [ \"$2\" = 5 ]; then exec 9>>" + lock +
                 "; flock 9; exec sleep 1000; fi; exec \"$REAL\" \"$@\"\n");
    std::vector<std::string> command = own_programs();
    command.insert(command.begin(), DEMO_PROGRAM);
    child_process process{command, {.error_file = "", .merge_errors = true}};
    ASSERT_TRUE(wait_until([&] { return is_locked(lock); }));
    process.signal(GetParam());
    EXPECT_NE(process.wait_exit(10s).value_or(0), 0);
    EXPECT_TRUE(wait_until([&] { return !is_locked(lock); }));
}

INSTANTIATE_TEST_SUITE_P(Signal, DemoEndedBy, testing::Values(SIGKILL, SIGTERM, SIGALRM));

TEST_F(Demo, TheWatchdogSaysThatItEndedTheDemo) {
    replace_node("cat >/dev/null\n");
    std::vector<std::string> command = own_programs();
    command.insert(command.begin(), DEMO_PROGRAM);
    child_process process{command, {.error_file = "", .merge_errors = true}};
    ASSERT_TRUE(process.wait_line(10s).has_value());
    process.signal(SIGALRM); // as the kernel does after fifteen seconds
    EXPECT_EQ(process.wait_exit(10s), 1);
    std::string output;
    while (const auto line = process.wait_line(1s)) {
        output += *line + '\n';
    }
    EXPECT_THAT(output, HasSubstr("demo: took too long and is ended"));
}
