// The demo's scene on the vision link: what it shows, and what it says when a datagram does not come.
#include "child_process.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace {

struct finished {
    int status = -1;
    std::string output;
};

/// The programs of the demo in a directory of the test's own, with another vexa.
class DemoLink : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/vexa_demo_test_XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        programs_ = name;
        std::filesystem::create_symlink(DEMO_NODE_PROGRAM, programs_ + "/vexa_demo_node");
    }

    void TearDown() override { std::filesystem::remove_all(programs_); }

    /// Runs the demo with a bash script in the place of vexa; $REAL is the real one.
    finished run_with(const std::string &script) const {
        const std::string file = programs_ + "/vexa";
        std::ofstream{file} << "#!/bin/bash\nREAL=" << VEXA_PROGRAM << "\n" << script;
        std::filesystem::permissions(file, std::filesystem::perms::owner_all);
        return run({"--programs", programs_});
    }

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

} // namespace

TEST_F(DemoLink, ShowsEachKindOfDatagramDecoded) {
    const finished result = run();
    EXPECT_EQ(result.status, 0) << result.output;
    for (const char *shown :
         {"flight    listens at 192.168.1.5:5673", "camera    listens at 192.168.1.11:5685",
          "flight    track_status #0: {\"timestamp\":", "flight    goal_area #1: ",
          "flight    orbit_status #2: ", "flight    orbit_area #3: ",
          "flight    command_ack #4: {\"command\":1,\"status\":1,\"status1\":0,\"data\":\"01",
          "flight    command_ack #5: {\"command\":1,\"status\":1,\"status1\":4711,\"data\":\"0100",
          "camera    camera_command #6: {\"command\":1,\"data\":\"a0a1a2",
          "flight    ends: 30 datagrams, 0 malformed, 4 numbers not seen here",
          "camera    ends: 5 datagrams, 0 malformed, 24 numbers not seen here",
          "numbered 0 to 34 in one row, none left out"}) {
        EXPECT_THAT(result.output, HasSubstr(shown));
    }
}

TEST_F(DemoLink, CountsEachKindInTheFinalTable) {
    const std::string output = run().output;
    for (const char *row : {"link to the flight side, track status", "link to the flight side, goal area",
                            "link to the flight side, orbit status", "link to the flight side, orbit area",
                            "link to the flight side, ack", "link to the flight side, ack with status1",
                            "link to the camera, command"}) {
        EXPECT_THAT(output, ContainsRegex(std::string(row) + " +5 +5 ")) << row;
    }
}

TEST_F(DemoLink, NamesTheDatagramThatDidNotArrive) {
    const finished result = run_with("if [ \"$1\" = flight ]; then set -o pipefail; \"$REAL\" \"$@\" |"
                                     " sed -u '/\"sequence\":10,/d'; else exec \"$REAL\" \"$@\"; fi\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("orbit_area 2 of node 9 did not arrive\n"));
    EXPECT_THAT(result.output, HasSubstr("Everybody leaves")) << "the demo goes on";
}

TEST_F(DemoLink, NamesTheDatagramThatArrivedDamaged) {
    const finished result =
        run_with("if [ \"$1\" = camera ]; then set -o pipefail; \"$REAL\" \"$@\" |"
                 " sed -u '/\"sequence\":13,/s/\"faults\":\\[\\]/\"faults\":[\"bent\"]/'; else exec "
                 "\"$REAL\" \"$@\"; fi\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("camera_command 2 of node 9 arrived malformed: [\"bent\"]\n"));
    EXPECT_THAT(result.output, Not(HasSubstr("track_status 2 of node 9")));
}

TEST_F(DemoLink, SaysWhenNobodyReceives) {
    const finished result = run_with("[ \"$1\" = camera ] && exit 3; exec \"$REAL\" \"$@\"\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("the stand-in for the camera does not say that it listens"));
}
