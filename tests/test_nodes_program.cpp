// `vexa nodes` as a user sees it: on a bench with a node manager, live on a pseudo-terminal and once.
#include "emulator.h"
#include "terminal_bench.h"
#include "wait.h"

#include <gmock/gmock.h>

using bench::run;
using testing::HasSubstr;
using testing::Not;

TEST(Nodes, FollowsWhoComesAndGoes) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    bench::manager manager;
    bench::node five{5};
    on_terminal nodes({"nodes", "-i", "lo", "--interval", "0.05"});
    ASSERT_TRUE(nodes.shows(" vexa nodes  lo "));
    five.keep_alive();
    ASSERT_TRUE(nodes.shows("soa(5)      node5  192.168.1.5:9005  active")) << nodes.screen().text();
    EXPECT_THAT(nodes.screen().text(), HasSubstr("before "));
    bench::node nine{9};
    ASSERT_TRUE(nodes.shows("2 nodes active")) << nodes.screen().text();
    nine.leave();
    ASSERT_TRUE(nodes.shows("1 nodes active"));
    EXPECT_THAT(nodes.screen().text(), HasSubstr("192.168.1.9:9009  inactive"));
    nodes.press("q");
    EXPECT_EQ(nodes.end(), 0);
    EXPECT_TRUE(nodes.is_given_back());
}

TEST(Nodes, IsShownOnceWithoutTakingPart) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    bench::manager manager;
    bench::node five{5};
    bench::program nodes{{"nodes", "-i", "lo", "--json", "--listen", "60"}};
    ASSERT_TRUE(wait_until([&] { return !nodes.error().empty(); }, bench::k_patience));
    five.keep_alive();
    ASSERT_TRUE(five.receive_of_kind(2).has_value());
    nodes.signal(SIGINT);
    const auto shown = nodes.end();
    EXPECT_EQ(shown.status, 0) << shown.error;
    EXPECT_THAT(manager.end().output, Not(HasSubstr("\"node_id\":119")));
    EXPECT_EQ(shown.json()["event"], "nodes");
}

TEST(Nodes, SaysThatNobodyWasHeard) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    const auto shown = run({"nodes", "-i", "lo", "--once", "--listen", "0.1"});
    EXPECT_EQ(shown.status, 1);
    EXPECT_EQ(shown.output, "");
    EXPECT_THAT(shown.error, HasSubstr("nobody was heard; 'vexa doctor' looks for the cause"));
}
