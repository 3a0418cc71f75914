// The node manager is killed and started anew, over and over: every node is accepted again within one period
// of its keep-alives.
#include "child_process.h"
#include "faults.h"
#include "node_mapping.h"
#include "test_rounds.h"
#include "vision_service_route_funcs.h"
#include "wait.h"

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>

using namespace std::chrono_literals;
using steady = std::chrono::steady_clock;

namespace {

constexpr double k_period_s = 10; // of the keep-alives of a node that has been accepted
constexpr double k_start_s = 0.5; // what the manager takes to tell its news, on a machine that is busy
const std::set<int> k_ids = {3, 5, 7, 9, 127};

double seconds_since(steady::time_point start) {
    return std::chrono::duration<double>(steady::now() - start).count();
}

/// The program, ready to answer.
class manager {
public:
    manager() : process_({VEXA_PROGRAM, "manager", "--json"}) {
        EXPECT_NE(process_.wait_line(10s).value_or("no line").find("listening"), std::string::npos);
    }

    /// Waits until all of these have come, for so long at most. Those that have not.
    std::set<int> missing(std::set<int> awaited, std::chrono::milliseconds patience) {
        const auto end = steady::now() + patience;
        while (!awaited.empty() && steady::now() < end) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - steady::now());
            const auto line = process_.wait_line(std::max(left, 0ms));
            const auto news = nlohmann::json::parse(line.value_or("{}"));
            if (news.value("event", "") == "table" && news["change"]["what"] == "joined") {
                awaited.erase(news["change"]["node_id"].get<int>());
            }
        }
        return awaited;
    }

    void kill_it() {
        process_.signal(SIGKILL);
        EXPECT_EQ(process_.wait_exit(10s), 128 + SIGKILL);
    }

private:
    child_process process_;
};

/// Applications of their own, each a node of the bus.
class applications {
public:
    applications() {
        for (const int id : k_ids) {
            const std::string number = std::to_string(id);
            programs_.push_back(std::make_unique<child_process>(
                std::vector<std::string>{DEMO_NODE_PROGRAM, "--id", number, "--name", "node" + number, "--ip",
                                         "192.168.1." + number},
                child_process::settings{.error_file = "/dev/null", .merge_errors = false}));
            EXPECT_TRUE(programs_.back()->send_line("start"));
        }
    }

    void discard_output() {
        for (const auto &program : programs_) {
            (void)program->receive();
            while (program->take_line()) {
            }
        }
    }

private:
    std::vector<std::unique_ptr<child_process>> programs_;
};

} // namespace

TEST(ManagerKilled, IsJoinedAgainByEveryNodeWithinOnePeriod) {
    const long kills = test_rounds("VEXAMSG_TEST_KILLS", 2);
    applications nodes;
    auto current = std::make_unique<manager>();
    ASSERT_TRUE(current->missing(k_ids, 10s).empty());
    double longest_s = 0;
    for (long i = 0; i < kills && !HasFailure(); ++i) {
        current->kill_it();
        current = std::make_unique<manager>();
        const auto ready = steady::now();
        const std::set<int> lost = current->missing(k_ids, 20s);
        EXPECT_TRUE(lost.empty()) << "after kill " << i << " node " << *lost.begin() << " did not come back";
        longest_s = std::max(longest_s, seconds_since(ready));
        EXPECT_LE(seconds_since(ready), k_period_s + k_start_s) << "after kill " << i;
        nodes.discard_output();
    }
    std::cout << kills << " kills, " << k_ids.size() << " nodes, the last back after at most " << longest_s
              << " s" << std::endl;
}

/// With periods of 50 ms in place of 10 s, seen from the node.
TEST(ManagerKilled, AcceptsTheNodeAgainTwoHundredTimes) {
    constexpr int kills = 200;
    faults::shorten_waits(0.05);
    auto current = std::make_unique<manager>();
    ASSERT_EQ(vision_msg_component_init(NODE_DETECTION_TRACKING, "node", "192.168.1.9", nullptr), 0);
    ASSERT_TRUE(wait_until([] { return nmapping_get_stat(0) == 1; }));
    for (int i = 0; i < kills; ++i) {
        current->kill_it();
        nmapping_set_stat(0, NODE_STAT_INACTIVED);
        current = std::make_unique<manager>();
        ASSERT_TRUE(wait_until([] { return nmapping_get_stat(0) == 1; })) << i;
    }
    vision_msg_component_deinit();
}
