// Runs the checks that are written in C, and the same tables as C++ sees them.
#include "interface_bits.h"
#include "interface_in_c.h"
#include "interface_rows.h"

#include <gtest/gtest.h>
#include <set>
#include <string>

namespace {

template <size_t N>
void expect_kept(const interface_row (&rows)[N]) {
    for (const interface_row &row : rows) {
        EXPECT_EQ(row.is, row.should_be) << row.what;
    }
}

} // namespace

TEST(InterfaceInC, HasEveryValueAndLayout) {
    std::set<std::string> tables;
    for (const interface_table *table = c_interface_tables; table->name != nullptr; ++table) {
        tables.insert(table->name);
        for (size_t i = 0; i < table->count; ++i) {
            EXPECT_EQ(table->rows[i].is, table->rows[i].should_be) << table->rows[i].what;
        }
    }
    EXPECT_EQ(tables.size(), 5U);
}

TEST(InterfaceInC, HasEveryNamedBitInItsPlace) {
    EXPECT_STREQ(c_misplaced_flag(), nullptr);
    EXPECT_STREQ(c_misplaced_device_member(), nullptr);
    EXPECT_STREQ(c_misplaced_core_member(), nullptr);
    EXPECT_STREQ(c_misplaced_task_member(), nullptr);
}

TEST(InterfaceInC, UsesTheNodeTable) {
    EXPECT_EQ(c_node_table_is_used(), 0);
}

TEST(InterfaceInC, UsesTheQueues) {
    EXPECT_EQ(c_queues_are_used(), 0);
}

TEST(InterfaceInC, UsesTheHeartbeat) {
    EXPECT_EQ(c_heartbeat_is_used(), 0);
}

TEST(InterfaceInC, ReadsAndWritesHeaders) {
    EXPECT_EQ(c_headers_are_read_and_written(), 0);
}

TEST(InterfaceInC, IsRefusedByANodeThatIsNotStarted) {
    EXPECT_EQ(c_node_that_is_not_started_refuses(), 0);
}

TEST(InterfaceInC, HasItsTypes) {
    EXPECT_EQ(c_interface_has_its_types(), 0);
}

TEST(Interface, HasEveryNodeId) {
    expect_kept(node_id_rows);
    EXPECT_EQ(ROWS_IN(node_id_rows), 27U);
}

TEST(Interface, HasEveryMessageType) {
    expect_kept(msg_type_rows);
    EXPECT_EQ(ROWS_IN(msg_type_rows), 39U);
}

TEST(Interface, HasEveryHeartbeatField) {
    expect_kept(heartbeat_field_rows);
    EXPECT_EQ(ROWS_IN(heartbeat_field_rows), 73U);
}

TEST(Interface, HasEveryConstant) {
    expect_kept(constant_rows);
}

TEST(Interface, HasEveryLayout) {
    expect_kept(layout_rows);
}

TEST(Interface, HasEveryNamedBitInItsPlace) {
    EXPECT_STREQ(misplaced_flag(), nullptr);
    EXPECT_STREQ(misplaced_device_member(), nullptr);
    EXPECT_STREQ(misplaced_core_member(), nullptr);
    EXPECT_STREQ(misplaced_task_member(), nullptr);
}
