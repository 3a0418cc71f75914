// Faults as they come: many at once, and the one that lasts, a process without free descriptors.
#include "faults.h"
#include "log_capture.h"
#include "process_state.h"
#include "scenario.h"
#include "seed.h"
#include "test_rounds.h"
#include "wait.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using bus::milliseconds;
using bus::node_under_test;
using bus::play_scenario;
using bus::played;

constexpr uint16_t k_id = 9;
constexpr double k_no_hang_s = 5; // on a machine that is busy with other things

class RandomFaults : public testing::TestWithParam<int> {
protected:
    void SetUp() override {
        ASSERT_TRUE(play_scenario(node, k_id, bus::k_patience).all_well());
        open_things = process_state::open_things();
        threads = process_state::threads();
    }

    void TearDown() override { faults::clear(); }

    void expect_whole() {
        faults::clear();
        const played p = play_scenario(node, k_id, bus::k_patience);
        EXPECT_TRUE(p.all_well()) << p;
        EXPECT_EQ(process_state::open_things(), open_things);
        EXPECT_TRUE(wait_until([this] { return process_state::threads() <= threads; }));
        logs::clear();
    }

    node_under_test node{k_id};
    std::multiset<std::string> open_things;
    size_t threads = 0;
};

/// Leaves the process this many free descriptors for the length of a scope.
class free_descriptors {
public:
    explicit free_descriptors(int how_many) {
        (void)getrlimit(RLIMIT_NOFILE, &before_);
        int highest = 0;
        for (const auto &[fd, target] : process_state::descriptors()) {
            highest = std::max(highest, std::stoi(fd));
        }
        int filler = -1; // so that none is free below the highest
        while ((filler = open("/dev/null", O_RDONLY | O_CLOEXEC)) < highest) {
            fillers_.push_back(filler);
        }
        (void)close(filler);
        rlimit limit = before_;
        limit.rlim_cur = static_cast<rlim_t>(std::max(filler, highest + 1) + how_many);
        (void)setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~free_descriptors() {
        (void)setrlimit(RLIMIT_NOFILE, &before_);
        for (const int fd : fillers_) {
            (void)close(fd);
        }
    }
    free_descriptors(const free_descriptors &) = delete;
    free_descriptors &operator=(const free_descriptors &) = delete;

private:
    rlimit before_{};
    std::vector<int> fillers_;
};

} // namespace

TEST_P(RandomFaults, AreSurvived) {
    const uint64_t seed = test_seed();
    const long rounds = test_rounds("VEXAMSG_TEST_FAULT_ROUNDS", 25);
    for (long round = 0; round < rounds && !HasFailure(); ++round) {
        faults::fail_at_random(seed + static_cast<uint64_t>(round), GetParam() / 100.0);
        const played p = play_scenario(node, k_id, milliseconds(20));
        EXPECT_LT(p.stop_s, k_no_hang_s) << p;
        expect_whole();
        EXPECT_FALSE(HasFailure()) << "round " << round << " of seed " << seed << ": " << p;
    }
}

INSTANTIATE_TEST_SUITE_P(Percent, RandomFaults, testing::Values(1, 5, 20, 60),
                         testing::PrintToStringParamName());

TEST_F(RandomFaults, DescriptorsThatAreReallyOutAreMissedWhereTheyAreMissing) {
    constexpr int pipes = 4;
    constexpr int sockets = 2;
    for (int left = 0; left <= pipes + sockets; ++left) {
        played p;
        {
            const free_descriptors few{left};
            p = play_scenario(node, k_id,
                              milliseconds(left <= pipes            ? 100
                                           : left < pipes + sockets ? 4000
                                                                    : 10'000));
        }
        EXPECT_EQ(p.init, left < pipes ? -1 : 0) << left;
        EXPECT_EQ(logs::count("pipe create err\n"), left < pipes ? 1U : 0U) << left;
        EXPECT_EQ(p.accepted, left > pipes) << left;
        EXPECT_EQ(p.direct_arrived, left >= pipes + sockets) << left << ", the second socket is for these";
        EXPECT_EQ(p.all_well(), left == pipes + sockets) << left << ": " << p;
        EXPECT_LT(p.stop_s, k_no_hang_s) << left;
        expect_whole();
    }
}

TEST(FirstStart, WithoutADescriptorForTheLoopWaitsAnotherWay) {
    node_under_test node{k_id};
    for (const uint16_t id : bus::ids{0, 3, bus::k_proxy, bus::k_witness}) {
        (void)node.other(id);
    }
    const size_t before = process_state::descriptors().size();
    {
        const free_descriptors few{6};
        // The node's socket comes before the loop; the direct sends' comes last, and is the one that is
        // missing.
        const played p = play_scenario(node, k_id, milliseconds(3000));
        EXPECT_EQ(p.init, 0);
        EXPECT_TRUE(p.accepted);
        EXPECT_TRUE(p.heard);
    }
    const played p = play_scenario(node, k_id, bus::k_patience);
    EXPECT_TRUE(p.all_well()) << p;
    EXPECT_LE(process_state::descriptors().size(), before + 1) << "the loop's own stays";
}
