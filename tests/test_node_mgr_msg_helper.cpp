// The UNREGISTER, and node records on their way to another node's socket.
#include "node_mgr_msg_helper.h"

#include "faults.h"
#include "log_lines.h"
#include "node_mapping.h"
#include "node_records.h"
#include "udp_peer.h"
#include "vectors.h"
#include "vx_msg_buf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using faults::call;
using node_records::bytes_of;
using node_records::filled;
using node_records::record;
using testing::ElementsAre;
using testing::IsEmpty;
using bytes = std::vector<uint8_t>;

namespace {

constexpr size_t k_unregister_size = 74;

/// An UNREGISTER in a block of just its size that was full of something else, as it would be sent.
bytes unregister() {
    alignas(vx_msg_head_t) uint8_t block[k_unregister_size];
    memset(block, 0xEE, sizeof block);
    auto *head = reinterpret_cast<vx_msg_head_t *>(block);
    buid_unregist_msg(head);
    vx_msg_head_store(block, head);
    return {block, block + sizeof block};
}

class ManagerMessages : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(nmapping_create(), 0); }
    void TearDown() override {
        faults::clear();
        nmapping_destroy();
    }

    static void set(uint16_t id, const vexa_node_t &node) { ASSERT_EQ(nmapping_set(id, &node), 0); }
};

/// Node 9's record is there, node 3 listens.
class NodeInfo : public ManagerMessages {
protected:
    void SetUp() override {
        ManagerMessages::SetUp();
        set(9, record("detection", "192.168.1.9", 9009, 9, 1));
        set(3, record("vio", "192.168.1.3", 9003, 3, 1));
        fd_ = socket(AF_INET, SOCK_DGRAM, 0);
        ASSERT_GT(fd_, 0);
    }
    void TearDown() override {
        close(fd_);
        ManagerMessages::TearDown();
    }

    /// Whether a datagram is waiting. On one host it is there when its sending has returned.
    bool vio_has_one() { return vio_.receive(std::chrono::milliseconds(0)).has_value(); }

    udp_peer vio_{"192.168.1.3", 9003};
    int fd_ = -1;
};

} // namespace

TEST_F(ManagerMessages, UnregisterIsItsImage) {
    nmapping_set_self(5);
    set(5, record("soa", "192.168.1.5", 9005, 5, 1));
    EXPECT_EQ(unregister(), vectors::bytes("route_unregister_node5"));
    EXPECT_THAT(logs::lines(), IsEmpty());
}

TEST_F(ManagerMessages, UnregisterHasItsHeaderInHostOrder) {
    nmapping_set_self(9);
    vx_msg_buf room;
    memset(&room, 0xEE, sizeof room);
    buid_unregist_msg(&room.head);
    EXPECT_EQ(room.head.magic, 0x5E3A);
    EXPECT_EQ(room.head.msg_type, 2);
    EXPECT_EQ(room.head.data_length, 58);
    EXPECT_EQ(room.head.src, 9);
    EXPECT_EQ(room.head.dst, 0);
    EXPECT_EQ(room.head.sequence, 0);
    EXPECT_EQ(room.head.recv_time, 0U);
    EXPECT_EQ(room.bytes()[2], 0) << "flag";
}

TEST_F(ManagerMessages, UnregisterCarriesTheOwnRecordAsTheTableHoldsIt) {
    nmapping_set_self(9);
    vexa_node_t own = filled(0xC3);
    own.node_id = 9;
    set(9, own);
    const bytes datagram = unregister();
    EXPECT_EQ(ut_get_le32(&datagram[16]), 0x00010001U);
    node_records::record_bytes carried;
    std::copy(datagram.begin() + 20, datagram.begin() + 58, carried.begin());
    uint8_t expected[38];
    vexa_node_store(expected, &own);
    EXPECT_EQ(memcmp(carried.data(), expected, sizeof expected), 0);
    EXPECT_EQ(bytes(datagram.begin() + 58, datagram.end()), bytes(16)) << "16 zeros behind it";
}

TEST_F(ManagerMessages, UnregisterWritesNothingBehindItself) {
    vx_msg_buf room;
    memset(&room, 0xEE, sizeof room);
    buid_unregist_msg(&room.head);
    EXPECT_EQ(bytes(room.bytes() + k_unregister_size, room.bytes() + sizeof room),
              bytes(sizeof room - k_unregister_size, 0xEE));
}

TEST_F(ManagerMessages, UnregisterWithoutATableCarriesAnEmptyRecord) {
    nmapping_destroy();
    nmapping_set_self(5);
    const bytes datagram = unregister();
    EXPECT_EQ(datagram[6], 5);
    EXPECT_EQ(ut_get_le32(&datagram[16]), 0x00010001U);
    EXPECT_EQ(bytes(datagram.begin() + 20, datagram.end()), bytes(54));
}

TEST_F(ManagerMessages, UnregisterOfAnIdWithoutSlotCarriesAnEmptyRecord) {
    nmapping_set_self(200);
    const bytes datagram = unregister();
    EXPECT_EQ(datagram[6], 200);
    EXPECT_EQ(bytes(datagram.begin() + 20, datagram.end()), bytes(54));
    EXPECT_THAT(logs::lines(), ElementsAre("INFO src/node_mapping nmapping_get: inval, nodeid 200\n"));
}

TEST_F(NodeInfo, ArrivesAsItsImage) {
    EXPECT_EQ(send_node_info(fd_, 9, 3, MSTP_NODE_MGR), 0);
    EXPECT_EQ(vio_.receive(), vectors::bytes("route_node_info_9_to_3"));
    EXPECT_THAT(logs::lines(), IsEmpty());
}

TEST_F(NodeInfo, HasTheKindThatTheCallerAsksFor) {
    for (const int msg_type : {0, 1, 3, 4, 255, 0x102}) {
        EXPECT_EQ(send_node_info(fd_, 9, 3, msg_type), 0);
        bytes expected = vectors::bytes("route_node_info_9_to_3");
        expected[3] = static_cast<uint8_t>(msg_type);
        EXPECT_EQ(vio_.receive(), expected) << msg_type;
    }
}

TEST_F(NodeInfo, CarriesAllBytesOfTheRecordAlsoOfAnInactiveNode) {
    vexa_node_t full = filled(0xC3);
    full.node_id = 7;
    full.stat = 0;
    set(7, full);
    EXPECT_EQ(send_node_info(fd_, 7, 3, 2), 0);
    const bytes datagram = vio_.receive().value_or(bytes{});
    ASSERT_EQ(datagram.size(), 54U);
    EXPECT_EQ(bytes_of(vexa_node_load(&datagram[16])), bytes_of(full));
    EXPECT_EQ(datagram[6], 7) << "src";
}

TEST_F(NodeInfo, GoesToTheAddressInTheDestinationsRecord) {
    udp_peer elsewhere("192.168.1.77", 7777);
    set(4, record("moved", "192.168.1.77", 7777, 4, 1));
    EXPECT_EQ(send_node_info(fd_, 9, 4, 2), 0);
    const bytes datagram = elsewhere.receive().value_or(bytes{});
    ASSERT_EQ(datagram.size(), 54U);
    EXPECT_EQ(datagram[8], 4) << "dst";
    EXPECT_FALSE(vio_has_one());
}

TEST_F(NodeInfo, OfANodeWithoutSlotIsRefused) {
    EXPECT_EQ(send_node_info(fd_, 128, 3, 2), -1);
    EXPECT_THAT(
        logs::lines(),
        ElementsAre("INFO src/node_mapping nmapping_get: inval, nodeid 128\n",
                    "ERROR src/node_mgr_msg_helper send_node_info: fait to get nmapping of node 128\n"));
    EXPECT_EQ(logs::count("fait to get nmapping of node %u\n"), 1U);
    EXPECT_FALSE(vio_has_one());
}

TEST_F(NodeInfo, OfASlotWithAnothersRecordIsRefused) {
    set(7, record("detection", "192.168.1.9", 9009, 9, 1));
    EXPECT_EQ(send_node_info(fd_, 7, 3, 2), -1);
    EXPECT_THAT(
        logs::lines(),
        ElementsAre("ERROR src/node_mgr_msg_helper send_node_info: fait to get nmapping of node 7\n"));
    EXPECT_FALSE(vio_has_one());
}

TEST_F(NodeInfo, LooksForTheSourceFirst) {
    EXPECT_EQ(send_node_info(fd_, 200, 201, 2), -1);
    EXPECT_EQ(logs::count("fait to get nmapping of node %u\n"), 1U);
    EXPECT_EQ(logs::count("dst node %u not actived\n"), 0U);
}

TEST_F(NodeInfo, TowardsAnInactiveNodeIsRefused) {
    for (const int stat : {0, 2, 255}) { // only 1 is active
        logs::clear();
        nmapping_set_stat(3, stat);
        EXPECT_EQ(send_node_info(fd_, 9, 3, 2), -1) << stat;
        EXPECT_THAT(logs::lines(),
                    ElementsAre("WARN src/node_mgr_msg_helper send_node_info: dst node 3 not actived\n"));
        EXPECT_EQ(logs::count("dst node %u not actived\n"), 1U);
    }
    EXPECT_FALSE(vio_has_one());
}

TEST_F(NodeInfo, NamesTheInactiveNodeByItsRecord) {
    set(4, record("stranger", "192.168.1.3", 9003, 44, 0));
    EXPECT_EQ(send_node_info(fd_, 9, 4, 2), -1);
    EXPECT_THAT(logs::lines(),
                ElementsAre("WARN src/node_mgr_msg_helper send_node_info: dst node 44 not actived\n"));
}

TEST_F(NodeInfo, TowardsANodeWithoutSlotIsRefused) {
    EXPECT_EQ(send_node_info(fd_, 9, 64001, 2), -1);
    EXPECT_THAT(logs::lines(),
                ElementsAre("INFO src/node_mapping nmapping_get: inval, nodeid 64001\n",
                            "WARN src/node_mgr_msg_helper send_node_info: dst node 64001 not actived\n"));
}

TEST_F(NodeInfo, WithoutATableIsRefused) {
    nmapping_destroy();
    EXPECT_EQ(send_node_info(fd_, 9, 3, 2), -1);
    EXPECT_FALSE(vio_has_one());
}

TEST_F(NodeInfo, SucceedsWhateverTheNetworkDoes) {
    faults::fail(call::sendto, EPERM);
    EXPECT_EQ(send_node_info(fd_, 9, 3, 2), 0);
    faults::clear();
    EXPECT_FALSE(vio_has_one());
    EXPECT_EQ(send_node_info(-1, 9, 3, 2), 0);
}

TEST_F(NodeInfo, ReadsNoFurtherThanTheAddressField) {
    set(3, filled('1'));
    nmapping_set_stat(3, 1);
    EXPECT_EQ(send_node_info(fd_, 9, 3, 2), 0) << "an address that is none is the network's affair";
    EXPECT_FALSE(vio_has_one());
}

TEST_F(NodeInfo, ReservedRequestsSucceedAndSendNothing) {
    for (const uint16_t dest : {uint16_t{0}, uint16_t{3}, uint16_t{127}, uint16_t{65535}}) {
        EXPECT_EQ(send_node_info_req(dest), 0);
        EXPECT_EQ(send_heart_beat(dest), 0);
    }
    for (const call sending : {call::sendto, call::send, call::write, call::socket}) {
        EXPECT_EQ(faults::calls(sending), 0);
    }
    EXPECT_FALSE(vio_has_one());
    EXPECT_THAT(logs::lines(), IsEmpty());
}

TEST_F(NodeInfo, LeavesTheSpareAddressAlone) {
    ut_addr_t zero;
    memset(&zero, 0, sizeof zero);
    (void)send_node_info(fd_, 9, 3, 2);
    (void)unregister();
    EXPECT_EQ(memcmp(&g_regster_addr, &zero, sizeof zero), 0);
}
