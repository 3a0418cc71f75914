// Manager messages: what they do to the node table, and what the log says of them.
#include "expect_log.h"
#include "node_mapping.h"
#include "peer.h"
#include "vectors.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>

namespace {

using bus::bytes;
using bus::message;
using bus::node_under_test;
using bus::record_of;
using bus::table;

constexpr char k_accepted_line[] = "receive MSTP_NODE_MGR regist success \n\r";
constexpr char k_echo_head[] = "___________________client_receive_MSTP_NODE_MGR____________________\n";
constexpr char k_echo_row[] = "| %7d | %16s | %16s | %8d | %4d |\n";
constexpr char k_echo_end[] = "___________________________________________________________________\n";

vexa_node_t entry(uint16_t id) {
    vexa_node_t node{};
    EXPECT_EQ(nmapping_get(id, &node), 0) << id;
    return node;
}

bytes bytes_of(const vexa_node_t &node) {
    bytes image(sizeof node);
    vexa_node_store(image.data(), &node);
    return image;
}

/// A node that is started but not accepted: no manager message has come yet.
std::unique_ptr<node_under_test> fresh_node(uint16_t id = 5) {
    auto node = std::make_unique<node_under_test>(id);
    EXPECT_EQ(node->start(), 0);
    EXPECT_TRUE(node->manager().receive());
    return node;
}

} // namespace

TEST(ManagerMessage, FillsTheTable) {
    const auto node = fresh_node(9);
    node->send(vectors::bytes("route_manager_answer"));
    ASSERT_TRUE(node->settle());
    EXPECT_STREQ(entry(3).name, "vio");
    EXPECT_STREQ(entry(3).ip, "192.168.1.3");
    EXPECT_EQ(entry(3).port, 9003);
    EXPECT_EQ(entry(3).stat, 1);
    EXPECT_STREQ(entry(127).name, "proxy");
    EXPECT_EQ(entry(127).port, 9127);
    EXPECT_EQ(nmapping_get_stat(0), 1);
}

TEST(ManagerMessage, IsStoredByteForByte) {
    const auto node = fresh_node();
    bytes record(38);
    for (size_t i = 0; i < record.size(); ++i) {
        record[i] = static_cast<uint8_t>(0x80 + i); // no text has an end, the unused byte is used
    }
    record[34] = 77;
    record[35] = 0;
    node->tell(bus::joined(bus::table_saying(1, {}), record));
    ASSERT_TRUE(node->settle());
    EXPECT_EQ(bytes_of(entry(77)), record);
}

TEST(ManagerMessage, IsTheSameWhateverItsCommandSays) {
    const auto node = fresh_node();
    uint16_t id = 20;
    for (const int cmd : {0, 1, 2, 3, -1, 0x7FFF}) {
        node->tell(table({record_of(id)}, cmd));
        ASSERT_TRUE(node->settle());
        EXPECT_EQ(nmapping_get_stat(id), 1) << cmd;
        ++id;
    }
}

TEST(ManagerMessage, CanMakeANodeInactiveAgain) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({3}));
    EXPECT_EQ(nmapping_get_stat(3), 1);
    node.tell(table({record_of(3, 0)}));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(nmapping_get_stat(3), 0);
    EXPECT_EQ(entry(3).port, 9003);
}

TEST(ManagerMessage, WithItsTopFlagBitAndNoRecordActivatesTheManagerAlone) {
    const auto node = fresh_node();
    node->tell(table({}), 0x80);
    ASSERT_TRUE(node->settle());
    EXPECT_EQ(nmapping_get_stat(0), 1);
    EXPECT_STREQ(entry(0).name, "mgr_server");
    for (uint16_t id = 1; id < 128; ++id) {
        EXPECT_EQ(nmapping_get_stat(id), id == 5 ? 1 : 0) << id; // the own entry is the worker's doing
    }
    EXPECT_LOGGED(INFO, logs::k_thread_io, "thrio_proc_message", k_accepted_line, k_accepted_line);
}

TEST(ManagerMessage, AcceptsByItsTopFlagBitOnly) {
    const auto node = fresh_node();
    for (const uint8_t flag : bytes{0x00, 0x01, 0x06, 0x7F}) {
        node->tell(table({}), flag);
    }
    ASSERT_TRUE(node->settle());
    EXPECT_EQ(nmapping_get_stat(0), 0);
    EXPECT_EQ(logs::count(k_accepted_line), 0U);
    node->tell(table({}), 0xFF);
    ASSERT_TRUE(node->settle());
    EXPECT_EQ(nmapping_get_stat(0), 1);
}

TEST(ManagerMessage, AcceptsAlsoWhenItIsEmpty) {
    const auto node = fresh_node();
    node->tell({}, 0x80);
    ASSERT_TRUE(node->settle());
    EXPECT_EQ(nmapping_get_stat(0), 1);
}

TEST(ManagerMessage, WhoseRecordsNameTheManagerHasTheLastWord) {
    const auto node = fresh_node();
    node->tell(table({record_of(0, 0)}), 0x80);
    ASSERT_TRUE(node->settle());
    EXPECT_EQ(nmapping_get_stat(0), 0);
    EXPECT_STREQ(entry(0).name, "node0");
}

TEST(ManagerMessage, AcceptanceIsLoggedAtTheFirstAndEveryHundredAndFirstTime) {
    const auto node = fresh_node();
    size_t sent = 0;
    struct row {
        size_t events;
        size_t lines;
    };
    for (const row &r : {row{1, 1}, row{2, 1}, row{101, 1}, row{102, 2}, row{202, 2}, row{203, 3}}) {
        for (; sent < r.events; ++sent) {
            node->tell(table({}), 0x80);
        }
        ASSERT_TRUE(node->settle());
        EXPECT_EQ(logs::count(k_accepted_line), r.lines) << r.events;
    }
}

TEST(ManagerMessage, IsEchoedToTheLogEverySixtiethTime) {
    const auto node = fresh_node();
    for (int i = 0; i < 59; ++i) {
        node->tell(table({record_of(3)}));
    }
    ASSERT_TRUE(node->settle());
    EXPECT_EQ(logs::count(k_echo_head), 0U);
    EXPECT_EQ(logs::count(k_echo_row), 0U);
    logs::clear();
    node->tell(table({record_of(3), record_of(127, 0)}));
    ASSERT_TRUE(node->settle());
    const std::vector<logs::line> lines = logs::all();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_LOGGED(INFO, logs::k_thread_io, "thrio_proc_message", k_echo_head, k_echo_head);
    EXPECT_LOGGED(INFO, logs::k_thread_io, "thrio_proc_message", k_echo_row,
                  "|       3 |            node3 |      192.168.1.3 |     9003 |    1 |\n");
    EXPECT_LOGGED(INFO, logs::k_thread_io, "thrio_proc_message", k_echo_row,
                  "|     127 |          node127 |    192.168.1.127 |     9127 |    0 |\n");
    EXPECT_LOGGED(INFO, logs::k_thread_io, "thrio_proc_message", k_echo_end, k_echo_end);
    EXPECT_EQ(lines[0].format, k_echo_head);
    EXPECT_EQ(lines[1].text.substr(0, 9), "|       3");
    EXPECT_EQ(lines[2].text.substr(0, 9), "|     127");
    EXPECT_EQ(lines[3].format, k_echo_end);
}

TEST(ManagerMessage, EchoCountsInEightBits) {
    const auto node = fresh_node();
    size_t sent = 0;
    struct row {
        size_t messages;
        size_t echoes;
    };
    for (const row &r : {row{59, 0}, row{60, 1}, row{119, 1}, row{120, 2}, row{180, 3}, row{239, 3},
                         row{240, 4}, row{255, 4}, row{256, 5}, row{315, 5}, row{316, 6}}) {
        for (; sent < r.messages; ++sent) {
            node->tell(table({}));
        }
        ASSERT_TRUE(node->settle());
        EXPECT_EQ(logs::count(k_echo_head), r.echoes) << r.messages;
        EXPECT_EQ(logs::count(k_echo_end), r.echoes) << r.messages;
    }
}

TEST(ManagerMessage, EchoEndsTextsThatHaveNoEnd) {
    const auto node = fresh_node();
    for (int i = 0; i < 59; ++i) {
        node->tell(table({}));
    }
    node->tell(table({{"abcdefghijklmnop", "1234567890123456", 9007, 7, 1}}));
    ASSERT_TRUE(node->settle());
    EXPECT_LOGGED(INFO, logs::k_thread_io, "thrio_proc_message", k_echo_row,
                  "|       7 |  abcdefghijklmno |  123456789012345 |     9007 |    1 |\n");
    EXPECT_EQ(entry(7).name[15], 'p'); // only the log's copy is ended
}

TEST(ManagerMessage, EchoLeavesOutASkippedRecord) {
    const auto node = fresh_node();
    for (int i = 0; i < 59; ++i) {
        node->tell(table({}));
    }
    node->tell(table({record_of(128), record_of(7)}));
    ASSERT_TRUE(node->settle());
    EXPECT_EQ(logs::count(k_echo_row), 1U);
}

TEST(ManagerMessage, OfManyRecordsTakesThemAll) {
    const auto node = fresh_node();
    std::vector<bus::record> all;
    for (uint16_t id = 1; id < 128; ++id) {
        all.push_back(record_of(id, static_cast<uint8_t>(id % 2)));
    }
    node->tell(table(all));
    ASSERT_TRUE(node->settle());
    for (uint16_t id = 1; id < 128; ++id) {
        EXPECT_EQ(bytes_of(entry(id)), bus::encoded(record_of(id, static_cast<uint8_t>(id % 2)))) << id;
    }
}
