// The node table that the traffic shows, and the pictures of it.
#include "node_watch.h"

#include "nodes_screen.h"
#include "route_datagrams.h"
#include "vectors.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

using bus::message;
using bus::record_of;
using bus::table;
using testing::HasSubstr;
using testing::StartsWith;
using vexa::node_state;
using vexa::node_watch;
using vexa::seen_node;

namespace {

int64_t time_at(double seconds) {
    return captured(bus::bytes{}, 1, 1).at(seconds).time_ns;
}

/// A bus that is listened to; times are in seconds.
class bus_heard {
public:
    void say(double now, const bus::bytes &datagram, uint16_t from, uint16_t to) {
        watch_.see(captured(datagram, from, to).at(now));
    }
    void manager_says(double now, const std::vector<bus::record> &records) {
        say(now, message({2, 0, 9, bus::k_accepted}, table(records)), 0, 9);
    }
    void registers(double now, uint16_t id) {
        say(now, message({2, id, 0}, table({record_of(id)}, 0)), id, 0);
    }
    void leaves(double now, uint16_t id) {
        say(now, message({2, id, 0}, bus::joined(table({record_of(id)}, 1), bus::bytes(16))), id, 0);
    }
    void talks(double now, uint16_t id, uint16_t to = 1) { say(now, message({1, id, to}), id, to); }

    [[nodiscard]] seen_node node(uint16_t id) const {
        const auto found = watch_.all().find(id);
        EXPECT_NE(found, watch_.all().end()) << "no node " << id;
        return found == watch_.all().end() ? seen_node{} : found->second;
    }
    [[nodiscard]] vexa::nodes_numbers numbers(double now) const {
        return {"lo", time_at(now), watch_.all(), {}};
    }

private:
    node_watch watch_;
};

} // namespace

TEST(NodeWatch, TakesNameAddressAndStateFromTheManagersTable) {
    bus_heard heard;
    heard.manager_says(1, {record_of(3), record_of(5, 0)});
    EXPECT_EQ(heard.node(3).name, "node3");
    EXPECT_EQ(to_text(heard.node(3).address), "192.168.1.3:9003");
    EXPECT_EQ(heard.node(3).state, node_state::active);
    EXPECT_EQ(heard.node(3).last_ns, 0) << "it has sent nothing itself";
    EXPECT_EQ(heard.node(5).state, node_state::inactive);
    EXPECT_EQ(heard.node(0).last_ns, time_at(1));
}

TEST(NodeWatch, WhoeverSendsIsSeen) {
    bus_heard heard;
    heard.talks(1, 9);
    heard.talks(2.5, 9);
    EXPECT_EQ(heard.node(9).state, node_state::heard);
    EXPECT_EQ(heard.node(9).messages, 2U);
    EXPECT_EQ(heard.node(9).last_ns, time_at(2.5));
    EXPECT_EQ(to_text(heard.node(9).address), "192.168.1.9:9009");
    EXPECT_EQ(heard.node(9).name, "");
}

TEST(NodeWatch, ANodeThatAsksToBeLetInIsRegistering) {
    bus_heard heard;
    heard.registers(1, 9);
    EXPECT_EQ(heard.node(9).state, node_state::registering);
    EXPECT_EQ(heard.node(9).name, "node9");
    EXPECT_EQ(heard.node(9).registered_ns, 0);
}

TEST(NodeWatch, ANodeTellsAboutItselfInANodeInfo) {
    bus_heard heard;
    heard.say(1, vectors::bytes("route_node_info_9_to_3"), 9, 3);
    EXPECT_EQ(heard.node(9).state, node_state::registering);
    EXPECT_EQ(heard.node(9).name, "detection");
}

TEST(NodeWatch, WhoWasThereAtTheBeginningIsRegisteredSinceBefore) {
    bus_heard heard;
    heard.registers(1, 3);
    heard.manager_says(1.1, {record_of(3)});
    EXPECT_EQ(heard.node(3).registered_ns, time_at(1.1));
    EXPECT_TRUE(heard.node(3).registered_before);
}

TEST(NodeWatch, KnowsWhenANodeCame) {
    bus_heard heard;
    heard.manager_says(1, {record_of(3), record_of(5, 0)});
    heard.registers(2, 9);
    heard.manager_says(2.1, {record_of(3), record_of(5, 0), record_of(9)});
    EXPECT_EQ(heard.node(9).registered_ns, time_at(2.1));
    EXPECT_FALSE(heard.node(9).registered_before) << "an earlier table did not have it";
    heard.manager_says(3, {record_of(3), record_of(5), record_of(9)});
    EXPECT_EQ(heard.node(5).registered_ns, time_at(3));
    EXPECT_FALSE(heard.node(5).registered_before) << "an earlier table had it as inactive";
    EXPECT_EQ(heard.node(9).registered_ns, time_at(2.1)) << "later tables change nothing";
}

TEST(NodeWatch, KnowsThatANodeIsNewThatWasSilentForLongerThanAKeepAlive) {
    bus_heard heard;
    heard.talks(0, 1);
    heard.registers(11.5, 9);
    heard.manager_says(11.6, {record_of(9)});
    EXPECT_FALSE(heard.node(9).registered_before);
}

TEST(NodeWatch, ANodeThatLeavesIsInactiveUntilItComesBack) {
    bus_heard heard;
    heard.manager_says(1, {record_of(9)});
    heard.leaves(2, 9);
    EXPECT_EQ(heard.node(9).state, node_state::inactive);
    EXPECT_EQ(heard.node(9).registered_ns, 0);
    heard.manager_says(5, {record_of(9)});
    EXPECT_EQ(heard.node(9).registered_ns, time_at(5));
    EXPECT_FALSE(heard.node(9).registered_before);
}

TEST(NodeWatch, BelievesNothingThatIsNoMessage) {
    bus_heard heard;
    heard.say(1, bus::text("this is no message of any kind"), 9, 5);
    heard.say(1, message({7, 9, 5}), 9, 5);
    heard.say(1, bus::text("x"), 9, 5);
    EXPECT_TRUE(heard.numbers(1).nodes.empty());
}

TEST(NodeWatch, ATableOfAnybodyElseIsNone) {
    bus_heard heard;
    heard.say(1, message({2, 9, 3}, table({record_of(5)})), 9, 3);
    EXPECT_FALSE(heard.numbers(1).nodes.contains(5));
}

TEST(NodeWatch, RemembersNoMoreNodesThanItMay) {
    bus_heard heard;
    for (uint16_t id = 1; id < 2000; ++id) {
        heard.talks(1, id);
    }
    EXPECT_EQ(heard.numbers(1).nodes.size(), 512U);
}

TEST(NodesScreen, HasALineForEachNode) {
    bus_heard heard;
    heard.manager_says(1, {record_of(3), record_of(5, 0)});
    heard.talks(1.5, 3);
    heard.talks(2, 64001, 3);
    const std::string text = nodes_text(heard.numbers(4));
    const std::string since = text.substr(text.find("before ") + 7, 8);
    EXPECT_EQ(
        text,
        "NODE        NAME   ADDRESS             STATE             LAST SEEN  REGISTERED SINCE  MESSAGES\n"
        "manager(0)  -      192.168.1.1:9000    node manager          3.0 s  -                        1\n"
        "vio(3)      node3  192.168.1.3:9003    active                2.5 s  before " +
            since +
            "          1\n"
            "soa(5)      node5  192.168.1.5:9005    inactive              never  -                        "
            "0\n" +
            text.substr(text.find("app(64001)")));
    EXPECT_THAT(text.substr(text.find("app(64001)")), HasSubstr("  behind the proxy      2.0 s  -  "));
}

TEST(NodesScreen, ANodeWithoutKeepAlivesIsSilent) {
    bus_heard heard;
    heard.manager_says(1, {record_of(3)});
    heard.talks(2, 3);
    EXPECT_THAT(nodes_text(heard.numbers(22)), HasSubstr("  active  "));
    EXPECT_THAT(nodes_text(heard.numbers(23.1)), HasSubstr("  active, silent  "));
}

TEST(NodesScreen, AnAddressThatIsNoneIsShownAsItIs) {
    bus_heard heard;
    bus::record odd = record_of(3);
    odd.ip = "so\x1b[2J";
    heard.manager_says(1, {odd});
    EXPECT_THAT(nodes_text(heard.numbers(1)), HasSubstr("'so?[2J':9003"));
}

TEST(NodesScreen, FitsEveryTerminalAndScrolls) {
    bus_heard heard;
    heard.manager_says(1, {record_of(3), record_of(5), record_of(9), record_of(127)});
    vexa::nodes_page page([&] { return heard.numbers(2); });
    page.refresh();
    for (size_t columns = 1; columns < 160; ++columns) {
        for (const size_t rows : std::vector<size_t>{1, 2, 3, 5, 24}) {
            const auto lines = page.draw({columns, rows});
            EXPECT_LE(lines.size(), rows);
            for (const auto &line : lines) {
                EXPECT_LE(line.width(), columns);
            }
        }
    }
    EXPECT_THAT(page.draw({80, 5})[2].plain(), StartsWith("manager(0)"));
    EXPECT_TRUE(page.press({vexa::key_kind::down}));
    EXPECT_THAT(page.draw({80, 5})[2].plain(), StartsWith("vio(3)"));
    EXPECT_FALSE(page.press({vexa::key_kind::text, 'q'}));
}

TEST(NodesJson, HasTheWholeTable) {
    bus_heard heard;
    heard.manager_says(1, {record_of(3)});
    heard.talks(1.5, 3);
    const auto all = nlohmann::json::parse(nodes_json(heard.numbers(4)));
    EXPECT_EQ(all["event"], "nodes");
    EXPECT_EQ(all["nodes"][1], nlohmann::json::parse(R"({"node_id": 3, "name": "node3", "ip": "192.168.1.3",
        "port": 9003, "address": "192.168.1.3:9003", "active": true, "state": "active", "messages": 1,
        "last_seen_ns": 1700000001500000000, "registered_ns": 1700000001000000000, "registered_before": true})"));
}
