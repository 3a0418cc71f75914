// The soak as a whole, short and with few nodes: it balances, and it notices what is done wrong on purpose.
#include "child_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

namespace {

struct finished {
    int status = -1;
    std::string output;
};

finished run(const std::vector<std::string> &options) {
    std::vector<std::string> command = {SOAK_PROGRAM, "--seconds", "4", "--nodes", "5", "--seed", "1"};
    command.insert(command.end(), options.begin(), options.end());
    child_process process{command, {.error_file = "", .merge_errors = true}};
    finished result;
    while (const auto line = process.wait_line(100s)) {
        result.output += *line + '\n';
    }
    result.status = process.wait_exit(5s).value_or(-1);
    return result;
}

TEST(Soak, Balances) {
    const finished result = run({});
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_THAT(result.output, HasSubstr("everything is explained"));
    EXPECT_THAT(result.output, Not(HasSubstr("UNEXPLAINED:")));
}

TEST(Soak, NoticesOneStolenDatagram) {
    const finished result = run({"--steal", "1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("1 missing, of which 0 are known to be dropped")) << result.output;
}

struct sabotage {
    const char *what;
    const char *said;
};

void PrintTo(const sabotage &row, std::ostream *out) {
    *out << row.what;
}

class SoakNotices : public testing::TestWithParam<sabotage> {};

TEST_P(SoakNotices, WhatANodeTakesAndKeeps) {
    const finished result = run({"--sabotage", GetParam().what});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr(GetParam().said)) << result.output;
}

#ifdef SOAK_HEAP_WATCHED
TEST(Soak, NoticesCopiesThatAreKeptWhenTheyOughtToBeGivenBackAndTheOtherWayRound) {
    const finished result = run({"--expect", SOAK_OTHER_EXPECTATION});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output,
                HasSubstr("UNEXPLAINED: memory of node 2: bytes of the library beyond its queues"))
        << result.output;
}

INSTANTIATE_TEST_SUITE_P(Heap, SoakNotices,
                         testing::Values(sabotage{"heap", "memory of node 2: bytes of the rest"}));
#endif

INSTANTIATE_TEST_SUITE_P(Each, SoakNotices,
                         testing::Values(sabotage{"descriptor",
                                                  "memory of node 2: descriptors have grown by 1"},
                                         sabotage{"thread", "memory of node 2: threads have grown by 1"}));

} // namespace
