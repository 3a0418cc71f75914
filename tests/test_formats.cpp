// The decoder of the tools on the byte images, and on everything that can be wrong with them.
#include "decoder.h"
#include "formats.h"
#include "show.h"

#include "utils/ut_le.h"
#include "vectors.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

using formats::decode;
using formats::decoded;
using formats::node;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using bytes_t = std::vector<uint8_t>;

decoded read(const bytes_t &bytes, uint16_t port) {
    return decode({.bytes = bytes, .wire_size = bytes.size(), .dst_port = port});
}

std::vector<std::string> texts(const decoded &read) {
    std::vector<std::string> all;
    for (const formats::finding &f : read.findings) {
        all.push_back(std::string(name_of(f.how)) + " at " + std::to_string(f.offset) + ": " + f.text);
    }
    return all;
}

void list(const node &n, std::vector<std::string> &lines) {
    if (n.parts.empty() || n.what != nullptr) {
        lines.push_back(key_of(n) + "=" + text_of(n));
    }
    for (const node &part : n.parts) {
        if (n.what == nullptr) {
            list(part, lines);
        }
    }
}

/// Every field but the header's.
std::vector<std::string> payload(const decoded &read) {
    std::vector<std::string> lines;
    for (const node &n : read.fields) {
        if (n.in != &read.wire->head) {
            list(n, lines);
        }
    }
    return lines;
}

} // namespace

TEST(Formats, ReadTheManagersAnswer) {
    const bytes_t bytes = vectors::bytes("route_manager_answer");
    const decoded message = read(bytes, 9009);
    EXPECT_STREQ(message.name(), "notify");
    EXPECT_EQ(message.kin(), formats::family::manager);
    EXPECT_THAT(texts(message), IsEmpty());
    EXPECT_EQ(text_of(*message.find("flag")), "0x80");
    EXPECT_EQ(message.find("flag")->parts[3].raw, 1U);
    EXPECT_EQ(text_of(*message.find("dst")), "NODE_DETECTION_TRACKING (9)");
    EXPECT_THAT(payload(message),
                ElementsAre("vexamsg.mgr.cmd=MGR_CMD_NOTIFY (2)", "vexamsg.mgr.cnt=2",
                            "vexamsg.node.name=vio", "vexamsg.node.ip=192.168.1.3", "vexamsg.node.port=9003",
                            "vexamsg.node.node_id=NODE_VIO (3)", "vexamsg.node.stat=NODE_STAT_ACTIVED (1)",
                            "vexamsg.node.unused=0", "vexamsg.node.name=proxy",
                            "vexamsg.node.ip=192.168.1.127", "vexamsg.node.port=9127",
                            "vexamsg.node.node_id=PROXY_NODE_ID (127)",
                            "vexamsg.node.stat=NODE_STAT_ACTIVED (1)", "vexamsg.node.unused=0"));
}

TEST(Formats, ReadHeartbeatOperationsByName) {
    const bytes_t bytes = vectors::bytes("route_heartbeat_13_bytes");
    const decoded message = read(bytes, 9127);
    EXPECT_STREQ(message.name(), "heartbeat_set");
    EXPECT_THAT(payload(message), ElementsAre("vexamsg.pair.field=VIO_MODE (30)", "vexamsg.pair.value=511",
                                              "vexamsg.surplus=0000000007"));
    EXPECT_THAT(texts(message), ElementsAre("note at 24: 5 bytes follow the last pair, not 0"));
}

TEST(Formats, NameEveryImage) {
    const std::vector<std::pair<std::string, std::string>> names = {
        {"route_broadcast_message_node9_at_3", "message"},
        {"route_broadcast_status_node9", "status"},
        {"route_broadcast_status_node9_at_3", "status"},
        {"route_heartbeat_13_bytes", "heartbeat_set"},
        {"route_heartbeat_two_pairs", "heartbeat_set"},
        {"route_manager_answer", "notify"},
        {"route_message_node9_to_3", "message"},
        {"route_message_node9_to_app", "message"},
        {"route_node_info_9_to_3", "node_info"},
        {"route_register_node9", "register"},
        {"route_status_node9_to_5", "status"},
        {"route_unregister_node5", "unregister"},
        {"link_datagram_command_ack", "command_ack"},
        {"link_datagram_goal_area", "goal_area"},
        {"link_frame_command", "movidus_command"},
        {"link_frame_track_status", "movidus_report_track_status"},
    };
    for (const auto &[image, name] : names) {
        const bytes_t bytes = vectors::bytes(image);
        const decoded message = read(bytes, image.starts_with("route") ? 9127 : 5673);
        EXPECT_EQ(message.name(), name) << image;
        const bool remarkable = image == "route_heartbeat_13_bytes";
        EXPECT_EQ(message.findings.size(), remarkable ? 1U : 0U) << image;
    }
}

TEST(Formats, ReadANodesRegistration) {
    const bytes_t bytes = vectors::bytes("route_register_node9");
    EXPECT_THAT(payload(read(bytes, 9000)),
                ElementsAre("vexamsg.mgr.cmd=MGR_CMD_REGISTER (0)", "vexamsg.mgr.cnt=1",
                            "vexamsg.node.name=detection", "vexamsg.node.ip=192.168.1.9",
                            "vexamsg.node.port=9009", "vexamsg.node.node_id=NODE_DETECTION_TRACKING (9)",
                            "vexamsg.node.stat=NODE_STAT_ACTIVED (1)", "vexamsg.node.unused=0"));
}

TEST(Formats, ReadTheSurplusOfAnUnregister) {
    const bytes_t bytes = vectors::bytes("route_unregister_node5");
    EXPECT_EQ(read(bytes, 9000).find("surplus")->size, 16U);
}

TEST(Formats, ReadAStatusByItsKey) {
    const bytes_t bytes = vectors::bytes("route_status_node9_to_5");
    const decoded message = read(bytes, 9005);
    EXPECT_EQ(message.kin(), formats::family::user);
    EXPECT_EQ(text_of(*message.find("key")), "MSG_DETECTION_OBJECTS (6)");
    EXPECT_EQ(message.find("data")->offset, 18U);
}

TEST(Formats, ReadAFrameWithItsCrc) {
    const bytes_t bytes = vectors::bytes("link_frame_orbit_area");
    const decoded message = read(bytes, 5673);
    EXPECT_EQ(message.kin(), formats::family::frame);
    EXPECT_EQ(text_of(*message.find("destid")), "DEV_APP (32)");
    EXPECT_EQ(message.find("crc")->offset, 44U);
    EXPECT_EQ(value_text(*message.find("start_x")), "0.125");
}

TEST(Formats, NameTheReceiversOfALinkDatagram) {
    const bytes_t bytes = vectors::bytes("link_datagram_general_0907");
    EXPECT_EQ(text_of(*read(bytes, 5673).find("msg_dst")), "TELE_CTRL_NODE|PHONE_NODE (0x1800)");
}

TEST(Formats, TellTheFormatByMagicAndPort) {
    const bytes_t route = vectors::bytes("route_message_node9_to_3");
    const bytes_t link = vectors::bytes("link_datagram_orbit_area");
    const bytes_t frame = vectors::bytes("link_frame_orbit_area");
    const bytes_t strange = {1, 2, 3};
    EXPECT_EQ(read(route, 53).wire, &formats::k_route);
    EXPECT_EQ(read(link, 53).wire, &formats::k_link);
    EXPECT_EQ(read(frame, 53).wire, &formats::k_frame);
    EXPECT_EQ(read(strange, 53).wire, nullptr);
    EXPECT_EQ(read(strange, 9000).wire, &formats::k_route);
    EXPECT_EQ(read(strange, 9127).wire, &formats::k_route);
    EXPECT_EQ(read(strange, 9128).wire, nullptr);
    EXPECT_EQ(read(strange, 5673).wire, &formats::k_link);
    EXPECT_EQ(read(strange, 5685).wire, &formats::k_link);
}

struct fault_row {
    const char *name;
    const char *image;
    uint16_t port;
    void (*spoil)(bytes_t &bytes);
    std::vector<std::string> findings;
};

void PrintTo(const fault_row &row, std::ostream *to) {
    *to << row.name;
}

class Faults : public testing::TestWithParam<fault_row> {};

TEST_P(Faults, AreNamedWithTheirValuesAndPlaces) {
    bytes_t bytes = vectors::bytes(GetParam().image);
    GetParam().spoil(bytes);
    EXPECT_EQ(texts(read(bytes, GetParam().port)), GetParam().findings);
}

INSTANTIATE_TEST_SUITE_P(
    All, Faults,
    testing::Values(
        fault_row{"NoHeader",
                  "route_register_node9",
                  9000,
                  [](bytes_t &b) { b.resize(15); },
                  {"cut at 15: 15 bytes are no header, which has 16"}},
        fault_row{"Magic",
                  "route_register_node9",
                  9000,
                  [](bytes_t &b) { b[1] = 0; },
                  {"malformed at 0: magic is 0x003a, not 0x5e3a"}},
        fault_row{"Kind",
                  "route_register_node9",
                  9000,
                  [](bytes_t &b) { b[3] = 5; },
                  {"malformed at 3: msg_type 5 is not known"}},
        fault_row{"KindThree",
                  "route_status_node9_to_5",
                  9005,
                  [](bytes_t &b) { b[3] = 3; },
                  {"note at 16: nodes ignore messages of kind 3"}},
        fault_row{"Short",
                  "route_status_node9_to_5",
                  9005,
                  [](bytes_t &b) { b.pop_back(); },
                  {"cut at 4: data_length says 10 bytes, 9 arrived"}},
        fault_row{"Long",
                  "route_status_node9_to_5",
                  9005,
                  [](bytes_t &b) { b.push_back(0); },
                  {"malformed at 4: data_length says 10 bytes, 11 arrived"}},
        fault_row{"NoKey",
                  "route_status_node9_to_5",
                  9005,
                  [](bytes_t &b) {
                      b.resize(17);
                      b[4] = 1;
                  },
                  {"malformed at 16: the payload has 1 bytes left, too few for a key, which has 2"}},
        fault_row{"Count",
                  "route_manager_answer",
                  9009,
                  [](bytes_t &b) { b[18] = 3; },
                  {"malformed at 18: cnt is 3, there is room for 2 of 38 bytes"}},
        fault_row{"NegativeCount",
                  "route_manager_answer",
                  9009,
                  [](bytes_t &b) { b[19] = 0x80; },
                  {"malformed at 18: cnt is -32766, there is room for 2 of 38 bytes"}},
        fault_row{"SmallCount",
                  "route_manager_answer",
                  9009,
                  [](bytes_t &b) { b[18] = 1; },
                  {"note at 58: 38 bytes follow the last node, not 0"}},
        fault_row{"Command",
                  "route_manager_answer",
                  9009,
                  [](bytes_t &b) { b[16] = 7; },
                  {"malformed at 16: cmd 7 is not known"}},
        fault_row{"UnregisterWithoutSurplus",
                  "route_unregister_node5",
                  9000,
                  [](bytes_t &b) {
                      b.resize(58);
                      b[4] = 42;
                  },
                  {"note at 58: 0 bytes follow the last node, not 16"}},
        fault_row{"UnendedName",
                  "route_register_node9",
                  9000,
                  [](bytes_t &b) { std::fill_n(b.begin() + 20, 16, uint8_t{'x'}); },
                  {"malformed at 20: name does not end in a NUL"}},
        fault_row{"Stat",
                  "route_register_node9",
                  9000,
                  [](bytes_t &b) { b[56] = 2; },
                  {"malformed at 56: stat 2 is not known"}},
        fault_row{"HeartbeatField",
                  "route_heartbeat_two_pairs",
                  9127,
                  [](bytes_t &b) { b[16] = 73; },
                  {"malformed at 16: field 73 is not known"}},
        fault_row{"NegativeHeartbeatField",
                  "route_heartbeat_two_pairs",
                  9127,
                  [](bytes_t &b) { std::fill_n(b.begin() + 16, 4, uint8_t{0xFF}); },
                  {"malformed at 16: field -1 is not known"}},
        fault_row{"StrangeDestination",
                  "route_message_node9_to_3",
                  9003,
                  [](bytes_t &b) { b[8] = 200; },
                  {"note at 6: no node takes it: src is 9, dst is 200"}},
        fault_row{"StrangeDestinationAtTheProxy",
                  "route_message_node9_to_3",
                  9127,
                  [](bytes_t &b) { b[8] = 200; },
                  {}},
        fault_row{"StrangeSenderOfABroadcast",
                  "route_broadcast_status_node9",
                  9003,
                  [](bytes_t &b) { b[6] = 200; },
                  {}},
        fault_row{"LongerThanAReceiverTakes",
                  "route_message_node9_to_3",
                  9003,
                  [](bytes_t &b) {
                      b.resize(16 + 8177);
                      ut_put_le16(&b[4], 8177);
                  },
                  {"note at 8192: a receiver takes 8192 of 8193 bytes"}},
        fault_row{"AsLongAsAReceiverTakes",
                  "route_message_node9_to_3",
                  9003,
                  [](bytes_t &b) {
                      b.resize(16 + 8176);
                      ut_put_le16(&b[4], 8176);
                  },
                  {}},
        fault_row{"LinkMagic",
                  "link_datagram_orbit_area",
                  5673,
                  [](bytes_t &b) { b[0] = 0x56; },
                  {"malformed at 0: magic is 0x5656, not 0x5600"}},
        fault_row{"LinkFlag",
                  "link_datagram_orbit_area",
                  5673,
                  [](bytes_t &b) { b[3] = 0xC0; },
                  {"malformed at 3: flag is 0xc0, not 0xe0"}},
        fault_row{"LinkType",
                  "link_datagram_orbit_area",
                  5673,
                  [](bytes_t &b) { b[10] = 0x99; },
                  {"malformed at 10: msg_type 0x0999 is not known"}},
        fault_row{"LinkSize",
                  "link_datagram_orbit_area",
                  5673,
                  [](bytes_t &b) { b.pop_back(); },
                  {"cut at 4: length says 52 bytes, 51 arrived",
                   "malformed at 16: the payload has 35 bytes, that of orbit_area has 36"}},
        fault_row{"LinkEnd",
                  "link_datagram_orbit_area",
                  5685,
                  [](bytes_t & /*b*/) {},
                  {"malformed at 0: orbit_area is for the flight side"}},
        fault_row{
            "FrameChecksum",
            "link_frame_orbit_area",
            5673,
            [](bytes_t &b) { b[7] ^= 1; },
            {"malformed at 7: checksum is 0xd9, not 0xd8", "malformed at 44: crc is 0xd996, not 0x735e"}},
        fault_row{"FrameByte",
                  "link_frame_orbit_area",
                  5673,
                  [](bytes_t &b) { b[20] ^= 1; },
                  {"malformed at 44: crc is 0xd996, not 0xdded"}},
        fault_row{"FrameShort",
                  "link_frame_orbit_area",
                  5673,
                  [](bytes_t &b) { b.pop_back(); },
                  {"cut at 1: len says 36 bytes, 35 arrived",
                   "malformed at 8: the payload has 35 bytes, that of movidus_report_orbit_area has 36",
                   "malformed at 43: crc is 0x9671, not 0xa592"}}),
    [](const auto &row) { return row.param.name; });

TEST(Formats, JudgeLengthsByWhatTravelledNotByWhatWasCaptured) {
    const bytes_t bytes = vectors::bytes("route_register_node9");
    const decoded message = decode({.bytes = std::span{bytes}.first(30), .wire_size = 58, .dst_port = 9000});
    EXPECT_THAT(texts(message), ElementsAre("cut at 30: captured were 30 of 58 bytes"));
    EXPECT_STREQ(message.name(), "register");
}

TEST(Formats, SayThatFragmentsAreMissing) {
    const bytes_t bytes = vectors::bytes("route_register_node9");
    const decoded message =
        decode({.bytes = std::span{bytes}.first(30), .wire_size = 58, .dst_port = 9000, .incomplete = true});
    EXPECT_THAT(texts(message), ElementsAre("cut at 30: an IP fragment, whose other fragments are missing"));
}

TEST(Formats, EscapeWhatATerminalWouldActOn) {
    bytes_t bytes = vectors::bytes("route_register_node9");
    bytes[20] = 0x1B;
    bytes[21] = '\\';
    const decoded message = read(bytes, 9000);
    EXPECT_EQ(payload(message)[2], "vexamsg.node.name=\\x1b\\x5ctection");
}

TEST(Formats, LookTellsWhatDecodeTells) {
    for (const char *name : {"route_status_node9_to_5", "route_message_node9_to_3", "route_register_node9",
                             "route_heartbeat_two_pairs", "link_datagram_orbit_area", "link_frame_command"}) {
        const bytes_t bytes = vectors::bytes(name);
        const formats::glance seen =
            formats::look({.bytes = bytes, .wire_size = bytes.size(), .dst_port = 5673});
        const decoded message = read(bytes, 5673);
        EXPECT_EQ(seen.wire, message.wire) << name;
        EXPECT_EQ(seen.what, message.what) << name;
        const node *src = message.find("src");
        EXPECT_EQ(seen.src, src != nullptr ? src->raw : seen.src) << name;
        const node *key = message.find("key");
        EXPECT_EQ(seen.key, key != nullptr ? std::optional<uint16_t>(key->raw) : std::nullopt) << name;
    }
}

TEST(Formats, ReadNothingBeyondTheEndOfRandomBytes) {
    std::mt19937 random(8);
    const std::vector<bytes_t> heads = {{0x3A, 0x5E, 0}, {0x00, 0x56, 1, 0xE0}, {0xFD}, {}};
    for (int round = 0; round < 20000; ++round) {
        bytes_t bytes(random() % 300);
        std::ranges::generate(bytes,
                              [&] { return static_cast<uint8_t>(random() % (round % 2 == 0 ? 256 : 5)); });
        const bytes_t &head = heads[random() % heads.size()];
        std::copy_n(head.begin(), std::min(head.size(), bytes.size()), bytes.begin());
        const std::vector<uint8_t> exact(
            bytes); // its end is the end of its memory, for the address sanitizer
        const decoded message = decode({.bytes = exact,
                                        .wire_size = exact.size() + (random() % 4 == 0 ? random() % 50 : 0),
                                        .dst_port = static_cast<uint16_t>(random() % 2 == 0 ? 5673 : 9003)});
        for (const node &n : message.fields) {
            ASSERT_LE(n.offset + n.size, exact.size());
        }
        for (const formats::finding &f : message.findings) {
            EXPECT_FALSE(f.text.empty());
        }
    }
}
