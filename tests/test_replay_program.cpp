// `vexa replay` as a user runs it: what goes out, byte by byte, and when.
#include "bench.h"
#include "recordings.h"
#include "vectors.h"
#include "wait.h"

#include <gmock/gmock.h>

using namespace std::chrono_literals;
using bench::run;
using recordings::payloads;
using testing::ElementsAre;
using testing::HasSubstr;
using words = std::vector<std::string>;

namespace {

bus::bytes message(uint8_t number, uint16_t dst = 5) {
    return bus::message({1, 9, dst}, {number, 0, 3});
}

recordings::packet packet(std::chrono::milliseconds at, uint8_t number) {
    return {at, recordings::to(5, 9005, message(number))};
}

/// A file with three messages, half a second and an hour apart.
class recorded {
public:
    recorded() { recordings::write(path(), {packet(0ms, 1), packet(500ms, 2), packet(3600s, 3)}); }
    [[nodiscard]] std::string path() const { return place_.path("a.pcap"); }

private:
    recordings::directory place_;
};

class receiver {
public:
    explicit receiver(uint16_t port = 9005, const std::string &ip = "192.168.1.5") : socket_(ip, port) {}
    bus::bytes next() { return socket_.receive(bench::k_patience).value_or(bus::bytes{}); }
    bool is_empty() { return !socket_.receive(0ms).has_value(); }

private:
    udp_peer socket_;
};

words with(words options, const std::string &file) {
    options.insert(options.begin(), {"replay", file});
    return options;
}

} // namespace

TEST(Replay, SendsWhatWasRecordedInOrder) {
    const recorded file;
    receiver five;
    const auto result = run(with({"--fast"}, file.path()));
    EXPECT_EQ(result.status, 0) << result.error;
    for (const uint8_t number : {uint8_t{1}, uint8_t{2}, uint8_t{3}}) {
        EXPECT_EQ(five.next(), message(number));
    }
    EXPECT_TRUE(five.is_empty());
    EXPECT_THAT(result.error,
                HasSubstr("not passive: sends 3 messages (57 bytes, 3600.0 s), as fast as possible"));
    EXPECT_THAT(result.output, HasSubstr("sent 3 messages, 57 bytes, in "));
}

TEST(Replay, KeepsTheTimesOfTheRecording) {
    const recorded file;
    const auto as_recorded = run(with({"--to", "1s", "--json"}, file.path())).json();
    EXPECT_EQ(as_recorded["sent"], 2);
    EXPECT_GE(as_recorded["seconds"], 0.5);
    const auto slower = run(with({"--to", "1s", "--json", "--rate", "0.5"}, file.path())).json();
    EXPECT_GE(slower["seconds"], 1.0);
    const auto faster = run(with({"--json", "--rate", "36000"}, file.path())).json();
    EXPECT_EQ(faster["sent"], 3);
    EXPECT_GE(faster["seconds"], 0.1);
    EXPECT_LT(faster["seconds"], 60);
}

TEST(Replay, TwoReplaysAndARecordingOfOneAreByteIdentical) {
    const recordings::directory place;
    std::vector<recordings::packet> packets;
    for (uint8_t number = 0; number < 100; ++number) {
        packets.push_back(
            {std::chrono::milliseconds(number / 10),
             recordings::to(number % 7, static_cast<uint16_t>(9000 + number % 7), message(number))});
    }
    packets.push_back({20ms, recordings::to(5, 5673, vectors::bytes("link_datagram_orbit_area"))});
    packets.push_back({21ms, recordings::to(5, 9005, bus::message({1, 9, 5}, bus::pattern(8192)))});
    recordings::write(place.path("a.pcap"), packets);
    std::string last = place.path("a.pcap");
    for (const char *name : {"b.pcapng", "c.pcapng"}) {
        bench::program record({"record", "-i", "lo", place.path(name), "--count", "102"});
        EXPECT_TRUE(wait_until([&] { return record.error().find("recording on") != std::string::npos; },
                               bench::k_patience));
        EXPECT_EQ(run({"replay", last, "--rate", "10"}).status, 0);
        EXPECT_EQ(record.end().status, 0);
        last = place.path(name);
    }
    const auto original = recordings::datagrams(place.path("a.pcap"));
    for (const char *name : {"b.pcapng", "c.pcapng"}) {
        const auto copy = recordings::datagrams(place.path(name));
        ASSERT_EQ(copy.size(), original.size());
        for (size_t i = 0; i < copy.size(); ++i) {
            EXPECT_EQ(copy[i].bytes, original[i].bytes) << name << ' ' << i;
            EXPECT_EQ(copy[i].to, original[i].to) << name << ' ' << i;
        }
    }
}

TEST(Replay, SendsOnlyTheMessagesAndTimesAskedFor) {
    const recorded file;
    receiver five;
    EXPECT_EQ(run(with({"--fast", "--from", "500ms", "--to", "1min"}, file.path())).status, 0);
    EXPECT_EQ(five.next(), message(2));
    EXPECT_TRUE(five.is_empty());
    const auto none = run(with({"--fast", "--filter", "to 3"}, file.path()));
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.error, HasSubstr("no message to send; 3 are left out by the filter"));
}

TEST(Replay, BeginsAtOnceWhereItIsToldTo) {
    const recorded file;
    receiver five;
    EXPECT_EQ(run(with({"--from", "1h"}, file.path())).status, 0);
    EXPECT_EQ(five.next(), message(3));
}

TEST(Replay, PlaysAgainAndAgain) {
    const recorded file;
    receiver five;
    const auto twice = run(with({"--fast", "--json", "--loop", "2"}, file.path())).json();
    EXPECT_EQ(twice["sent"], 6);
    EXPECT_EQ(twice["rounds"], 2);
    for (const uint8_t number : {uint8_t{1}, uint8_t{2}, uint8_t{3}, uint8_t{1}}) {
        EXPECT_EQ(five.next(), message(number));
    }
}

TEST(Replay, LoopsUntilItIsEnded) {
    const recorded file;
    receiver five;
    bench::program endless({"replay", "--to", "1ms", "--json", "--loop", file.path()});
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(five.next(), message(1));
    }
    endless.signal(SIGINT);
    const auto result = endless.end();
    EXPECT_EQ(result.status, 0);
    EXPECT_GE(result.json()["rounds"], 9);
    EXPECT_EQ(result.json()["ended_early"], true);
}

TEST(Replay, MapsIdsAndAddresses) {
    const recorded file;
    receiver seven(9007, "127.0.0.1");
    EXPECT_EQ(
        run(with({"--fast", "--map-id", "5=7,9=8", "--map-address", "192.168.1.5=127.0.0.1"}, file.path()))
            .status,
        0);
    EXPECT_EQ(seven.next(), bus::message({1, 8, 7}, {1, 0, 3}));
}

TEST(Replay, ShowsWhatItWouldSendAndSendsNothing) {
    const recorded file;
    receiver five;
    const auto shown = run(with({"--dry-run", "--map-id", "9=8"}, file.path()));
    EXPECT_EQ(shown.status, 0);
    EXPECT_THAT(shown.error, HasSubstr("would send 3 messages"));
    EXPECT_THAT(
        shown.output,
        HasSubstr("    0.500000 s  to 192.168.1.5:9005  precise_landing(8) -> soa(5)  message  3 bytes "));
    const auto json = run(with({"--dry-run", "--json", "--to", "0s"}, file.path())).json();
    EXPECT_EQ(json["to"], "192.168.1.5:9005");
    EXPECT_EQ(json["fields"]["src"], 9);
    EXPECT_TRUE(five.is_empty());
}

TEST(Replay, PlaysACutFileUpToTheCut) {
    const recorded file;
    receiver five;
    std::filesystem::resize_file(file.path(), std::filesystem::file_size(file.path()) - 1);
    const auto result = run(with({"--fast"}, file.path()));
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.error,
                HasSubstr("the recording is cut off; it is replayed up to there: " + file.path()));
    EXPECT_THAT(result.output, HasSubstr("sent 2 messages"));
}

TEST(Replay, NamesWhatCannotBeSent) {
    const recordings::directory place;
    const auto large = packets::udp(1, 9005, bus::message({1, 9, 5}, bus::pattern(3000)));
    recordings::write(place.path("a"), {packet(0ms, 1),
                                        {1ms, recordings::to(5, 53, {1})},
                                        {2ms, packets::ipv4({.protocol = 6}, bus::bytes(20))},
                                        {3ms, packets::fragment(large, 0, 1480)},
                                        {4ms, recordings::to(5, 9005, message(2)), 1}});
    const auto result = run({"replay", place.path("a"), "--fast"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(
        result.error,
        HasSubstr("cannot be sent: 1 with missing IP fragments, 1 of which the capture kept only a part, "
                  "1 that are none of this system's, 1 packets that are no UDP over IPv4"));
    EXPECT_THAT(result.output, HasSubstr("sent 1 message,"));
}

TEST(Replay, FailsWhenThereIsNoWayToADestination) {
    const recorded file;
    const auto result = run(with({"--fast", "--map-address", "192.168.1.5=10.1.2.3"}, file.path()));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error,
                HasSubstr("3 messages to 10.1.2.3:9005 could not be sent: Network is unreachable"));
}

TEST(Replay, RefusesWhatMakesNoSense) {
    const recorded file;
    const std::vector<std::pair<words, std::string>> rows = {
        {{"--rate", "-1"}, "--rate"},        {{"--rate", "2", "--fast"}, "excludes"},
        {{"--filter", "form"}, "'form' is"}, {{"--map-id", "5"}, "'5' is not like 5=7"},
        {{"--from", "5MB"}, "not a time"},   {{"--pause"}, "--pause needs a terminal"},
    };
    for (const auto &[options, complaint] : rows) {
        const auto result = run(with(options, file.path()));
        EXPECT_EQ(result.status, 2) << complaint;
        EXPECT_THAT(result.error + result.output, HasSubstr(complaint));
    }
    EXPECT_EQ(run({"replay", "-"}).status, 2) << "what is read twice is no pipe";
    const auto absent = run({"replay", "/nowhere.pcapng"});
    EXPECT_EQ(absent.status, 1);
    EXPECT_THAT(absent.error, HasSubstr("/nowhere.pcapng"));
}
