// The stand-ins for the flight side and the camera as users run them, with the library's own senders at the
// other end.
#include "child_process.h"
#include "udp_peer.h"
#include "vectors.h"
#include "vision_protocol.h"

#include "link_samples.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace std::chrono_literals;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr auto k_patience = 20s;

/// The program, ready to receive.
class stand_in {
public:
    stand_in(const std::string &end, std::vector<std::string> options)
        : process_(command(end, std::move(options)), {.error_file = "", .merge_errors = true}) {}

    std::string line() { return process_.wait_line(k_patience).value_or("no line"); }
    json object() { return json::parse(line()); }
    void signal(int number) { process_.signal(number); }
    int status() { return status_within(k_patience).value_or(-1); }
    std::optional<int> status_within(std::chrono::milliseconds patience) {
        return process_.wait_exit(patience);
    }

    std::string rest() {
        std::string text;
        while (const auto next = process_.wait_line(k_patience)) {
            text += *next + '\n';
        }
        return text;
    }

private:
    static std::vector<std::string> command(const std::string &end, std::vector<std::string> options) {
        options.insert(options.begin(), {VEXA_PROGRAM, end});
        return options;
    }

    child_process process_;
};

void send_to_flight_side(const std::vector<uint8_t> &datagram) {
    udp_peer sender("192.168.1.9", 40000);
    ASSERT_TRUE(sender.send(datagram, "192.168.1.5", 5673));
}

} // namespace

TEST(Flight, ListensWhereReportsGo) {
    stand_in flight("flight", {});
    EXPECT_THAT(flight.line(), HasSubstr("flight side at 192.168.1.5:5673"));
}

TEST(Camera, ListensWhereCommandsGo) {
    stand_in camera("camera", {});
    EXPECT_THAT(camera.line(), HasSubstr("camera at 192.168.1.11:5685"));
}

TEST(Flight, ListensElsewhereWhenTold) {
    stand_in flight("flight", {"--bind", "192.168.1.77", "--port", "7000"});
    EXPECT_THAT(flight.line(), HasSubstr("192.168.1.77:7000"));
}

TEST(Flight, ShowsEveryReportOfTheLibraryInALine) {
    stand_in flight("flight", {"--count", "6"});
    (void)flight.line();
    auto track = samples::movidus_report_track_status();
    auto goal = samples::movidus_report_goal_area();
    auto status = samples::movidus_report_orbit_status();
    auto area = samples::movidus_report_orbit_area();
    EXPECT_EQ(send_message_track_status(&track), 72);
    EXPECT_EQ(send_message_track_area_array(&goal), 432);
    EXPECT_EQ(send_message_orbit_status(&status), 64);
    EXPECT_EQ(send_message_orbit_area(&area), 52);
    EXPECT_EQ(send_ifly_command_ack(0x2A, 7), 48);
    EXPECT_EQ(send_ifly_command_ack_rc(0x2B, 8, 99), 48);
    EXPECT_THAT(flight.line(),
                HasSubstr("  #0  72 bytes  track_status timestamp=72623859790382856 start_x=0.2 "));
    EXPECT_THAT(flight.line(), HasSubstr("  #1  432 bytes  goal_area timestamp=1230066625199609624 number=3 "
                                         "total=9 start_x=[1.0 1.125 1.25] start_y=[2.0 2.125 2.25] "));
    EXPECT_THAT(flight.line(), HasSubstr("  #2  64 bytes  orbit_status "));
    EXPECT_THAT(flight.line(), HasSubstr("  #3  52 bytes  orbit_area "));
    EXPECT_THAT(flight.line(),
                HasSubstr("  #4  48 bytes  command_ack command=42 status=7 status1=0 data=07.."));
    EXPECT_THAT(flight.line(),
                HasSubstr("  #5  48 bytes  command_ack command=43 status=8 status1=99 data=080063.."));
    EXPECT_EQ(flight.status(), 0);
    EXPECT_THAT(flight.rest(), HasSubstr("datagrams 6, malformed 0, numbers missing 0, late 0"));
}

TEST(Camera, ShowsACommandOfTheLibrary) {
    stand_in camera("camera", {"--count", "1"});
    (void)camera.line();
    uint8_t data[] = {0xA0, 0xA1};
    EXPECT_EQ(send_ifly_command_cam(0x11, data, 2), 0);
    EXPECT_THAT(camera.line(), HasSubstr("  #0  48 bytes  camera_command command=17 data=a0a1.."));
    EXPECT_EQ(camera.status(), 0);
}

TEST(Flight, SpeaksJsonWithEveryField) {
    stand_in flight("flight", {"--json", "--count", "1"});
    EXPECT_EQ(flight.object(),
              (json{{"event", "listening"}, {"end", "flight side"}, {"address", "192.168.1.5:5673"}}));
    send_to_flight_side(vectors::bytes("link_datagram_command_ack"));
    json datagram = flight.object();
    EXPECT_GT(datagram["received_ns"], 0);
    datagram.erase("received_ns");
    EXPECT_EQ(datagram,
              (json{{"event", "datagram"},
                    {"from", "192.168.1.9:40000"},
                    {"bytes", 48},
                    {"message", "command_ack"},
                    {"msg_type", 0x0901},
                    {"sequence", 0},
                    {"missing", 0},
                    {"late", false},
                    {"fields",
                     {{"command", 42}, {"status", 7}, {"status1", 0}, {"data", "07" + std::string(60, '0')}}},
                    {"faults", json::array()}}));
    EXPECT_EQ(flight.object(), (json{{"event", "summary"},
                                     {"received", 1},
                                     {"malformed", 0},
                                     {"missing", 0},
                                     {"late", 0},
                                     {"messages", {{"command_ack", 1}}}}));
    EXPECT_EQ(flight.status(), 0);
}

TEST(Flight, SaysWhatIsWrongAndFails) {
    stand_in flight("flight", {"--count", "1"});
    (void)flight.line();
    send_to_flight_side({1, 2, 3});
    EXPECT_THAT(flight.line(),
                HasSubstr("3 bytes  unknown  MALFORMED: 3 bytes are no header, which has 16;"));
    EXPECT_EQ(flight.status(), 1);
    EXPECT_THAT(flight.rest(), HasSubstr("vexa flight: 1 of 1 datagrams were malformed"));
}

TEST(Flight, SaysWhatIsWrongInJson) {
    stand_in flight("flight", {"--count", "1", "--json"});
    (void)flight.line();
    send_to_flight_side({});
    const json object = flight.object();
    EXPECT_EQ(object["faults"], json{"0 bytes are no header, which has 16"});
    EXPECT_EQ(object["sequence"], nullptr);
    EXPECT_EQ(object["fields"], nullptr);
    EXPECT_EQ(flight.status(), 1);
}

TEST(Flight, CountsTheNumbersThatWentToTheCamera) {
    stand_in flight("flight", {"--count", "2"});
    (void)flight.line();
    send_ifly_command_ack(1, 1);
    send_ifly_command_cam(1, nullptr, 0);
    send_ifly_command_cam(2, nullptr, 0);
    send_ifly_command_ack(2, 1);
    EXPECT_THAT(flight.line(), Not(HasSubstr("missing")));
    EXPECT_THAT(flight.line(), HasSubstr("#3 (2 missing before it)"));
    EXPECT_EQ(flight.status(), 0);
    const std::string rest = flight.rest();
    EXPECT_THAT(rest, HasSubstr("numbers missing 2, late 0"));
    EXPECT_THAT(rest, HasSubstr("may have gone to the camera"));
}

TEST(Flight, FollowsEachSenderOnItsOwn) {
    stand_in flight("flight", {"--count", "3"});
    (void)flight.line();
    const auto first = vectors::bytes("link_datagram_command_ack");
    send_to_flight_side(first);
    udp_peer other("192.168.1.10", 40000);
    ASSERT_TRUE(other.send(first, "192.168.1.5", 5673));
    send_to_flight_side(first);
    EXPECT_THAT(flight.line(), Not(HasSubstr("late")));
    EXPECT_THAT(flight.line(), Not(HasSubstr("late")));
    EXPECT_THAT(flight.line(), HasSubstr("#0 (late)"));
    EXPECT_THAT(flight.rest(), HasSubstr("numbers missing 0, late 1"));
}

TEST(Flight, IsSilentAboutGoodDatagramsWhenQuiet) {
    stand_in flight("flight", {"--count", "2", "--quiet"});
    // Nothing says that it listens: send until the second has come.
    udp_peer sender("192.168.1.9", 40000);
    std::string text;
    while (text.empty()) {
        (void)sender.send(vectors::bytes("link_datagram_command_ack"), "192.168.1.5", 5673);
        const auto status = flight.status_within(10ms);
        text = status ? flight.rest() : "";
    }
    EXPECT_THAT(text, HasSubstr("datagrams 2, malformed 0"));
    EXPECT_THAT(text, Not(HasSubstr("status1")));
}

TEST(Flight, EndsWithASummaryWhenAsked) {
    for (const int number : {SIGINT, SIGTERM}) {
        stand_in flight("flight", {});
        (void)flight.line();
        flight.signal(number);
        EXPECT_EQ(flight.status(), 0);
        EXPECT_THAT(flight.rest(), HasSubstr("ended; datagrams 0"));
    }
}

TEST(Flight, EndsWhenTheTimeIsOver) {
    stand_in flight("flight", {"--timeout", "0.05"});
    EXPECT_EQ(flight.status(), 0);
    EXPECT_THAT(flight.rest(), HasSubstr("ended; datagrams 0"));
}

TEST(Flight, FailsWhenTooFewCameInTime) {
    stand_in flight("flight", {"--timeout", "0.05", "--count", "2"});
    EXPECT_EQ(flight.status(), 1);
    EXPECT_THAT(flight.rest(), HasSubstr("vexa flight: 0 of 2 datagrams came in 0.05 s"));
}

TEST(Flight, SaysWhyItCannotListen) {
    const udp_peer taken("192.168.1.5", 5673);
    stand_in flight("flight", {});
    EXPECT_EQ(flight.status(), 1);
    EXPECT_THAT(flight.rest(),
                HasSubstr("vexa flight: cannot bind 192.168.1.5:5673: Address already in use"));
}

TEST(Camera, SaysHowToListenWithoutTheAddress) {
    stand_in camera("camera", {"--bind", "203.0.113.7"});
    EXPECT_EQ(camera.status(), 1);
    EXPECT_THAT(camera.rest(), HasSubstr("vexa camera --bind 203.0.113.7"));
}

TEST(Flight, RefusesOptionsThatMakeNoSense) {
    for (const std::vector<std::string> &options :
         std::vector<std::vector<std::string>>{{"--count", "0"},
                                               {"--port", "70000"},
                                               {"--bind", "here"},
                                               {"--json", "--quiet"},
                                               {"--timeout", "-1"}}) {
        EXPECT_EQ(stand_in("flight", options).status(), 2) << options[0];
    }
}

TEST(Flight, ExplainsItself) {
    stand_in flight("flight", {"--help"});
    EXPECT_EQ(flight.status(), 0);
    EXPECT_THAT(flight.rest(), HasSubstr("vexa flight --json --count 3 --timeout 10"));
}
