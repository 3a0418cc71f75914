// How the stand-ins read datagrams of the vision link: every field, and everything that can be wrong.
#include "link_decode.h"
#include "sequence_watch.h"

#include "link_reference.h"
#include "link_samples.h"
#include "vectors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <random>

using json = nlohmann::ordered_json;
using testing::ElementsAre;
using testing::IsEmpty;
using vexa::decode_link;
using vexa::link_datagram;
using vexa::link_end;
using vexa::sequence_watch;

namespace {

using bytes_t = std::vector<uint8_t>;

link_datagram read_vector(const std::string &name, link_end end = link_end::flight) {
    return decode_link(end, vectors::bytes("link_datagram_" + name));
}

/// A good orbit area with one byte changed.
link_datagram orbit_area_with(size_t at, uint8_t value) {
    bytes_t bytes = vectors::bytes("link_datagram_orbit_area");
    bytes.at(at) = value;
    return decode_link(link_end::flight, bytes);
}

bytes_t datagram_of(uint16_t type, const bytes_t &payload) {
    bytes_t bytes = vectors::bytes("link_datagram_orbit_area");
    bytes.resize(16);
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    ut_put_le16(&bytes[4], static_cast<uint16_t>(bytes.size()));
    ut_put_le16(&bytes[10], type);
    return bytes;
}

} // namespace

TEST(LinkDecode, ReadsEveryFieldOfATrackStatus) {
    const link_datagram read = read_vector("track_status");
    EXPECT_THAT(read.faults, IsEmpty());
    EXPECT_EQ(read.name, "track_status");
    EXPECT_EQ(read.msg_type, 0x090D);
    EXPECT_EQ(read.sequence, 0);
    EXPECT_EQ(read.fields.dump(),
              R"({"timestamp":72623859790382856,"start_x":0.2,"start_y":0.25,"width":0.18,"height":0.16,)"
              R"("confidence":0.9,"distance":10.0,"status":1,"type":2,"resolution_width":1280,)"
              R"("resolution_height":720,"id":287454020,"object_id":2712847316})");
}

TEST(LinkDecode, ReadsEveryFieldOfAGoalArea) {
    const link_datagram read = read_vector("goal_area");
    EXPECT_THAT(read.faults, IsEmpty());
    EXPECT_EQ(read.name, "goal_area");
    EXPECT_EQ(read.fields["number"], 3);
    EXPECT_EQ(read.fields["total"], 9);
    EXPECT_EQ(read.fields["start_x"], (json{1.0, 1.125, 1.25, 1.375, 1.5, 1.625, 1.75, 1.875}));
    EXPECT_EQ(read.fields["confidence"][7], 6.875);
    EXPECT_EQ(read.fields["type"], (json{0x200, 0x201, 0x202, 0x203, 0x204, 0x205, 0x206, 0x207}));
    EXPECT_EQ(read.fields["object_id"], 0x41424344);
    const std::string info = read.fields["info"];
    EXPECT_EQ(info.size(), 256U);
    EXPECT_EQ(info.substr(0, 6), "808182");
    EXPECT_EQ(info.substr(250), "fdfeff");
    EXPECT_EQ(read.fields.size(), 16U);
}

TEST(LinkDecode, ReadsEveryFieldOfAnOrbitStatus) {
    const link_datagram read = read_vector("orbit_status");
    EXPECT_THAT(read.faults, IsEmpty());
    EXPECT_EQ(read.fields.dump(),
              R"({"timestamp":2387509390608836392,"expect_radius":15.5,"actual_radius":14.25,)"
              R"("expect_height":30.0,"actual_height":-29.5,"max_speed":8.5,"rotate":1,"status":2,)"
              R"("set_speed":3.5,"flag":1364349780,"reserve":1633837924})");
}

TEST(LinkDecode, ReadsEveryFieldOfAnOrbitArea) {
    const link_datagram read = read_vector("orbit_area");
    EXPECT_THAT(read.faults, IsEmpty());
    EXPECT_EQ(read.fields.dump(),
              R"({"timestamp":3544952156018063160,"start_x":0.125,"start_y":0.375,"width":0.5,)"
              R"("height":0.625,"resolution_width":3840,"resolution_height":2160,"status":1903326068})");
}

TEST(LinkDecode, ReadsAnAcknowledgement) {
    const link_datagram read = read_vector("command_ack_rc");
    EXPECT_THAT(read.faults, IsEmpty());
    EXPECT_EQ(read.name, "command_ack");
    EXPECT_EQ(read.fields["command"], 0x2A);
    EXPECT_EQ(read.fields["status"], 7);
    EXPECT_EQ(read.fields["status1"], 0xDEADBEEF);
    EXPECT_EQ(read.fields["data"], "0700efbeadde" + std::string(50, '0'));
}

TEST(LinkDecode, ReadsACameraCommand) {
    const link_datagram read = read_vector("camera_command", link_end::camera);
    EXPECT_THAT(read.faults, IsEmpty());
    EXPECT_EQ(read.name, "camera_command");
    EXPECT_EQ(read.fields["command"], 0x11);
    EXPECT_EQ(read.fields["data"], "a0a1a2" + std::string(56, '0'));
}

TEST(LinkDecode, ReadsAMessageForTheRemoteControlAsBytes) {
    const link_datagram read = read_vector("general_0907");
    EXPECT_THAT(read.faults, IsEmpty());
    EXPECT_EQ(read.name, "to_remote_control");
    EXPECT_EQ(read.fields["payload"].get<std::string>().substr(0, 8), "2a414243");
}

TEST(LinkDecode, GivesBackRandomRecords) {
    std::mt19937 random(4);
    for (int round = 0; round < 200; ++round) {
        const vxlink_movidus_report_orbit_area_t record = {random() * uint64_t{5000000007},
                                                           static_cast<float>(random()) / 7.0F,
                                                           -static_cast<float>(random()),
                                                           1.0F / static_cast<float>(random() + 1),
                                                           0,
                                                           static_cast<uint32_t>(random()),
                                                           static_cast<uint32_t>(random()),
                                                           static_cast<uint32_t>(random())};
        const link_datagram read =
            decode_link(link_end::flight, datagram_of(0x0910, reference::payload(record)));
        ASSERT_THAT(read.faults, IsEmpty());
        EXPECT_EQ(read.fields["timestamp"], record.timestamp);
        EXPECT_EQ(read.fields["start_x"].get<float>(), record.start_x);
        EXPECT_EQ(read.fields["start_y"].get<float>(), record.start_y);
        EXPECT_EQ(read.fields["width"].get<float>(), record.width);
        EXPECT_EQ(read.fields["resolution_width"], record.resolution_width);
        EXPECT_EQ(read.fields["resolution_height"], record.resolution_height);
        EXPECT_EQ(read.fields["status"], record.status);
    }
}

TEST(LinkDecode, SaysWhenAFloatIsNoNumber) {
    vxlink_movidus_report_orbit_area_t record{};
    record.start_x = std::numeric_limits<float>::quiet_NaN();
    record.start_y = -std::numeric_limits<float>::infinity();
    const link_datagram read = decode_link(link_end::flight, datagram_of(0x0910, reference::payload(record)));
    EXPECT_EQ(read.fields["start_x"], "nan");
    EXPECT_EQ(read.fields["start_y"], "-inf");
}

TEST(LinkFaults, AreAllThatIsWrongAndNameTheValues) {
    EXPECT_THAT(orbit_area_with(2, 9).faults, ElementsAre("version is 9, not 1"));
    EXPECT_THAT(orbit_area_with(3, 0xC0).faults, ElementsAre("flag is 0xc0, not 0xe0"));
    EXPECT_THAT(orbit_area_with(4, 53).faults, ElementsAre("length says 53 bytes, 52 arrived"));
    EXPECT_THAT(orbit_area_with(6, 0x21).faults, ElementsAre("msg_src is 0x0021, not 0x0020"));
    EXPECT_THAT(orbit_area_with(9, 0x18).faults, ElementsAre("msg_dst is 0x1800, not 0x1000"));
    EXPECT_THAT(orbit_area_with(14, 1).faults, ElementsAre("package_id is 0x0001, not 0x0000"));
}

TEST(LinkFaults, ThatLeaveThePayloadReadableDoNotHideIt) {
    const link_datagram read = orbit_area_with(2, 9);
    EXPECT_EQ(read.name, "orbit_area");
    EXPECT_EQ(read.fields["resolution_width"], 3840);
}

TEST(LinkFaults, AreSaidTogether) {
    bytes_t bytes = vectors::bytes("link_datagram_orbit_area");
    bytes[2] = 0;
    bytes[14] = 7;
    bytes.pop_back();
    EXPECT_THAT(decode_link(link_end::flight, bytes).faults,
                ElementsAre("version is 0, not 1", "length says 52 bytes, 51 arrived",
                            "package_id is 0x0007, not 0x0000",
                            "the payload has 35 bytes, that of orbit_area has 36"));
}

TEST(LinkFaults, OfTheMagicEndTheReading) {
    const link_datagram read = orbit_area_with(1, 0x57);
    EXPECT_THAT(read.faults, ElementsAre("magic is 0x5700, not 0x5600"));
    EXPECT_EQ(read.sequence, std::nullopt);
    EXPECT_TRUE(read.fields.is_null());
}

TEST(LinkFaults, OfATypeThatNobodySendsKeepItsNumber) {
    const link_datagram read = decode_link(link_end::flight, datagram_of(0x0999, {}));
    EXPECT_THAT(read.faults, ElementsAre("msg_type 0x0999 is not known"));
    EXPECT_EQ(read.name, "unknown");
    EXPECT_EQ(read.sequence, 0);
}

TEST(LinkFaults, AreMessagesForTheOtherEnd) {
    EXPECT_THAT(read_vector("camera_command", link_end::flight).faults,
                ElementsAre("camera_command is for the camera"));
    EXPECT_THAT(read_vector("orbit_area", link_end::camera).faults,
                ElementsAre("orbit_area is for the flight side"));
}

TEST(LinkFaults, OfTheReceiverAreThoseOfTheType) {
    bytes_t bytes = vectors::bytes("link_datagram_general_0907");
    bytes[9] = 0x10;
    EXPECT_THAT(decode_link(link_end::flight, bytes).faults, ElementsAre("msg_dst is 0x1000, not 0x1800"));
}

TEST(LinkFaults, AreDatagramsCutShortAtEveryLength) {
    for (const char *name : {"track_status", "goal_area", "orbit_status", "orbit_area", "command_ack"}) {
        const bytes_t whole = vectors::bytes(std::string("link_datagram_") + name);
        for (size_t size = 0; size < whole.size(); ++size) {
            const bytes_t cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
            const link_datagram read = decode_link(link_end::flight, cut);
            ASSERT_THAT(read.faults, testing::Not(IsEmpty())) << name << ", " << size << " bytes";
            ASSERT_TRUE(read.fields.is_null());
        }
    }
}

TEST(LinkFaults, SayHowShortADatagramIs) {
    EXPECT_THAT(decode_link(link_end::flight, {}).faults, ElementsAre("0 bytes are no header, which has 16"));
}

TEST(LinkFaults, AreDatagramsThatAreTooLong) {
    bytes_t bytes = vectors::bytes("link_datagram_command_ack");
    bytes.push_back(0);
    EXPECT_THAT(decode_link(link_end::flight, bytes).faults, ElementsAre("length says 48 bytes, 49 arrived"));
}

TEST(LinkDecode, SurvivesRandomBytes) {
    std::mt19937 random(5);
    for (int round = 0; round < 20000; ++round) {
        bytes_t bytes(random() % 500);
        for (uint8_t &byte : bytes) {
            byte = static_cast<uint8_t>(random());
        }
        if (bytes.size() >= 12 && round % 2 == 0) { // with a magic and a type it gets further
            bytes[0] = 0x00;
            bytes[1] = 0x56;
            bytes[10] = static_cast<uint8_t>(random() % 0x12);
            bytes[11] = 0x09;
        }
        const link_datagram read = decode_link(round % 4 < 2 ? link_end::flight : link_end::camera, bytes);
        EXPECT_FALSE(read.faults.empty());
    }
}

TEST(SequenceWatch, FindsNothingMissingInARow) {
    sequence_watch watch;
    for (unsigned i = 65530; i < 65550; ++i) {
        const auto step = watch.step(static_cast<uint16_t>(i));
        EXPECT_EQ(step.missing, 0) << i;
        EXPECT_FALSE(step.late) << i;
    }
}

TEST(SequenceWatch, CountsWhatWasLeftOut) {
    sequence_watch watch;
    watch.step(7);
    EXPECT_EQ(watch.step(10).missing, 2);
    EXPECT_EQ(watch.step(11).missing, 0);
}

TEST(SequenceWatch, CountsAcrossTheWrap) {
    sequence_watch watch;
    watch.step(65534);
    EXPECT_EQ(watch.step(1).missing, 2);
}

TEST(SequenceWatch, KnowsARepeatedAndAnOvertakenNumber) {
    sequence_watch watch;
    watch.step(5);
    EXPECT_TRUE(watch.step(5).late);
    EXPECT_EQ(watch.step(7).missing, 1);
    EXPECT_TRUE(watch.step(6).late);
    EXPECT_EQ(watch.step(8).missing, 0) << "a late one does not move the row";
}
