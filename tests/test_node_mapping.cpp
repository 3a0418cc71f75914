// The node table: its slots, its life and the next hop. The dump is in test_node_mapping_show.cpp.
#include "node_mapping.h"

#include "log_lines.h"
#include "node_records.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using node_records::bytes_of;
using node_records::filled;
using node_records::record;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using ids = std::vector<uint16_t>;

constexpr uint16_t k_no_slot[] = {128, 129, 200, 1000, 32768, 64001, 64002, 65280, 65535};

/// Any table starts with an empty record in each slot and the manager in slot 0.
vexa_node_t preset(uint16_t id) {
    vexa_node_t node{};
    if (id == 0) {
        node = record("mgr_server", "192.168.1.1", 9000, 0, 0);
    }
    node.node_id = id;
    return node;
}

class NodeTable : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(nmapping_create(), 0); }
    void TearDown() override { nmapping_destroy(); }

    static vexa_node_t get(uint16_t id) {
        vexa_node_t node = filled(0xEE);
        EXPECT_EQ(nmapping_get(id, &node), 0) << id;
        return node;
    }
};

} // namespace

TEST_F(NodeTable, PresetsTheManagerAndTheIdsOfAllOtherSlots) {
    for (uint16_t id = 0; id < 128; ++id) {
        EXPECT_EQ(bytes_of(get(id)), bytes_of(preset(id))) << id;
        EXPECT_EQ(nmapping_get_stat(id), 0) << id;
    }
    EXPECT_THAT(logs::lines(), IsEmpty());
}

TEST_F(NodeTable, StoresAndReturnsAllBytesOfARecord) {
    for (uint16_t id = 0; id < 128; ++id) {
        vexa_node_t node = filled(static_cast<uint8_t>(id + 64));
        node.node_id = id;
        EXPECT_EQ(nmapping_add(id, &node), 0);
        EXPECT_EQ(bytes_of(get(id)), bytes_of(node)) << id;
    }
}

TEST_F(NodeTable, SetDoesWhatAddDoes) {
    for (auto *store : {nmapping_add, nmapping_set}) {
        for (const uint8_t fill : {uint8_t{0x11}, uint8_t{0xF7}}) {
            vexa_node_t node = filled(fill);
            node.node_id = 5;
            EXPECT_EQ(store(5, &node), 0);
            EXPECT_EQ(bytes_of(get(5)), bytes_of(node));
        }
    }
}

TEST_F(NodeTable, StoresIntoTheOneSlotOnly) {
    const vexa_node_t node = record("vio", "192.168.1.3", 9003, 3, 1);
    EXPECT_EQ(nmapping_set(3, &node), 0);
    for (uint16_t id = 0; id < 128; ++id) {
        EXPECT_EQ(bytes_of(get(id)), bytes_of(id == 3 ? node : preset(id))) << id;
    }
}

TEST_F(NodeTable, KeepsACopyAndNotTheCallersRecord) {
    vexa_node_t node = record("vio", "192.168.1.3", 9003, 3, 1);
    EXPECT_EQ(nmapping_set(3, &node), 0);
    node = {};
    EXPECT_STREQ(get(3).name, "vio");
}

TEST_F(NodeTable, CopiesARecordUnderAnotherIdOutAndSaysSo) {
    const vexa_node_t node = record("tracking", "192.168.1.9", 9009, 9, 1);
    EXPECT_EQ(nmapping_add(7, &node), 0);
    vexa_node_t out = filled(0xEE);
    EXPECT_EQ(nmapping_get(7, &out), -1);
    EXPECT_EQ(bytes_of(out), bytes_of(node));
    EXPECT_THAT(logs::lines(), IsEmpty());
}

TEST_F(NodeTable, GetNamesAnIdWithoutSlotAndLeavesTheRecordAlone) {
    for (const uint16_t id : k_no_slot) {
        logs::clear();
        vexa_node_t out = filled(0xEE);
        EXPECT_EQ(nmapping_get(id, &out), -1) << id;
        EXPECT_EQ(bytes_of(out), bytes_of(filled(0xEE))) << id;
        EXPECT_THAT(
            logs::lines_of("inval, nodeid %u\n"),
            ElementsAre("INFO src/node_mapping nmapping_get: inval, nodeid " + std::to_string(id) + "\n"));
    }
}

TEST_F(NodeTable, RefusesToChangeWhatHasNoSlot) {
    const vexa_node_t node = record("x", "1.2.3.4", 1, 1, 1);
    for (const uint16_t id : k_no_slot) {
        EXPECT_EQ(nmapping_add(id, &node), -1) << id;
        EXPECT_EQ(nmapping_set(id, &node), -1) << id;
        EXPECT_EQ(nmapping_del(id), -1) << id;
        EXPECT_EQ(nmapping_get_stat(id), -1) << id;
        nmapping_set_stat(id, 1);
    }
    for (uint16_t id = 0; id < 128; ++id) {
        EXPECT_EQ(bytes_of(get(id)), bytes_of(preset(id))) << id;
    }
    EXPECT_THAT(logs::lines(), IsEmpty());
}

TEST_F(NodeTable, RefusesNullRecords) {
    EXPECT_EQ(nmapping_add(5, nullptr), -1);
    EXPECT_EQ(nmapping_set(5, nullptr), -1);
    EXPECT_EQ(nmapping_get(5, nullptr), -1);
    EXPECT_EQ(bytes_of(get(5)), bytes_of(preset(5)));
}

TEST_F(NodeTable, DeletingOnlyMakesInactive) {
    vexa_node_t node = filled(0x41);
    node.node_id = 12;
    node.stat = 1;
    EXPECT_EQ(nmapping_add(12, &node), 0);
    EXPECT_EQ(nmapping_del(12), 0);
    node.stat = 0;
    EXPECT_EQ(bytes_of(get(12)), bytes_of(node));
    EXPECT_EQ(nmapping_get_stat(12), 0);
}

TEST_F(NodeTable, KeepsTheLowEightBitsOfAState) {
    struct {
        int given;
        int stored;
    } const rows[] = {{0, 0}, {1, 1}, {257, 1}, {256, 0}, {2, 2}, {255, 255}, {-1, 255}, {0x12345680, 0x80}};
    for (const auto &row : rows) {
        nmapping_set_stat(6, row.given);
        EXPECT_EQ(nmapping_get_stat(6), row.stored) << row.given;
        vexa_node_t expected = preset(6);
        expected.stat = static_cast<uint8_t>(row.stored);
        EXPECT_EQ(bytes_of(get(6)), bytes_of(expected)) << row.given;
    }
}

TEST_F(NodeTable, CreatedAgainResetsTheManagerOnly) {
    nmapping_set_stat(0, 1);
    const vexa_node_t moved = record("other", "10.0.0.1", 77, 0, 1);
    EXPECT_EQ(nmapping_set(0, &moved), 0);
    const vexa_node_t vio = record("vio", "192.168.1.3", 9003, 3, 1);
    const vexa_node_t stranger = record("stranger", "192.168.1.9", 9009, 9, 1);
    EXPECT_EQ(nmapping_set(3, &vio), 0);
    EXPECT_EQ(nmapping_set(7, &stranger), 0);

    EXPECT_EQ(nmapping_create(), 0);

    EXPECT_EQ(bytes_of(get(0)), bytes_of(preset(0)));
    EXPECT_EQ(bytes_of(get(3)), bytes_of(vio));
    vexa_node_t seventh{};
    EXPECT_EQ(nmapping_get(7, &seventh), -1) << "no slot but the manager's gets its id anew";
    EXPECT_EQ(bytes_of(seventh), bytes_of(stranger));
    EXPECT_EQ(bytes_of(get(126)), bytes_of(preset(126)));
}

TEST_F(NodeTable, PresetsTheManagersTextsUpToTheirEndOnly) {
    const vexa_node_t full = filled('z');
    EXPECT_EQ(nmapping_set(0, &full), 0);
    EXPECT_EQ(nmapping_create(), 0);
    vexa_node_t expected = full;
    memcpy(expected.name, "mgr_server", 11);
    memcpy(expected.ip, "192.168.1.1", 12);
    expected.port = 9000;
    expected.node_id = 0;
    expected.stat = 0;
    EXPECT_EQ(bytes_of(get(0)), bytes_of(expected));
}

TEST_F(NodeTable, SurvivesAStopButForTheManager) {
    const vexa_node_t vio = record("vio", "192.168.1.3", 9003, 3, 1);
    EXPECT_EQ(nmapping_set(3, &vio), 0);
    nmapping_set_stat(0, 1);
    nmapping_destroy();
    EXPECT_EQ(nmapping_create(), 0);
    EXPECT_EQ(bytes_of(get(3)), bytes_of(vio));
    EXPECT_EQ(bytes_of(get(0)), bytes_of(preset(0)));
}

TEST_F(NodeTable, GivesEverySlotItsIdAgainAfterAStop) {
    vexa_node_t stranger = record("stranger", "192.168.1.9", 9009, 9, 1);
    EXPECT_EQ(nmapping_set(7, &stranger), 0);
    nmapping_destroy();
    EXPECT_EQ(nmapping_create(), 0);
    stranger.node_id = 7;
    EXPECT_EQ(bytes_of(get(7)), bytes_of(stranger));
}

TEST_F(NodeTable, StoppedTwiceStartsAgain) {
    nmapping_destroy();
    nmapping_destroy();
    EXPECT_EQ(nmapping_get_stat(3), -1);
    EXPECT_EQ(nmapping_create(), 0);
    EXPECT_EQ(nmapping_get_stat(3), 0);
}

namespace {

void expect_every_operation_is_refused() {
    const vexa_node_t node = record("x", "1.2.3.4", 1, 3, 1);
    for (const uint16_t id : ids{0, 3, 127, 128, 65280}) {
        vexa_node_t out = filled(0xEE);
        EXPECT_EQ(nmapping_get(id, &out), -1) << id;
        EXPECT_EQ(bytes_of(out), bytes_of(filled(0xEE))) << id;
        EXPECT_EQ(nmapping_add(id, &node), -1) << id;
        EXPECT_EQ(nmapping_set(id, &node), -1) << id;
        EXPECT_EQ(nmapping_del(id), -1) << id;
        EXPECT_EQ(nmapping_get_stat(id), -1) << id;
        nmapping_set_stat(id, 1);
    }
    logs::clear();
    nmapping_valid_item_show();
    EXPECT_THAT(logs::lines(), IsEmpty());
}

} // namespace

TEST(NodeTableLife, RefusesEverythingBeforeTheStart) {
    expect_every_operation_is_refused();
    ASSERT_EQ(nmapping_create(), 0);
    vexa_node_t third = filled(0xEE);
    EXPECT_EQ(nmapping_get(3, &third), 0);
    EXPECT_EQ(bytes_of(third), bytes_of(preset(3))) << "nothing was touched";
}

TEST(NodeTableLife, RefusesEverythingAfterTheStop) {
    ASSERT_EQ(nmapping_create(), 0);
    const vexa_node_t vio = record("vio", "192.168.1.3", 9003, 3, 1);
    EXPECT_EQ(nmapping_set(3, &vio), 0);
    nmapping_destroy();
    expect_every_operation_is_refused();
    ASSERT_EQ(nmapping_create(), 0);
    vexa_node_t third{};
    EXPECT_EQ(nmapping_get(3, &third), 0);
    EXPECT_EQ(bytes_of(third), bytes_of(vio)) << "nothing was touched";
}

TEST(NodeTableLife, MayBeStoppedBeforeTheStart) {
    nmapping_destroy();
    EXPECT_EQ(nmapping_create(), 0);
    EXPECT_EQ(nmapping_get_stat(0), 0);
}

TEST(NodeTableLife, HasItsSizeAtAnyTime) {
    EXPECT_EQ(nmapping_get_size(), 128);
    ASSERT_EQ(nmapping_create(), 0);
    EXPECT_EQ(nmapping_get_size(), 128);
    nmapping_destroy();
    EXPECT_EQ(nmapping_get_size(), 128);
}

TEST(NodeTableLife, KeepsTheOwnIdWithoutATable) {
    EXPECT_EQ(nmapping_self_node_id(), 0);
    for (const uint16_t id : ids{9, 127, 128, 65535, 0}) {
        nmapping_set_self(id);
        EXPECT_EQ(nmapping_self_node_id(), id);
    }
}

TEST(NodeTableLife, KeepsTheOwnIdThroughStartAndStop) {
    nmapping_set_self(9);
    ASSERT_EQ(nmapping_create(), 0);
    EXPECT_EQ(nmapping_self_node_id(), 9);
    nmapping_destroy();
    EXPECT_EQ(nmapping_self_node_id(), 9);
}

TEST(NextHop, IsTheNodeItselfUpToTheProxyAndTheProxyAbove) {
    for (unsigned dst = 0; dst <= 65535; ++dst) {
        EXPECT_EQ(nmapping_get_next_hop(static_cast<uint16_t>(dst)), dst <= 127 ? dst : 127U) << dst;
    }
}

TEST(NextHop, OfTheNamedNodes) {
    struct {
        unsigned dst;
        int hop;
    } const rows[] = {{0, 0}, {126, 126}, {127, 127}, {128, 127}, {64001, 127}, {64002, 127}, {65280, 127}};
    for (const auto &row : rows) {
        EXPECT_EQ(nmapping_get_next_hop(static_cast<uint16_t>(row.dst)), row.hop) << row.dst;
    }
}

TEST(NextHop, DoesNotDependOnTheOwnId) {
    for (const uint16_t self : ids{1, 5, 126, 127, 64001}) {
        nmapping_set_self(self);
        for (const uint16_t dst : ids{0, 5, 126, 127, 128, 64001, 65280}) {
            EXPECT_EQ(nmapping_get_next_hop(dst), dst <= 127 ? dst : 127) << self;
        }
    }
}
