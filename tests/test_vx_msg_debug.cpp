// The debug thread, which shows the node table when asked to.
#include "expect_log.h"
#include "faults.h"
#include "peer.h"
#include "wait.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

using bus::node_under_test;

constexpr char k_unit[] = "src/vx_msg";
constexpr char k_thread[] = "msg_route_dbg_thread";
constexpr char k_caption[] = "_________________client__node_mapping______________________________\n";
constexpr char k_headings[] = "| node_id |       name       |      ip_addr     |   port   | stat |\n";
constexpr char k_row[] = "| %7d | %16s | %16s | %8d | %4d |\n";
constexpr char k_rule[] = "___________________________________________________________________\n";

int dump_wanted() {
    return __atomic_load_n(&gn_dbg_route, __ATOMIC_RELAXED);
}

void ask_for_a_dump() {
    __atomic_store_n(&gn_dbg_route, 0, __ATOMIC_RELAXED);
}

/// How often the debug thread has begun to wait.
size_t debug_waits() {
    const std::vector<double> waits = faults::waits();
    return static_cast<size_t>(
        std::count_if(waits.begin(), waits.end(), [](double w) { return w > 119 && w <= 120; }));
}

bool wait_for_more_rounds(size_t rounds) {
    const size_t before = debug_waits();
    return wait_until([=] { return debug_waits() >= before + rounds; });
}

} // namespace

TEST(DebugDump, IsWantedAtTheStart) {
    EXPECT_EQ(gn_dbg_route, 0);
}

TEST(DebugDump, ComesAfterTwoMinutes) {
    node_under_test node{5};
    ASSERT_EQ(node.start(), 0);
    ASSERT_TRUE(wait_until([] { return debug_waits() == 1; }));
    EXPECT_EQ(logs::count(k_caption), 0U) << "not at once";
}

TEST(DebugDump, ShowsTheActiveNodesBetweenItsCaptionAndItsRule) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({3}));
    node.stop();
    logs::clear();
    faults::shorten_waits(0.01);
    ASSERT_EQ(node.start(), 0);
    ASSERT_TRUE(logs::wait_for(k_rule));
    std::vector<logs::line> dump = logs::all();
    dump.erase(std::remove_if(dump.begin(), dump.end(),
                              [](const logs::line &l) {
                                  return l.function != k_thread && l.function != "nmapping_valid_item_show";
                              }),
               dump.end());
    ASSERT_GE(dump.size(), 6U);
    EXPECT_LOGGED(INFO, k_unit, k_thread, k_caption, k_caption);
    EXPECT_LOGGED(INFO, k_unit, k_thread, k_headings, k_headings);
    EXPECT_LOGGED(INFO, "src/node_mapping", "nmapping_valid_item_show", k_row,
                  "|       3 |            node3 |      192.168.1.3 |     9003 |    1 |\n");
    EXPECT_LOGGED(INFO, k_unit, k_thread, k_rule, k_rule);
    EXPECT_EQ(dump[0].format, k_caption);
    EXPECT_EQ(dump[1].format, k_headings);
    EXPECT_EQ(dump[2].text.substr(0, 9), "|       3");
    EXPECT_EQ(dump[3].text.substr(0, 9), "|       5");
    EXPECT_EQ(dump[4].text.substr(0, 9), "|     126");
    EXPECT_EQ(dump[5].format, k_rule);
}

TEST(DebugDump, ComesOnceAndAgainWhenAskedFor) {
    faults::shorten_waits(0.01);
    node_under_test node{5};
    ASSERT_EQ(node.start(), 0);
    ASSERT_TRUE(wait_until([] { return dump_wanted() == 1; }));
    ASSERT_TRUE(wait_for_more_rounds(5));
    EXPECT_EQ(logs::count(k_caption), 1U);
    EXPECT_EQ(logs::count(k_rule), 1U);
    ask_for_a_dump();
    ASSERT_TRUE(logs::wait_for(k_rule, 2));
    ASSERT_TRUE(wait_until([] { return dump_wanted() == 1; }));
    ASSERT_TRUE(wait_for_more_rounds(5));
    EXPECT_EQ(logs::count(k_caption), 2U);
}

TEST(DebugDump, IsNotWantedByAnyOtherValue) {
    for (const int value : {1, 2, -1, 0x100}) {
        __atomic_store_n(&gn_dbg_route, value, __ATOMIC_RELAXED);
        faults::shorten_waits(0.01);
        node_under_test node{5};
        ASSERT_EQ(node.start(), 0);
        ASSERT_TRUE(wait_for_more_rounds(5));
        EXPECT_EQ(logs::count(k_caption), 0U) << value;
        EXPECT_EQ(dump_wanted(), value);
    }
}

TEST(DebugDump, DoesNotKeepANodeFromLeaving) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    ASSERT_TRUE(wait_until([] { return debug_waits() == 1; }));
    const auto start = std::chrono::steady_clock::now();
    node.stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60)); // of the two minutes
    EXPECT_EQ(dump_wanted(), 0) << "the next start still owes it";
}
