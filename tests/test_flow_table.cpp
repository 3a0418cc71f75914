// What counts as one flow, what it is called, and what a filter sees of it.
#include "flow_table.h"

#include "route_datagrams.h"
#include "vectors.h"

#include <gtest/gtest.h>

using bus::message;
using vexa::flow_table;
using vexa::message_filter;

namespace {

bus::bytes key_and(unsigned key, const bus::bytes &rest = {}) {
    bus::bytes payload;
    bus::append16(payload, key);
    return bus::joined(payload, rest);
}

vexa::flow_names names_of_only(const flow_table &table) {
    EXPECT_EQ(table.all().size(), 1U);
    return table.all().begin()->second.names;
}

vexa::flow_names names_of(const bus::bytes &datagram, uint16_t from, uint16_t to) {
    flow_table table;
    table.see(captured(datagram, from, to).at(0));
    return names_of_only(table);
}

bool passes(const bus::bytes &datagram, const std::string &filter) {
    flow_table table;
    table.see(captured(datagram, 9, 5).at(0));
    return table.all().begin()->second.sample->matches(message_filter(filter));
}

} // namespace

TEST(FlowTable, SumsUpWhatHasTheSameEndsKindAndType) {
    flow_table table;
    for (int i = 0; i < 3; ++i) {
        table.see(captured(message({0, 3, 5}, key_and(2, bus::bytes(static_cast<size_t>(i)))), 3, 5).at(i));
    }
    ASSERT_EQ(table.all().size(), 1U);
    const vexa::rate_meter &meter = table.all().begin()->second.meter;
    EXPECT_EQ(meter.messages(), 3U);
    EXPECT_EQ(meter.bytes(), 3 * 18U + 3);
    EXPECT_DOUBLE_EQ(meter.mean()->messages, 1);
}

TEST(FlowTable, KeepsApartWhatDiffersInOneOfThem) {
    flow_table table;
    for (const bus::bytes &each :
         {message({0, 3, 5}, key_and(2)), message({0, 4, 5}, key_and(2)), message({0, 3, 6}, key_and(2)),
          message({1, 3, 5}, key_and(2)), message({0, 3, 5}, key_and(6))}) {
        table.see(captured(each, 3, 5).at(0));
    }
    EXPECT_EQ(table.all().size(), 5U);
}

TEST(FlowTable, NamesEndsKindAndTypeAsAFilterTakesThem) {
    const auto status = names_of(message({0, 3, 5}, key_and(2)), 3, 5);
    EXPECT_EQ(status.from, "vio(3)");
    EXPECT_EQ(status.to, "soa(5)");
    EXPECT_EQ(status.kind, "0 status");
    EXPECT_EQ(status.type, "soa_cfg(2)");
    EXPECT_EQ(status.damage, "");
    EXPECT_EQ(names_of(vectors::bytes("route_register_node9"), 9, 0).kind, "2 register");
    EXPECT_EQ(names_of(vectors::bytes("route_heartbeat_two_pairs"), 9, 127).kind, "4 heartbeat_set");
}

TEST(FlowTable, AStatusIsToldByItsFirstWordWhateverItIs) {
    EXPECT_EQ(names_of(message({0, 3, 5}, key_and(0x7777)), 3, 5).type, "0x7777");
}

TEST(FlowTable, AMessageThatBeginsWithAnythingIsOneFlow) {
    flow_table table;
    for (unsigned i = 0x6000; i < 0x6400; ++i) { // as a counter at the beginning would
        table.see(captured(message({1, 9, 3}, key_and(i)), 9, 3).at(0));
    }
    EXPECT_EQ(names_of_only(table).type, "");
}

TEST(FlowTable, TheLinkIsToldByAddresses) {
    flow_table table;
    const vexa::endpoint from{0xC0A80109, 40000};
    const vexa::endpoint to{0xC0A80105, 5673};
    table.see(captured(vectors::bytes("link_datagram_track_status"), from, to).at(0));
    const auto names = names_of_only(table);
    EXPECT_EQ(names.from, "192.168.1.9:40000");
    EXPECT_EQ(names.to, "192.168.1.5:5673");
    EXPECT_EQ(names.kind, "track_status");
}

TEST(FlowTable, WhatIsMalformedOrCutIsAFlowOfItsOwn) {
    flow_table table;
    table.see(captured(message({1, 3, 5}, bus::bytes(10)), 3, 5).at(0));
    table.see(captured(bus::message_saying(100, {1, 3, 5}, bus::bytes(10)), 3, 5).at(0));
    ASSERT_EQ(table.all().size(), 2U);
    EXPECT_EQ(table.all().begin()->second.names.damage, "");
    EXPECT_EQ(table.all().rbegin()->second.names.damage, "cut");
}

TEST(FlowTable, CountsWhatIsNoneOfThisSystems) {
    flow_table table;
    EXPECT_FALSE(table.see(captured(bus::bytes{1, 2, 3}, {1, 1}, {2, 53}).at(0)));
    EXPECT_EQ(table.others(), 1U);
    EXPECT_TRUE(table.all().empty());
}

TEST(FlowTable, ForgetsTheLongestSilentOneWhenThereAreTooMany) {
    flow_table table(3);
    for (uint16_t src = 1; src <= 5; ++src) {
        table.see(captured(message({1, src, 9}), src, 9).at(src));
        table.see(captured(message({1, 1, 9}), 1, 9).at(src + 0.5));
    }
    EXPECT_EQ(table.all().size(), 3U);
    EXPECT_EQ(table.forgotten(), 2U);
    EXPECT_EQ(table.all().begin()->second.names.from, "vision_machine(1)") << "which spoke all the time";
}

TEST(FlowTable, AFilterSeesOfAFlowWhatItSeesOfItsMessages) {
    const bus::bytes status = message({0, 9, 5}, key_and(6, bus::bytes(8)));
    for (const char *yes : {"from 9", "to soa", "node 9", "kind 0", "type detection_objects", "family user",
                            "message status", "from 9 and not cut", ""}) {
        EXPECT_TRUE(passes(status, yes)) << yes;
    }
    for (const char *no :
         {"from 8", "to 9", "kind 1", "type 7", "family manager", "message message", "cut"}) {
        EXPECT_FALSE(passes(status, no)) << no;
    }
    EXPECT_TRUE(passes(bus::message_saying(100, {1, 9, 5}, bus::bytes(10)), "cut"));
}
