// "vexa send" and "vexa status" as users run them, among nodes that are sockets of the test.
#include "bench.h"
#include "wait.h"

#include <gmock/gmock.h>

using namespace std::chrono_literals;
using bench::run;
using testing::HasSubstr;

namespace {

constexpr uint16_t k_tool = 119; // the id that a command takes by itself

bench::finished send_to_five(std::vector<std::string> options) {
    options.insert(options.begin(), {"send", "--to", "5"});
    return run(options);
}

} // namespace

TEST(Send, DeliversAMessageToTheCallback) {
    bench::manager manager;
    bench::node five{5};
    const auto sent = send_to_five({"--text", "hello"});
    EXPECT_EQ(sent.status, 0) << sent.error;
    EXPECT_THAT(sent.output, HasSubstr("sent to 5 (NODE_SOA): 1 message in "));
    EXPECT_EQ(five.receive(), bus::message({1, k_tool, 5}, bus::text("hello")));
}

TEST(Send, TheManagerHearsThatItJoinsAndLeaves) {
    bench::manager manager;
    bench::node five{5};
    EXPECT_EQ(send_to_five({"--text", "x", "--name", "probe"}).status, 0);
    EXPECT_TRUE(manager.waits_for(k_tool, true));
    EXPECT_TRUE(manager.waits_for(k_tool, false));
}

TEST(Send, KnowsNodesByName) {
    bench::manager manager;
    bench::node nine{9};
    for (const char *name : {"NODE_DETECTION_TRACKING", "detection_tracking", "0x9"}) {
        EXPECT_EQ(run({"send", "--to", name, "--text", name}).status, 0);
        EXPECT_EQ(bus::payload_of(nine.receive()), bus::text(name));
    }
}

TEST(Send, TakesThePayloadFromDigitsFilesAndStandardInput) {
    bench::manager manager;
    bench::node five{5};
    EXPECT_EQ(send_to_five({"--hex", "01:fF 7e"}).status, 0);
    EXPECT_EQ(bus::payload_of(five.receive()), (bus::bytes{1, 0xFF, 0x7E}));
    const bench::scratch_file file{"from a file"};
    EXPECT_EQ(send_to_five({"--file", file.name()}).status, 0);
    EXPECT_EQ(bus::payload_of(five.receive()), bus::text("from a file"));
    bench::program piped{{"send", "--to", "5", "--file", "-"}};
    piped.give_input("from a pipe");
    EXPECT_EQ(piped.end().status, 0);
    EXPECT_EQ(bus::payload_of(five.receive()), bus::text("from a pipe\n"));
}

TEST(Send, NumbersTheMessagesOfAStream) {
    bench::manager manager;
    bench::node five{5};
    const auto sent = send_to_five({"--size", "6", "--count", "3", "--rate", "1000", "--json"});
    EXPECT_EQ(sent.status, 0) << sent.error;
    EXPECT_EQ(sent.json()["sent"], 3);
    for (const uint8_t number : {uint8_t{1}, uint8_t{2}, uint8_t{3}}) {
        EXPECT_EQ(bus::payload_of(five.receive()), (bus::bytes{number, 0, 0, 0, 4, 5}));
    }
}

TEST(Send, KeepsTheRateAndTheDuration) {
    bench::manager manager;
    bench::node five{5};
    const auto sent = send_to_five({"--size", "8", "--rate", "200", "--duration", "0.5", "--json"}).json();
    EXPECT_EQ(sent["sent"], 100);
    EXPECT_GE(sent["seconds"], 0.49);
    EXPECT_LT(sent["seconds"], 5);
}

TEST(Send, AStreamWithARateGoesOnUntilCtrlC) {
    bench::manager manager;
    bench::node five{5};
    bench::program stream{{"send", "--to", "5", "--size", "4", "--rate", "500", "--json"}};
    for (int i = 0; i < 20; ++i) {
        EXPECT_FALSE(five.receive().empty());
    }
    stream.signal(SIGINT);
    const auto sent = stream.end();
    EXPECT_EQ(sent.status, 0) << sent.error;
    EXPECT_GE(sent.json()["sent"], 20);
}

TEST(Send, TheQueuedWayDeliversTheSame) {
    bench::manager manager;
    bench::node five{5};
    const auto sent = send_to_five({"--text", "queued", "--queued", "--json"});
    EXPECT_EQ(sent.json()["way"], "queued");
    EXPECT_EQ(five.receive(), bus::message({1, k_tool, 5}, bus::text("queued")));
}

TEST(Send, SaysHowManyMessagesTheFullQueueHasDropped) {
    bench::manager manager;
    bench::node five{5};
    const auto sent = send_to_five({"--size", "4", "--queued", "--rate", "0", "--count", "50000", "--json"});
    ASSERT_GT(sent.json()["dropped"], 0) << "the queue kept up with everything";
    EXPECT_EQ(sent.status, 1);
    EXPECT_THAT(sent.error, HasSubstr("choose a lower --rate"));
}

TEST(Send, ABroadcastSaysWhomItReaches) {
    bench::manager manager;
    bench::node three{3};
    bench::node five{5};
    bench::node nine{9};
    const auto sent = run({"send", "--broadcast", "--text", "all", "--id", "7", "--json"});
    EXPECT_EQ(sent.status, 0) << sent.error;
    EXPECT_EQ(sent.json()["reaches"], (std::vector<int>{3, 5}));
    EXPECT_EQ(three.receive(), bus::message({1, 7, 3}, bus::text("all")));
    EXPECT_EQ(five.receive(), bus::message({1, 7, 5}, bus::text("all")));
}

TEST(Send, ABroadcastThatWouldReachNobodyFails) {
    bench::manager manager;
    bench::node nine{9};
    const auto sent = run({"send", "--broadcast", "--text", "all", "--id", "7", "--timeout", "3"});
    EXPECT_EQ(sent.status, 1);
    EXPECT_THAT(sent.error, HasSubstr("no node with an id below 7 is active after 3 s"));
}

TEST(Send, DestinationsAbove126GoByTheProxy) {
    bench::manager manager;
    bench::node proxy{127, "192.168.1.127"};
    const auto sent = run({"send", "--to", "app", "--text", "out"});
    EXPECT_EQ(sent.status, 0) << sent.error;
    EXPECT_THAT(sent.output, HasSubstr("sent to 64001 (NODE_APP) by way of 127 (PROXY_NODE_ID)"));
    EXPECT_EQ(proxy.receive(), bus::message({1, k_tool, 64001}, bus::text("out")));
}

TEST(Send, SaysThatNoManagerAnswers) {
    const auto sent = send_to_five({"--text", "x", "--timeout", "0.2"});
    EXPECT_EQ(sent.status, 1);
    EXPECT_THAT(sent.error, HasSubstr("the node manager at 192.168.1.1:9000 has not accepted node 119"));
}

TEST(Send, SaysThatTheNodeHasNeverRegisteredOrHasLeft) {
    bench::manager manager;
    const auto stranger = send_to_five({"--text", "x", "--timeout", "3"});
    EXPECT_EQ(stranger.status, 1);
    EXPECT_THAT(stranger.error, HasSubstr("node 5 is not active after 3 s: it has not registered"));
    bench::node five{5};
    five.leave();
    ASSERT_TRUE(manager.waits_for(5, false));
    const auto gone = send_to_five({"--text", "x", "--timeout", "3"});
    EXPECT_EQ(gone.status, 1);
    EXPECT_THAT(gone.error, HasSubstr("node 5 (node5) is not active after 3 s: it has left"));
}

TEST(Send, WaitsForANodeThatComesLater) {
    bench::manager manager;
    bench::program waiting{{"send", "--to", "5", "--text", "at last"}};
    ASSERT_TRUE(manager.waits_for(k_tool, true));
    bench::node five{5};
    EXPECT_EQ(bus::payload_of(five.receive()), bus::text("at last"));
    EXPECT_EQ(waiting.end().status, 0);
}

TEST(Send, NamesTheProgramThatHoldsItsPort) {
    const udp_peer holder{"192.168.1.1", 9042};
    const auto sent = run({"send", "--to", "5", "--text", "x", "--id", "42"});
    EXPECT_EQ(sent.status, 1);
    EXPECT_THAT(sent.error, HasSubstr("UDP port 9042, where node 42 receives, is taken by PID " +
                                      std::to_string(getpid()) + " ("));
}

TEST(Send, TakesTheNextIdWhenItsUsualOneIsInUse) {
    const udp_peer holder{"192.168.1.1", 9000 + k_tool};
    bench::manager manager;
    bench::node five{5};
    EXPECT_EQ(send_to_five({"--text", "x"}).status, 0);
    EXPECT_EQ(five.receive(), bus::message({1, k_tool - 1, 5}, bus::text("x")));
}

TEST(Send, SaysThatAReceiverCutsALongMessage) {
    bench::manager manager;
    bench::node five{5};
    const auto sent = send_to_five({"--size", "8192"});
    EXPECT_EQ(sent.status, 0);
    EXPECT_THAT(sent.error, HasSubstr("of these 8192 bytes of payload a receiver reads the first 8176"));
    EXPECT_EQ(five.receive().size(), 8208U);
}

TEST(Send, RefusesAFileThatIsTooLongOrNotThere) {
    const bench::scratch_file file{std::string(8193, 'x')};
    const auto too_long = send_to_five({"--file", file.name()});
    EXPECT_EQ(too_long.status, 1);
    EXPECT_THAT(too_long.error, HasSubstr("more than 8192 bytes"));
    const auto missing = send_to_five({"--file", "/no/such/file"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_THAT(missing.error, HasSubstr("cannot read /no/such/file: No such file or directory"));
}

TEST(Send, WrongUsageIsStatusTwo) {
    const std::vector<std::vector<std::string>> wrong = {
        {"send"},
        {"send", "--text", "nobody"},
        {"send", "--to", "5", "--broadcast"},
        {"send", "--to", "5", "--text", "x", "--hex", "00"},
        {"send", "--to", "5", "--hex", "0"},
        {"send", "--to", "5", "--hex", "0g"},
        {"send", "--to", "5", "--size", "8193"},
        {"send", "--to", "nobody"},
        {"send", "--to", "65536"},
        {"send", "--to", "5", "--id", "128"},
        {"send", "--to", "5", "--ip", "here"},
        {"send", "--to", "5", "--count", "0"},
        {"status"},
        {"status", "send", "--to", "5"},
        {"status", "send", "--type", "no_such_type", "--to", "5"},
        {"status", "recv"},
    };
    for (const auto &options : wrong) {
        const auto result = run(options);
        EXPECT_EQ(result.status, 2) << testing::PrintToString(options);
        EXPECT_FALSE(result.error.empty()) << testing::PrintToString(options);
    }
}

TEST(Status, IsSentWithItsTypeInFront) {
    bench::manager manager;
    bench::node five{5};
    const auto sent = run({"status", "send", "--type", "camera_fov_para_req", "--to", "5", "--hex", "aabb"});
    EXPECT_EQ(sent.status, 0) << sent.error;
    EXPECT_EQ(five.receive(), bus::message({0, k_tool, 5}, {234, 0, 0xAA, 0xBB}));
}

TEST(Status, IsBroadcastAndQueuedToo) {
    bench::manager manager;
    bench::node five{5};
    EXPECT_EQ(run({"status", "send", "--type", "1", "--broadcast", "--text", "b"}).status, 0);
    EXPECT_EQ(five.receive(), bus::message({0, k_tool, 5}, {1, 0, 'b'}));
    EXPECT_EQ(run({"status", "send", "--type", "1", "--to", "5", "--queued", "--text", "q"}).status, 0);
    EXPECT_EQ(five.receive(), bus::message({0, k_tool, 5}, {1, 0, 'q'}));
}

TEST(Status, IsReceivedByTheNodeThatItIsSentTo) {
    bench::manager manager;
    bench::program receiver{{"status", "recv", "VIO_CFG", "--id", "9", "--wait", "60", "--json"}};
    ASSERT_TRUE(manager.waits_for(9, true));
    EXPECT_EQ(run({"status", "send", "--type", "soa_cfg", "--to", "9", "--hex", "00"}).status, 0);
    EXPECT_EQ(run({"status", "send", "--type", "vio_cfg", "--to", "9", "--hex", "0102"}).status, 0);
    const auto received = receiver.end();
    EXPECT_EQ(received.status, 0) << received.error;
    const auto status = received.json();
    EXPECT_EQ(status["type"], 1);
    EXPECT_EQ(status["src"], k_tool);
    EXPECT_EQ(status["dst"], 9);
    EXPECT_EQ(status["payload"], "0102");
}

TEST(Status, ThatStaysAwayIsStatusOne) {
    bench::manager manager;
    const auto received = run({"status", "recv", "vio_cfg", "--wait", "0.2"});
    EXPECT_EQ(received.status, 1);
    EXPECT_THAT(received.error, HasSubstr("0 of 1 statuses of type 1 (MSG_VIO_CFG) came in 0.2 s"));
}

TEST(Status, IsPrintedOncePerArrival) {
    bench::manager manager;
    bench::program receiver{{"status", "recv", "vio_cfg", "--id", "9", "--wait", "60", "--count", "3"}};
    ASSERT_TRUE(manager.waits_for(9, true));
    for (const char *payload : {"01", "02", "02"}) {
        EXPECT_EQ(run({"status", "send", "--type", "vio_cfg", "--to", "9", "--hex", payload}).status, 0);
        EXPECT_EQ(receiver.line(),
                  "1 (MSG_VIO_CFG) from 119, 1 bytes behind the type: " + std::string{payload});
    }
    EXPECT_EQ(receiver.end().status, 0);
}
