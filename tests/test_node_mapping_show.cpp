// The dump of the node table into the log.
#include "node_mapping.h"

#include "log_lines.h"
#include "node_records.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using node_records::filled;
using node_records::record;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr char k_format[] = "| %7d | %16s | %16s | %8d | %4d |\n";
constexpr char k_prefix[] = "INFO src/node_mapping nmapping_valid_item_show: ";

class NodeTableDump : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(nmapping_create(), 0); }
    void TearDown() override { nmapping_destroy(); }

    static void set(uint16_t id, const vexa_node_t &node) { ASSERT_EQ(nmapping_set(id, &node), 0); }
};

} // namespace

TEST_F(NodeTableDump, OfNoActiveNodeIsEmpty) {
    set(4, record("dpu", "192.168.1.4", 9004, 4, 0));
    nmapping_valid_item_show();
    EXPECT_THAT(logs::lines(), IsEmpty());
}

TEST_F(NodeTableDump, HasARowForEachActiveNodeInTheOrderOfTheIds) {
    set(3, record("vio", "192.168.1.3", 9003, 3, 1));
    set(5, record("soa", "192.168.1.5", 9005, 5, 0));
    set(127, record("fifteen_letters", "192.168.100.127", 65535, 127, 1));
    nmapping_set_stat(0, 1);
    nmapping_valid_item_show();
    const std::string prefix = k_prefix;
    EXPECT_THAT(
        logs::lines(),
        ElementsAre(prefix + "|       0 |       mgr_server |      192.168.1.1 |     9000 |    1 |\n",
                    prefix + "|       3 |              vio |      192.168.1.3 |     9003 |    1 |\n",
                    prefix + "|     127 |  fifteen_letters |  192.168.100.127 |    65535 |    1 |\n"));
    EXPECT_EQ(logs::count(k_format), 3U);
}

TEST_F(NodeTableDump, ShowsAllSlotsWhenAllAreActive) {
    for (uint16_t id = 0; id < 128; ++id) {
        nmapping_set_stat(id, 1);
    }
    nmapping_valid_item_show();
    EXPECT_THAT(logs::with_format(k_format), SizeIs(128));
}

TEST_F(NodeTableDump, TakesEveryStateButZeroForActive) {
    set(6, record("calib", "192.168.1.6", 9006, 6, 255));
    nmapping_valid_item_show();
    EXPECT_THAT(logs::lines(),
                ElementsAre(std::string(k_prefix) +
                            "|       6 |            calib |      192.168.1.6 |     9006 |  255 |\n"));
}

TEST_F(NodeTableDump, ShowsTheRecordsOwnIdAndNotTheSlots) {
    set(7, record("tracking", "192.168.1.9", 9009, 900, 1));
    nmapping_valid_item_show();
    EXPECT_THAT(logs::lines(),
                ElementsAre(std::string(k_prefix) +
                            "|     900 |         tracking |      192.168.1.9 |     9009 |    1 |\n"));
}

TEST_F(NodeTableDump, ReadsNoFurtherThanATextsField) {
    set(8, record("sixteen__letters", "xxxxxxxxxxxxxxxx", 9008, 8, 1));
    nmapping_valid_item_show();
    EXPECT_THAT(logs::lines(),
                ElementsAre(std::string(k_prefix) +
                            "|       8 |  sixteen__letter |  xxxxxxxxxxxxxxx |     9008 |    1 |\n"));
}

TEST_F(NodeTableDump, LeavesTheTextsInTheTableAsTheyAre) {
    vexa_node_t full = filled('y');
    full.node_id = 8;
    set(8, full);
    nmapping_valid_item_show();
    vexa_node_t out{};
    EXPECT_EQ(nmapping_get(8, &out), 0);
    EXPECT_EQ(node_records::bytes_of(out), node_records::bytes_of(full));
}

TEST_F(NodeTableDump, ShowsNoRowTwiceWhenTheTableIsStoppedMeanwhile) {
    set(3, record("vio", "192.168.1.3", 9003, 3, 1));
    logs::on_line([](const logs::line &) { nmapping_destroy(); });
    nmapping_valid_item_show();
    logs::on_line({});
    EXPECT_THAT(logs::lines(),
                ElementsAre(std::string(k_prefix) +
                            "|       3 |              vio |      192.168.1.3 |     9003 |    1 |\n"));
}
