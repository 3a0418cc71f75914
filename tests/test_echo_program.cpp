// `vexa echo` as a user runs it: on the loopback device of a network of the test's own, and on files.
#include "child_process.h"
#include "emulator.h"
#include "packets.h"
#include "udp_peer.h"
#include "vectors.h"

#include "utils/ut_le.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <pcap/pcap.h>

using namespace std::chrono_literals;
using nlohmann::json;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

using bytes_t = std::vector<uint8_t>;

constexpr auto k_patience = 20s;

class echo {
public:
    explicit echo(std::vector<std::string> options) : process_(command(std::move(options)), {{}, true}) {}

    std::string line() { return process_.wait_line(k_patience).value_or("no line"); }
    std::string rest() {
        std::string text;
        while (const auto next = process_.wait_line(k_patience)) {
            text += *next + '\n';
        }
        return text;
    }
    void signal(int number) { process_.signal(number); }
    int status() { return process_.wait_exit(k_patience).value_or(-1); }

private:
    static std::vector<std::string> command(std::vector<std::string> options) {
        options.insert(options.begin(), {VEXA_PROGRAM, "echo"});
        return options;
    }

    child_process process_;
};

/// One that listens already.
class live_echo : public echo {
public:
    explicit live_echo(std::vector<std::string> options) : echo(on_lo(std::move(options))) {
        EXPECT_EQ(line(), "vexa echo: listening on lo");
    }

private:
    static std::vector<std::string> on_lo(std::vector<std::string> options) {
        options.insert(options.begin(), {"-i", "lo"});
        return options;
    }
};

void send(const std::string &image, const std::string &ip, uint16_t port) {
    udp_peer sender("192.168.1.9", 40000);
    ASSERT_TRUE(sender.send(vectors::bytes(image), ip, port));
}

/// A capture file, removed with its object.
class capture_file {
public:
    explicit capture_file(const std::vector<bytes_t> &packets, size_t cut = 0) {
        pcap_t *format = pcap_open_dead(DLT_RAW, 65535);
        pcap_dumper_t *out = pcap_dump_open(format, path_.c_str());
        for (const bytes_t &packet : packets) {
            const auto size = static_cast<bpf_u_int32>(packet.size());
            const pcap_pkthdr head{
                .ts = {1700000000, 123456}, .caplen = static_cast<bpf_u_int32>(size - cut), .len = size};
            pcap_dump(reinterpret_cast<u_char *>(out), &head, packet.data());
        }
        pcap_dump_close(out);
        pcap_close(format);
    }
    ~capture_file() { (void)std::filesystem::remove(path_); }
    capture_file(const capture_file &) = delete;
    capture_file &operator=(const capture_file &) = delete;
    [[nodiscard]] const std::string &path() const { return path_; }

private:
    std::string path_ = testing::TempDir() + "vexa-echo-" + std::to_string(getpid()) + ".pcap";
};

bytes_t packet(const std::string &image, uint16_t port) {
    return packets::ipv4({}, packets::udp(40000, port, vectors::bytes(image)));
}

/// What echo makes of one packet, without the time before it.
std::string shown(const bytes_t &packet, size_t cut = 0) {
    const capture_file file({packet}, cut);
    echo program({"-r", file.path(), "--all"});
    const std::string text = program.rest();
    EXPECT_EQ(program.status(), 0);
    return text.size() > 17 ? text.substr(17, text.size() - 18) : text;
}

} // namespace

TEST(Echo, ShowsALineForEachMessageAsItPasses) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    live_echo program({"--count", "3"});
    send("route_register_node9", "192.168.1.1", 9000);
    EXPECT_THAT(program.line(),
                EndsWith("  detection_tracking(9) -> manager(0)  register  detection_tracking(9) "
                         "'detection' 192.168.1.9:9009 active"));
    send("route_message_node9_to_3", "192.168.1.3", 9003);
    EXPECT_THAT(program.line(),
                EndsWith("  detection_tracking(9) -> vio(3)  message  5 bytes 68656c6c6f \"hello\""));
    send("route_heartbeat_two_pairs", "192.168.1.127", 9127);
    EXPECT_THAT(program.line(), HasSubstr("  detection_tracking(9) -> proxy(127)  heartbeat_set  "));
    EXPECT_EQ(program.status(), 0);
}

TEST(Echo, ShowsEveryFamily) {
    EXPECT_EQ(shown(packet("route_status_node9_to_5", 9005)),
              "detection_tracking(9) -> soa(5)  status  10 bytes MSG_DETECTION_OBJECTS 1122334455667788");
    EXPECT_EQ(shown(packet("route_manager_answer", 9009)),
              "manager(0) -> detection_tracking(9)  notify  accepted  vio(3) 'vio' 192.168.1.3:9003 active; "
              "proxy(127) 'proxy' 192.168.1.127:9127 active");
    EXPECT_EQ(
        shown(packet("route_node_info_9_to_3", 9003)),
        "detection_tracking(9) -> vio(3)  node_info  detection_tracking(9) 'detection' 192.168.1.9:9009 "
        "active");
    EXPECT_EQ(
        shown(packet("link_datagram_orbit_area", 5673)),
        "192.168.1.9:40000 -> 192.168.1.5:5673  orbit_area  #0 timestamp=3544952156018063160 start_x=0.125 "
        "start_y=0.375 width=0.5 height=0.625 resolution_width=3840 resolution_height=2160 "
        "status=1903326068");
    EXPECT_THAT(shown(packet("link_datagram_goal_area", 5673)),
                HasSubstr(" number=3 total=9 start_x=[1 1.125 1.25] "));
    EXPECT_EQ(shown(packet("link_datagram_camera_command", 5685)),
              "192.168.1.9:40000 -> 192.168.1.5:5685  camera_command  #0 command=17 data=a0a1a2..");
    EXPECT_THAT(shown(packet("link_frame_orbit_area", 5673)),
                HasSubstr("  movidus_report_orbit_area  #0 timestamp=3544952156018063160 "));
}

TEST(Echo, ShowsHeartbeatOperationsByNameAndWhatIsLeft) {
    EXPECT_EQ(
        shown(packet("route_heartbeat_13_bytes", 9127)),
        "detection_tracking(9) -> proxy(127)  heartbeat_set  VIO_MODE=511  note: 5 bytes follow the last "
        "pair, not 0;");
}

TEST(Echo, SaysWhatIsMalformedAndWhere) {
    EXPECT_THAT(shown(packet("link_datagram_orbit_area", 5685)),
                EndsWith("  MALFORMED: orbit_area is for the flight side [at byte 0];"));
    EXPECT_THAT(shown(packets::ipv4({}, packets::udp(1, 9003, {1, 2, 3}))),
                EndsWith("unknown  010203  CUT: 3 bytes are no header, which has 16 [at byte 3];"));
}

TEST(Echo, SaysWhatTheCaptureCut) {
    EXPECT_THAT(shown(packet("route_register_node9", 9000), 5),
                EndsWith("  CUT: captured were 53 of 58 bytes [at byte 53];"));
}

TEST(Echo, SaysThatFragmentsAreMissing) {
    bytes_t message = vectors::bytes("route_message_node9_to_3");
    message.resize(3016);
    ut_put_le16(&message[4], 3000);
    EXPECT_THAT(shown(packets::fragment(packets::udp(1, 9003, message), 0, 1480)),
                HasSubstr("  CUT: an IP fragment, whose other fragments are missing [at byte 1472];"));
}

TEST(Echo, LeavesOutWhatIsNoneOfThisSystems) {
    const capture_file file(
        {packets::ipv4({}, packets::udp(1, 53, {1, 2, 3})), packet("route_register_node9", 9000)});
    echo program({"-r", file.path()});
    const std::string text = program.rest();
    EXPECT_THAT(text, Not(HasSubstr(":53")));
    EXPECT_THAT(text, HasSubstr("register"));
    EXPECT_THAT(shown(packets::ipv4({}, packets::udp(1, 53, {1, 2, 3}))),
                EndsWith("192.168.1.5:53  none of this system's  010203"));
}

TEST(Echo, ShowsOnlyWhatTheFilterWants) {
    const capture_file file({packet("route_register_node9", 9000), packet("route_status_node9_to_5", 9005),
                             packet("link_datagram_orbit_area", 5673)});
    echo program({"-r", file.path(), "from", "9", "and", "not", "family", "manager"});
    const std::string text = program.rest();
    EXPECT_THAT(text, HasSubstr("  status  "));
    EXPECT_THAT(text, Not(HasSubstr("register")));
    EXPECT_THAT(text, Not(HasSubstr("orbit_area")));
}

TEST(Echo, GivesJsonWithAllFieldsAndFindings) {
    const capture_file file({packet("route_heartbeat_13_bytes", 9127)});
    echo program({"-r", file.path(), "--json"});
    const json object = json::parse(program.line());
    EXPECT_EQ(object["time"], "2023-11-14T22:13:20.123456000Z");
    EXPECT_EQ(object["time_ns"], 1700000000123456000);
    EXPECT_EQ(object["from"], "192.168.1.9:40000");
    EXPECT_EQ(object["to"], "192.168.1.5:9127");
    EXPECT_EQ(object["bytes"], 29);
    EXPECT_EQ(object["family"], "heartbeat");
    EXPECT_EQ(object["message"], "heartbeat_set");
    EXPECT_EQ(object["fields"]["src"], 9);
    EXPECT_EQ(object["fields"]["src_name"], "NODE_DETECTION_TRACKING");
    EXPECT_EQ(object["fields"]["flag_bits"]["accepted"], 0);
    EXPECT_EQ(object["fields"]["pairs"],
              json::parse(R"([{"field": 30, "field_name": "VIO_MODE", "value": 511}])"));
    EXPECT_EQ(object["fields"]["surplus"], "0000000007");
    EXPECT_EQ(object["findings"], json::parse(R"([{"severity": "note", "code": "surplus", "offset": 24,
        "text": "5 bytes follow the last pair, not 0"}])"));
}

TEST(Echo, GivesATableWithTheFieldsAskedFor) {
    const capture_file file({packet("route_manager_answer", 9009), packet("route_status_node9_to_5", 9005)});
    echo program({"-r", file.path(), "--csv", "--fields", "cnt,node.port,flag.accepted"});
    EXPECT_EQ(program.line(),
              "time,from_address,to_address,family,message,src,dst,key,bytes,findings,cnt,node.port,"
              "flag.accepted");
    EXPECT_EQ(program.line(),
              "2023-11-14T22:13:20.123456000Z,192.168.1.9:40000,192.168.1.5:9009,manager,notify,0,9,"
              ",96,,2,9003 9127,1");
    EXPECT_EQ(program.line(),
              "2023-11-14T22:13:20.123456000Z,192.168.1.9:40000,192.168.1.5:9005,user,status,9,5,6,26"
              ",,,,0");
}

TEST(Echo, QuotesTheCellsOfATable) {
    bytes_t bytes = vectors::bytes("route_register_node9");
    bytes[20] = '"';
    bytes[21] = ',';
    const capture_file file({packets::ipv4({}, packets::udp(1, 9000, bytes))});
    echo program({"-r", file.path(), "--csv", "--fields", "node.name"});
    (void)program.line();
    EXPECT_THAT(program.line(), EndsWith(R"(,""",tection")"));
}

TEST(Echo, ShowsFieldsBelowTheirMessage) {
    const capture_file file({packet("route_status_node9_to_5", 9005)});
    echo program({"-r", file.path(), "--fields", "dst,key"});
    (void)program.line();
    EXPECT_EQ(program.line(), "        8 +2   dst = NODE_SOA (5)");
    EXPECT_EQ(program.line(), "       16 +2   key = MSG_DETECTION_OBJECTS (6)");
    EXPECT_EQ(program.rest(), "");
    echo all({"-r", file.path(), "--fields", "all"});
    EXPECT_THAT(all.rest(), HasSubstr("\n        2 +1   flag.accepted = 0\n"));
}

TEST(Echo, EndsAfterTheTimeGiven) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    live_echo program({"--timeout", "0.2"});
    EXPECT_EQ(program.status(), 0);
}

TEST(Echo, FailsWhenTooFewMessagesComeInTime) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    live_echo program({"--timeout", "0.2", "--count", "2"});
    EXPECT_EQ(program.line(), "vexa echo: 0 of 2 messages came in time");
    EXPECT_EQ(program.status(), 1);
}

TEST(Echo, FailsWhenTheFileHasTooFewMessages) {
    const capture_file file({packet("route_status_node9_to_5", 9005)});
    echo program({"-r", file.path(), "--count", "2"});
    (void)program.line();
    EXPECT_EQ(program.line(), "vexa echo: 1 of 2 messages came before the end of the file");
    EXPECT_EQ(program.status(), 1);
}

TEST(Echo, EndsWhenAsked) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    for (const int signal : {SIGINT, SIGTERM}) {
        live_echo program({});
        program.signal(signal);
        EXPECT_EQ(program.status(), 0);
    }
}

TEST(Echo, RefusesWhatMakesNoSense) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
        {{"form", "9"}, "'form' is no condition"},
        {{"--fields", "destination"}, "no message has a field 'destination'"},
        {{"--csv", "--json"}, "excludes"},
        {{"-i", "lo", "-r", "x"}, "excludes"},
        {{"--count", "0"}, "--count"},
    };
    for (const auto &[options, complaint] : rows) {
        echo program(options);
        EXPECT_THAT(program.rest(), HasSubstr(complaint));
        EXPECT_EQ(program.status(), 2) << complaint;
    }
}

TEST(Echo, SaysWhyNothingCanBeCaptured) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    echo absent({"-i", "eth77"});
    EXPECT_THAT(absent.rest(), HasSubstr("There is no interface 'eth77'"));
    EXPECT_EQ(absent.status(), 1);
    echo file({"-r", "/nowhere.pcap"});
    EXPECT_THAT(file.rest(), HasSubstr("/nowhere.pcap"));
    EXPECT_EQ(file.status(), 1);
}

TEST(Echo, SaysWhoMayCapture) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    child_process program(
        {"setpriv", "--bounding-set=-all", "--inh-caps=-all", VEXA_PROGRAM, "echo", "-i", "lo"}, {{}, true});
    std::string text;
    while (const auto line = program.wait_line(k_patience)) {
        text += *line + '\n';
    }
    EXPECT_THAT(text, HasSubstr("sudo setcap cap_net_raw,cap_net_admin+ep"));
    EXPECT_EQ(program.wait_exit(k_patience), 1);
}

TEST(Echo, HelpsWithFilterExitStatusAndExample) {
    echo program({"--help"});
    const std::string text = program.rest();
    EXPECT_THAT(text, HasSubstr("family NAME"));
    EXPECT_THAT(text, HasSubstr("Exit status: 0"));
    EXPECT_THAT(text, HasSubstr("Example:"));
    EXPECT_EQ(program.status(), 0);
}
