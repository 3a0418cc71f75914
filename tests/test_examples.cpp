// The examples that need a bus or a far end, run as a reader runs them: each among a node manager and nodes
// that are sockets of the test.
#include "bench.h"

#include <optional>
#include <string>
#include <vector>

using lines = std::vector<std::string>;

namespace {

/// Reads until the program ends, which it must do by itself and with success.
lines lines_until_end(child_process &program) {
    lines said;
    while (const auto line = program.wait_line(bench::k_patience)) {
        said.push_back(*line);
    }
    EXPECT_EQ(program.wait_exit(bench::k_patience), 0);
    return said;
}

/// The payload of a status of this type.
bus::bytes status(uint16_t type, const std::string &text) {
    bus::bytes payload;
    bus::append16(payload, type);
    return bus::joined(payload, bus::text(text));
}

} // namespace

TEST(Examples, WaitForPeerSaysHelloOnceThePeerIsActive) {
    bench::manager manager;
    child_process example({EXAMPLE_WAIT_FOR_PEER, "5", "3"});
    EXPECT_TRUE(manager.waits_for(5, true));
    bench::node three{3};
    EXPECT_EQ(three.receive(), bus::message({1, 5, 3}, bus::text("hello")));
    EXPECT_EQ(lines_until_end(example), lines{"node 3 is active"});
}

TEST(Examples, CallbackAnswersOnItsOwnThread) {
    bench::manager manager;
    bench::node three{3};
    child_process example({EXAMPLE_CALLBACK, "5", "1"});
    EXPECT_EQ(example.wait_line(bench::k_patience), "started");
    std::string said;
    while (said != "ping from 3, answered") { // once the manager has told the example where node 3 is
        three.send(bus::message({1, 3, 5}, bus::text("ping")), "192.168.1.2", 9005);
        said = example.wait_line(std::chrono::milliseconds(100)).value_or("");
        ASSERT_TRUE(said.empty() || said.starts_with("ping from 3, ")) << said;
    }
    EXPECT_EQ(three.receive(), bus::message({1, 5, 3}, bus::text("got ping")));
    EXPECT_TRUE(lines_until_end(example).empty());
}

TEST(Examples, PollingPrintsEachNewStatusUntilStop) {
    child_process example({EXAMPLE_POLLING, "5"});
    EXPECT_EQ(example.wait_line(bench::k_patience), "started");
    udp_peer nine{"192.168.1.9", 9009};
    const auto send = [&](const std::string &text) {
        nine.send(bus::message({0, 9, 5}, status(3, text)), "192.168.1.2", 9005);
    };
    std::optional<std::string> said;
    while (!said) { // what comes before the node has its socket is lost
        send("12 m");
        said = example.wait_line(std::chrono::milliseconds(100));
    }
    EXPECT_EQ(said, "node 9: 12 m");
    send("stop");
    EXPECT_EQ(lines_until_end(example), lines{"node 9: stop"});
}

TEST(Examples, StatusesOfTwoNodesReachEachOther) {
    bench::manager manager;
    child_process five({EXAMPLE_STATUS, "5", "3"});
    child_process three({EXAMPLE_STATUS, "3", "5"});
    const lines expected = {"sent: 0", "12500 mm at 90 degrees"};
    EXPECT_EQ(lines_until_end(five), expected);
    EXPECT_EQ(lines_until_end(three), expected);
}

TEST(Examples, BroadcastReachesTheNodesBelow) {
    bench::manager manager;
    bench::node three{3};
    bench::node twelve{12};
    child_process example({EXAMPLE_BROADCAST, "9", "3"});
    EXPECT_EQ(three.receive(), bus::message({1, 9, 3}, bus::text("landing")));
    EXPECT_EQ(three.receive(), bus::message({0, 9, 3}, {8, 0, 1}));
    EXPECT_EQ(lines_until_end(example), lines{"queued: 0, 0"});
    three.send(bus::message({1, 3, 12}, bus::text("last")), "192.168.1.12", 9012);
    EXPECT_EQ(bus::payload_of(twelve.receive()), bus::text("last")) << "nodes above the sender get nothing";
}

TEST(Examples, HeartbeatTellsTheProxyAndSeesWhatOthersSet) {
    bench::manager manager;
    bench::node proxy{bus::k_proxy};
    child_process example({EXAMPLE_HEARTBEAT, "5"});
    EXPECT_EQ(example.wait_line(bench::k_patience), "mode 2, rate 30");
    std::optional<std::string> said;
    while (!said) { // what comes before the node has its socket is lost
        proxy.send(bus::message({4, 127, 5}, bus::encoded({{65, 4}})), "192.168.1.2", 9005);
        said = example.wait_line(std::chrono::milliseconds(100));
    }
    EXPECT_EQ(said, "work mode 4");
    EXPECT_TRUE(lines_until_end(example).empty());
}

TEST(Examples, ProxyHandsHeartbeatsOnAndHearsMessagesForIdsBehindIt) {
    bench::manager manager;
    bench::node three{3};
    child_process example({EXAMPLE_PROXY});
    EXPECT_EQ(example.wait_line(bench::k_patience), "started");
    EXPECT_TRUE(manager.waits_for(bus::k_proxy, true));
    three.send(bus::message({1, 3, 64001}, bus::text("picture")), "192.168.1.127", 9127);
    EXPECT_EQ(example.wait_line(bench::k_patience), "for 64001 from 3: picture");
    bus::bytes handed_on;
    while (handed_on.empty()) { // until the table has reached the proxy
        three.send(bus::message({4, 3, 127}, bus::encoded({{65, 4}})), "192.168.1.127", 9127);
        three.send(bus::message({1, 127, 3}, bus::text("no more")), "192.168.1.3", 9003);
        handed_on = three.receive();
        handed_on = handed_on.at(3) == 4 ? handed_on : bus::bytes{};
    }
    EXPECT_EQ(bus::word_at(handed_on, 6), bus::k_proxy) << "the sender it says";
    EXPECT_EQ(bus::payload_of(handed_on), bus::encoded({{65, 4}}));
    example.signal(SIGTERM);
    EXPECT_TRUE(lines_until_end(example).empty());
}

TEST(Examples, ReportSendsATrackStatusAndAnOrbitArea) {
    udp_peer flight_side{"192.168.1.5", 5673};
    child_process example({EXAMPLE_REPORT});
    const bus::bytes track = flight_side.receive(bench::k_patience).value_or(bus::bytes(72));
    const bus::bytes area = flight_side.receive(bench::k_patience).value_or(bus::bytes(52));
    EXPECT_EQ(bus::word_at(track, 10), 0x090DU);
    EXPECT_EQ(bus::word_at(area, 10), 0x0910U);
    EXPECT_EQ(bus::word_at(area, 12), 1U) << "the second datagram of the process";
    EXPECT_EQ(lines_until_end(example), lines{"sent 72 and 52 bytes"});
}

TEST(Examples, CameraSendsTheCommandAndAcknowledgesIt) {
    udp_peer camera{"192.168.1.11", 5685};
    udp_peer flight_side{"192.168.1.5", 5673};
    child_process example({EXAMPLE_CAMERA, "0x11"});
    const bus::bytes command = camera.receive(bench::k_patience).value_or(bus::bytes(48));
    EXPECT_EQ((bus::bytes{command.begin() + 16, command.begin() + 20}), (bus::bytes{0x11, 0xA0, 0xA1, 0}));
    const bus::bytes answer = flight_side.receive(bench::k_patience).value_or(bus::bytes(48));
    EXPECT_EQ(bus::word_at(answer, 10), 0x0901U);
    EXPECT_EQ((bus::bytes{answer.begin() + 16, answer.begin() + 18}), (bus::bytes{0x11, 0}));
    EXPECT_EQ(lines_until_end(example), lines{"camera: 0, acknowledgement: 48 bytes"});
}

TEST(Examples, OwnLogTakesTheLinesOfTheLibrary) {
    child_process example({EXAMPLE_OWN_LOG});
    const std::string refused = "src/vx_msg in vision_send_msg: dst node 3, route by next_hop node_id 3 "
                                "inactived, may be unreachable";
    EXPECT_EQ(lines_until_end(example), (lines{refused, "log of own_log", refused}));
}
