// The node manager's reasoning: what it believes, what it remembers, what it says. No sockets, and time is
// the test's own.
#include "manager_protocol.h"
#include "node_registry.h"

#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

using namespace std::chrono_literals;
using testing::Eq;
using vexa::endpoint;
using vexa::node_registry;
using vexa::refusal;

namespace {

constexpr endpoint k_home{0xC0A80105, 9005};  // 192.168.1.5:9005
constexpr endpoint k_other{0xC0A80177, 9005}; // 192.168.1.119:9005
const node_registry::clock::time_point k_start{1000s};

void put_text(uint8_t *at, const char *text) {
    memcpy(at, text, strlen(text));
}

/// What node 5 sends, written by hand: 16 bytes of header, cmd, cnt, one record.
std::vector<uint8_t> register_of_5() {
    std::vector<uint8_t> bytes(58, 0);
    bytes[0] = 0x3A;
    bytes[1] = 0x5E;
    bytes[3] = 2;                // kind
    bytes[4] = 42;               // data_length
    bytes[6] = 5;                // src
    bytes[18] = 1;               // cnt
    put_text(&bytes[20], "soa"); // name
    put_text(&bytes[36], "192.168.1.5");
    bytes[52] = 0x2D; // port 9005
    bytes[53] = 0x23;
    bytes[54] = 5; // node_id
    bytes[56] = 1; // stat
    return bytes;
}

std::vector<uint8_t> unregister_of_5() {
    std::vector<uint8_t> bytes = register_of_5();
    bytes.resize(74, 0);
    bytes[4] = 58;
    bytes[16] = 1;
    return bytes;
}

vexa::manager_request believed(const std::vector<uint8_t> &datagram) {
    return std::get<vexa::manager_request>(vexa::read_request(datagram));
}

/// A REGISTER of any node, as read_request leaves it.
vexa::manager_request registering(uint16_t id, const char *name = "node") {
    vexa_node_t node{};
    put_text(reinterpret_cast<uint8_t *>(node.name), name);
    put_text(reinterpret_cast<uint8_t *>(node.ip), "192.168.1.5");
    node.port = static_cast<uint16_t>(9000 + id);
    node.node_id = id;
    node.stat = NODE_STAT_ACTIVED;
    return {MGR_CMD_REGISTER, node};
}

vexa::manager_request unregistering(uint16_t id) {
    vexa::manager_request request = registering(id);
    request.command = MGR_CMD_UNREGISTER;
    return request;
}

MATCHER_P2(IsChange, id, what, "") {
    return arg.has_value() && arg->node_id == id && arg->what == what;
}

using event = node_registry::event;

class Registry : public testing::Test {
protected:
    node_registry nodes{10s, 3};
};

struct bad_datagram {
    const char *name;
    refusal why;
    std::function<void(std::vector<uint8_t> &)> spoil;
};

void PrintTo(const bad_datagram &row, std::ostream *out) {
    *out << row.name;
}

class BadRegister : public testing::TestWithParam<bad_datagram> {};

} // namespace

TEST(ManagerProtocol, ARegisterIsReadFieldByField) {
    const vexa::manager_request request = believed(register_of_5());
    EXPECT_EQ(request.command, MGR_CMD_REGISTER);
    EXPECT_STREQ(request.node.name, "soa");
    EXPECT_STREQ(request.node.ip, "192.168.1.5");
    EXPECT_EQ(request.node.port, 9005);
    EXPECT_EQ(request.node.node_id, 5);
}

TEST(ManagerProtocol, AnUnregisterIsReadWithItsSixteenBytesThatCarryNothing) {
    const vexa::manager_request request = believed(unregister_of_5());
    EXPECT_EQ(request.command, MGR_CMD_UNREGISTER);
    EXPECT_EQ(request.node.node_id, 5);
}

TEST(ManagerProtocol, AnUnregisterNeedsNothingOfItsRecordButTheId) {
    std::vector<uint8_t> bytes = unregister_of_5();
    std::fill(&bytes[20], &bytes[54], uint8_t{0xFF});
    EXPECT_TRUE(std::holds_alternative<vexa::manager_request>(vexa::read_request(bytes)));
}

TEST(ManagerProtocol, BytesBehindATextsEndDoNotTravelOn) {
    std::vector<uint8_t> bytes = register_of_5();
    bytes[26] = 'x';
    EXPECT_EQ(believed(bytes).node.name[6], '\0');
}

TEST(ManagerProtocol, TheProxyMayRegister) {
    std::vector<uint8_t> bytes = register_of_5();
    bytes[6] = bytes[54] = 127;
    EXPECT_EQ(believed(bytes).node.node_id, 127);
}

TEST_P(BadRegister, IsRefusedByName) {
    std::vector<uint8_t> bytes = register_of_5();
    GetParam().spoil(bytes);
    const auto read = vexa::read_request(bytes);
    ASSERT_TRUE(std::holds_alternative<refusal>(read));
    EXPECT_STREQ(vexa::name_of(std::get<refusal>(read)), vexa::name_of(GetParam().why));
}

INSTANTIATE_TEST_SUITE_P(
    Each, BadRegister,
    testing::ValuesIn(std::vector<bad_datagram>{
        {"Empty", refusal::too_short, [](auto &b) { b.clear(); }},
        {"OneByteShortOfAHeader", refusal::too_short, [](auto &b) { b.resize(15); }},
        {"WrongMagic", refusal::wrong_magic, [](auto &b) { b[0] = 0x3B; }},
        {"MagicInNetworkOrder", refusal::wrong_magic, [](auto &b) { std::swap(b[0], b[1]); }},
        {"UserData", refusal::wrong_kind, [](auto &b) { b[3] = 1; }},
        {"ForAnotherNode", refusal::not_for_manager, [](auto &b) { b[8] = 7; }},
        {"HeaderOnly", refusal::cut_short, [](auto &b) { b.resize(16); }},
        {"NoPayloadSaid", refusal::cut_short, [](auto &b) { b[4] = 0; }},
        {"OneByteCut", refusal::cut_short, [](auto &b) { b.resize(57); }},
        {"LengthBelowItsRecord", refusal::cut_short, [](auto &b) { b[4] = 41; }},
        {"LengthBeyondWhatArrived", refusal::cut_short, [](auto &b) { b[5] = 0xFF; }},
        {"Notify", refusal::unknown_command, [](auto &b) { b[16] = 2; }},
        {"NegativeCommand", refusal::unknown_command, [](auto &b) { b[16] = b[17] = 0xFF; }},
        {"NoRecord", refusal::wrong_count, [](auto &b) { b[18] = 0; }},
        {"ThirtyThousandRecords", refusal::wrong_count, [](auto &b) { b[19] = 0x75; }},
        {"NegativeCount", refusal::wrong_count, [](auto &b) { b[18] = b[19] = 0xFF; }},
        {"IdOfTheManager", refusal::bad_id, [](auto &b) { b[6] = b[54] = 0; }},
        {"IdOutsideTheTable", refusal::bad_id, [](auto &b) { b[6] = b[54] = 128; }},
        {"IdOfAnApplication", refusal::bad_id, [](auto &b) { b[7] = b[55] = 0xFA; }},
        {"RecordOfAnotherNode", refusal::foreign_id, [](auto &b) { b[54] = 6; }},
        {"NameWithoutEnd", refusal::unterminated_text, [](auto &b) { std::fill_n(&b[20], 16, 'n'); }},
        {"IpWithoutEnd", refusal::unterminated_text, [](auto &b) { std::fill_n(&b[36], 16, '1'); }},
        {"IpThatIsNone", refusal::bad_address, [](auto &b) { put_text(&b[36], "192.168.1.x"); }},
        {"NoIp", refusal::bad_address, [](auto &b) { std::fill_n(&b[36], 16, uint8_t{0}); }},
        {"AnyIp", refusal::bad_address, [](auto &b) { memcpy(&b[36], "0.0.0.0", 8); }},
        {"GroupIp", refusal::bad_address, [](auto &b) { memcpy(&b[36], "239.1.1.1", 10); }},
        {"EverybodysIp", refusal::bad_address, [](auto &b) { memcpy(&b[36], "255.255.255.255", 16); }},
        {"PortZero", refusal::bad_port, [](auto &b) { b[52] = b[53] = 0; }},
    }),
    [](const auto &row) { return row.param.name; });

TEST(ManagerProtocol, ATableMessageForNobodyIsTwentyBytes) {
    const std::vector<uint8_t> expected = {0x3A, 0x5E, 0x80, 2, 4, 0, 0, 0, 5, 0,
                                           0,    0,    0,    0, 0, 0, 2, 0, 0, 0};
    EXPECT_EQ(vexa::table_message(5, true, {}), expected);
}

TEST(ManagerProtocol, OnlyAnAnswerSaysAccepted) {
    EXPECT_EQ(vexa::table_message(5, false, {})[2], 0);
}

TEST(ManagerProtocol, ARecordGoesOutAsItCameIn) {
    const std::vector<uint8_t> in = register_of_5();
    const std::vector<uint8_t> out = vexa::table_message(9, true, std::array{believed(in).node});
    ASSERT_EQ(out.size(), 58U);
    EXPECT_EQ(out[18], 1); // cnt
    EXPECT_TRUE(std::equal(in.begin() + 20, in.end(), out.begin() + 20));
}

TEST(ManagerProtocol, TheUnusedByteOfARecordGoesOutAsZero) {
    std::vector<uint8_t> in = register_of_5();
    in[57] = 0xEE;
    EXPECT_EQ(vexa::table_message(9, true, std::array{believed(in).node})[57], 0);
}

TEST(ManagerProtocol, AFullTableFitsWhatANodeReads) {
    const std::vector<vexa_node_t> all(127, registering(5).node);
    EXPECT_LE(vexa::table_message(5, true, all).size(), size_t{VX_MSG_MAX_READ});
}

TEST(ManagerProtocol, EveryRefusalHasANameAndAnExplanationOfItsOwn) {
    std::set<std::string> names;
    std::set<std::string> explanations;
    for (int i = 0; i < static_cast<int>(refusal::number_of_refusals); ++i) {
        names.insert(vexa::name_of(static_cast<refusal>(i)));
        explanations.insert(vexa::explanation_of(static_cast<refusal>(i)));
    }
    EXPECT_EQ(names.size(), static_cast<size_t>(refusal::number_of_refusals));
    EXPECT_EQ(explanations.size(), names.size());
}

TEST(ManagerProtocol, AnEndpointReadsAsOneWritesIt) {
    EXPECT_EQ(vexa::to_text(k_home), "192.168.1.5:9005");
}

TEST_F(Registry, KnowsNobodyAtFirst) {
    EXPECT_TRUE(nodes.records().empty());
    EXPECT_TRUE(nodes.active().empty());
    EXPECT_FALSE(nodes.next_expiry().has_value());
}

TEST_F(Registry, AFirstRegisterIsAJoin) {
    const auto outcome = nodes.handle(registering(5), k_home, k_start);
    EXPECT_FALSE(outcome.refused);
    EXPECT_THAT(outcome.changed, IsChange(5, event::joined));
}

TEST_F(Registry, AKeepAliveChangesNothing) {
    nodes.handle(registering(5), k_home, k_start);
    const auto outcome = nodes.handle(registering(5), k_home, k_start + 10s);
    EXPECT_FALSE(outcome.refused);
    EXPECT_FALSE(outcome.changed);
}

TEST_F(Registry, ANewNameIsAChange) {
    nodes.handle(registering(5, "old"), k_home, k_start);
    EXPECT_THAT(nodes.handle(registering(5, "new"), k_home, k_start).changed, IsChange(5, event::changed));
    EXPECT_STREQ(nodes.find(5)->name, "new");
}

TEST_F(Registry, ARegisterMakesActiveWhateverItsStateByteSays) {
    vexa::manager_request request = registering(5);
    request.node.stat = 77;
    nodes.handle(request, k_home, k_start);
    EXPECT_EQ(nodes.find(5)->stat, NODE_STAT_ACTIVED);
}

TEST_F(Registry, RecordsComeInTheOrderOfTheIds) {
    for (const uint16_t id : std::to_array<uint16_t>({127, 9, 1, 5, 3})) {
        nodes.handle(registering(id), endpoint{1, id}, k_start);
    }
    std::vector<int> ids;
    for (const vexa_node_t &node : nodes.records()) {
        ids.push_back(node.node_id);
    }
    EXPECT_THAT(ids, testing::ElementsAre(1, 3, 5, 9, 127));
}

TEST_F(Registry, ANodeThatLeavesStaysKnownAndIsInactive) {
    nodes.handle(registering(5), k_home, k_start);
    EXPECT_THAT(nodes.handle(unregistering(5), k_home, k_start).changed, IsChange(5, event::left));
    EXPECT_EQ(nodes.find(5)->stat, NODE_STAT_INACTIVED);
    EXPECT_EQ(nodes.records().size(), 1U);
    EXPECT_TRUE(nodes.active().empty());
}

TEST_F(Registry, ANodeThatLeavesKeepsItsRecordAsItRegisteredIt) {
    nodes.handle(registering(5, "soa"), k_home, k_start);
    vexa::manager_request lying = unregistering(5);
    memset(lying.node.name, 'x', sizeof lying.node.name);
    nodes.handle(lying, k_home, k_start);
    EXPECT_STREQ(nodes.find(5)->name, "soa");
}

TEST_F(Registry, AStrangersUnregisterIsRefused) {
    EXPECT_THAT(nodes.handle(unregistering(5), k_home, k_start).refused, Eq(refusal::not_registered));
}

TEST_F(Registry, LeavingTwiceIsRefusedTheSecondTime) {
    nodes.handle(registering(5), k_home, k_start);
    nodes.handle(unregistering(5), k_home, k_start);
    EXPECT_THAT(nodes.handle(unregistering(5), k_home, k_start).refused, Eq(refusal::not_registered));
}

TEST_F(Registry, AnActiveNodesIdIsRefusedToAnotherAddress) {
    nodes.handle(registering(5, "first"), k_home, k_start);
    EXPECT_THAT(nodes.handle(registering(5, "second"), k_other, k_start).refused, Eq(refusal::id_taken));
    EXPECT_STREQ(nodes.find(5)->name, "first");
}

TEST_F(Registry, AnotherPortOfTheSameMachineIsTheNodeItself) {
    nodes.handle(registering(5), k_home, k_start);
    const endpoint restarted{k_home.ip, 40000};
    EXPECT_THAT(nodes.handle(registering(5), restarted, k_start).refused, Eq(std::nullopt));
    ASSERT_EQ(nodes.active().size(), 1U);
    EXPECT_EQ(nodes.active()[0].address, restarted);
}

TEST_F(Registry, NobodyElseCanUnregisterANode) {
    nodes.handle(registering(5), k_home, k_start);
    EXPECT_THAT(nodes.handle(unregistering(5), k_other, k_start).refused, Eq(refusal::id_taken));
    EXPECT_EQ(nodes.active().size(), 1U);
}

TEST_F(Registry, ARefusedRegisterKeepsNobodyAlive) {
    nodes.handle(registering(5), k_home, k_start);
    nodes.handle(registering(5), k_other, k_start + 34s);
    EXPECT_EQ(nodes.expire(k_start + 35s).size(), 1U);
}

TEST_F(Registry, AnIdIsFreeAgainForAnotherAddressOnceItsNodeHasLeft) {
    nodes.handle(registering(5), k_home, k_start);
    nodes.handle(unregistering(5), k_home, k_start);
    EXPECT_THAT(nodes.handle(registering(5), k_other, k_start).changed, IsChange(5, event::joined));
    ASSERT_EQ(nodes.active().size(), 1U);
    EXPECT_EQ(nodes.active()[0].address, k_other);
}

TEST_F(Registry, AnIdIsFreeAgainForAnotherAddressOnceItsNodeIsLost) {
    nodes.handle(registering(5), k_home, k_start);
    nodes.expire(k_start + 35s);
    EXPECT_THAT(nodes.handle(registering(5), k_other, k_start + 35s).changed, IsChange(5, event::joined));
}

TEST_F(Registry, ThreeMissedKeepAlivesAndHalfAPeriodOfGraceMakeANodeLost) {
    nodes.handle(registering(5), k_home, k_start);
    EXPECT_TRUE(nodes.expire(k_start + 35s - 1ms).empty());
    const auto lost = nodes.expire(k_start + 35s);
    ASSERT_EQ(lost.size(), 1U);
    EXPECT_EQ(lost[0].node_id, 5);
    EXPECT_EQ(lost[0].what, event::lost);
    EXPECT_EQ(nodes.find(5)->stat, NODE_STAT_INACTIVED);
}

TEST_F(Registry, ANodeIsLostOnlyOnce) {
    nodes.handle(registering(5), k_home, k_start);
    nodes.expire(k_start + 35s);
    EXPECT_TRUE(nodes.expire(k_start + 70s).empty());
}

TEST_F(Registry, AKeepAliveBuysAnotherThreePeriods) {
    nodes.handle(registering(5), k_home, k_start);
    nodes.handle(registering(5), k_home, k_start + 30s);
    EXPECT_TRUE(nodes.expire(k_start + 64s).empty());
    EXPECT_EQ(nodes.expire(k_start + 65s).size(), 1U);
}

TEST_F(Registry, TheNextExpiryIsThatOfTheNodeSilentLongest) {
    nodes.handle(registering(5), k_home, k_start + 4s);
    nodes.handle(registering(9), endpoint{1, 9009}, k_start);
    EXPECT_EQ(nodes.next_expiry(), k_start + 35s);
}

TEST_F(Registry, EveryIdOfTheTableHasItsPlace) {
    for (uint16_t id = 1; id < VX_NODE_COUNT; ++id) {
        EXPECT_FALSE(nodes.handle(registering(id), endpoint{1, id}, k_start).refused);
    }
    EXPECT_EQ(nodes.active().size(), 127U);
    EXPECT_FALSE(nodes.find(VX_NODE_COUNT).has_value());
}
