// What a capture gives, taken apart: link layers, IPv4, UDP, fragments in any order and of any malice.
#include "datagrams.h"
#include "packets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>
#include <pcap/dlt.h>
#include <random>

using packets::bytes_t;
using packets::ethernet;
using packets::fragment;
using packets::ipv4;
using packets::operator+;
using packets::udp;
using vexa::datagram_assembler;
using vexa::raw_packet;
using vexa::udp_datagram;

namespace {

struct given {
    vexa::endpoint src;
    vexa::endpoint dst;
    bytes_t bytes;
    size_t wire_size;
    bool incomplete;
};

bytes_t counting(size_t size) {
    bytes_t bytes(size);
    std::iota(bytes.begin(), bytes.end(), static_cast<uint8_t>(0));
    return bytes;
}

/// An assembler that notes what it gives.
class assembler {
public:
    void feed(const bytes_t &bytes, int link_type = DLT_RAW, size_t cut = 0, int64_t time_ns = 0) {
        const std::span<const uint8_t> captured = std::span{bytes}.first(bytes.size() - cut);
        assembler_.feed(
            {.time_ns = time_ns, .link_type = link_type, .wire_size = bytes.size(), .bytes = captured},
            sink());
    }
    void finish() { assembler_.finish(sink()); }
    [[nodiscard]] const std::vector<given> &all() const { return given_; }
    [[nodiscard]] uint64_t others() const { return assembler_.others(); }

private:
    datagram_assembler::sink sink() {
        return [this](const udp_datagram &d) {
            given_.push_back({d.src, d.dst, {d.bytes.begin(), d.bytes.end()}, d.wire_size, d.incomplete});
        };
    }
    datagram_assembler assembler_;
    std::vector<given> given_;
};

const bytes_t k_payload = {1, 2, 3, 4, 5};
const bytes_t k_packet = ipv4({}, udp(40000, 9005, k_payload));

void expect_payload(const assembler &from) {
    ASSERT_EQ(from.all().size(), 1U);
    EXPECT_EQ(from.all()[0].bytes, k_payload);
    EXPECT_EQ(from.all()[0].wire_size, 5U);
    EXPECT_EQ(to_text(from.all()[0].src), "192.168.1.9:40000");
    EXPECT_EQ(to_text(from.all()[0].dst), "192.168.1.5:9005");
    EXPECT_FALSE(from.all()[0].incomplete);
}

} // namespace

struct link_row {
    const char *name;
    int type;
    bytes_t head;
};

void PrintTo(const link_row &row, std::ostream *to) {
    *to << row.name;
}

class LinkLayer : public testing::TestWithParam<link_row> {};

TEST_P(LinkLayer, GivesTheDatagramBehindIt) {
    assembler a;
    a.feed(GetParam().head + k_packet, GetParam().type);
    expect_payload(a);
}

TEST_P(LinkLayer, CutAtAnyByteGivesNothingThatIsNotThere) {
    const bytes_t whole = GetParam().head + k_packet;
    for (size_t cut = 0; cut <= whole.size(); ++cut) {
        assembler a;
        a.feed(whole, GetParam().type, cut);
        for (const given &d : a.all()) {
            EXPECT_EQ(d.bytes.size(), 5 - cut);
            EXPECT_EQ(d.wire_size, 5U);
        }
        EXPECT_EQ(a.all().size(), cut <= 5 ? 1U : 0U) << cut;
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, LinkLayer,
    testing::Values(link_row{"Ethernet", DLT_EN10MB, bytes_t(12, 2) + bytes_t{8, 0}},
                    link_row{"Vlan", DLT_EN10MB, bytes_t(12, 2) + bytes_t{0x81, 0, 0, 5, 8, 0}},
                    link_row{"TwoVlans", DLT_EN10MB,
                             bytes_t(12, 2) + bytes_t{0x88, 0xA8, 0, 5, 0x81, 0, 0, 6, 8, 0}},
                    link_row{"Sll", DLT_LINUX_SLL, bytes_t(14, 0) + bytes_t{8, 0}},
                    link_row{"Sll2", DLT_LINUX_SLL2, bytes_t{8, 0} + bytes_t(18, 0)},
                    link_row{"NullLittleEndian", DLT_NULL, {2, 0, 0, 0}},
                    link_row{"NullBigEndian", DLT_NULL, {0, 0, 0, 2}},
                    link_row{"Loop", DLT_LOOP, {0, 0, 0, 2}}, link_row{"Raw", DLT_RAW, {}},
                    link_row{"Ipv4", DLT_IPV4, {}}),
    [](const auto &row) { return row.param.name; });

TEST(Datagrams, AreWhatUdpSaysNotWhatEthernetPads) {
    assembler a;
    a.feed(ethernet(k_packet), DLT_EN10MB);
    expect_payload(a);
}

TEST(Datagrams, OfOtherProtocolsAndLayersAreCounted) {
    assembler a;
    a.feed(ipv4({.protocol = 6}, udp(1, 2, k_payload)));                       // TCP
    a.feed(bytes_t(12, 2) + bytes_t{0x86, 0xDD} + k_packet, DLT_EN10MB);       // IPv6
    a.feed(bytes_t(12, 2) + bytes_t{0x08, 0x06} + bytes_t(28, 0), DLT_EN10MB); // ARP
    a.feed({0, 0, 0, 30, 0x60}, DLT_NULL);                                     // IPv6
    a.feed(k_packet, 9999);                                                    // nobody's
    a.feed(ipv4({}, {0, 1, 0, 2, 0, 7, 0, 0})); // a UDP length below its header
    EXPECT_EQ(a.all().size(), 0U);
    EXPECT_EQ(a.others(), 6U);
}

TEST(Datagrams, ThatClaimMoreThanTheirPacketAreAsLongAsThePacket) {
    bytes_t datagram = udp(1, 2, k_payload);
    datagram[4] = 0xFF;
    assembler a;
    a.feed(ipv4({}, datagram));
    ASSERT_EQ(a.all().size(), 1U);
    EXPECT_EQ(a.all()[0].wire_size, 5U);
}

TEST(Fragments, ArePutTogetherInAnyOrder) {
    const bytes_t payload = counting(8208);
    const bytes_t whole = udp(40000, 9005, payload);
    std::vector<size_t> begins;
    for (size_t begin = 0; begin < whole.size(); begin += 1480) {
        begins.push_back(begin);
    }
    std::mt19937 random(3);
    for (int round = 0; round < 50; ++round) {
        std::ranges::shuffle(begins, random);
        assembler a;
        for (const size_t begin : begins) {
            EXPECT_EQ(a.all().size(), 0U);
            a.feed(fragment(whole, begin, 1480));
            if (begin != begins.back()) {
                a.feed(fragment(whole, begin, 1480)); // as on two interfaces
            }
        }
        ASSERT_EQ(a.all().size(), 1U);
        EXPECT_EQ(a.all()[0].bytes, payload);
        EXPECT_EQ(a.all()[0].wire_size, 8208U);
        EXPECT_FALSE(a.all()[0].incomplete);
        EXPECT_EQ(a.all()[0].dst.port, 9005);
    }
}

TEST(Fragments, OfTwoDatagramsAreKeptApart) {
    const bytes_t one = udp(1, 9001, counting(2000));
    const bytes_t two = udp(2, 9002, bytes_t(2000, 0xEE));
    assembler a;
    a.feed(fragment(one, 0, 1480, 1));
    a.feed(fragment(two, 0, 1480, 2));
    a.feed(fragment(two, 1480, 1480, 2));
    a.feed(fragment(one, 1480, 1480, 1));
    ASSERT_EQ(a.all().size(), 2U);
    EXPECT_EQ(a.all()[0].bytes, bytes_t(2000, 0xEE));
    EXPECT_EQ(a.all()[1].bytes, counting(2000));
}

TEST(Fragments, WhoseOthersStayAwayAreGivenAsIncomplete) {
    const bytes_t whole = udp(1, 9001, counting(4000));
    assembler a;
    a.feed(fragment(whole, 0, 1480));
    a.feed(fragment(whole, 2960, 1480));
    a.finish();
    ASSERT_EQ(a.all().size(), 1U);
    EXPECT_TRUE(a.all()[0].incomplete);
    EXPECT_EQ(a.all()[0].bytes.size(), 1472U) << "what stands before the gap";
    EXPECT_EQ(a.all()[0].wire_size, 4000U) << "as the UDP header says";
    EXPECT_EQ(a.all()[0].dst.port, 9001);
}

TEST(Fragments, WithoutTheFirstHaveNoPort) {
    assembler a;
    a.feed(fragment(udp(1, 9001, counting(4000)), 1480, 1480));
    a.finish();
    ASSERT_EQ(a.all().size(), 1U);
    EXPECT_TRUE(a.all()[0].incomplete);
    EXPECT_EQ(to_text(a.all()[0].dst), "192.168.1.5:0");
    EXPECT_EQ(a.all()[0].bytes.size(), 0U);
}

TEST(Fragments, WaitFiveSecondsOfThePacketsTime) {
    constexpr int64_t s = 1'000'000'000;
    assembler a;
    a.feed(fragment(udp(1, 9001, counting(4000)), 0, 1480), DLT_RAW, 0, 10 * s);
    a.feed(k_packet, DLT_RAW, 0, 15 * s);
    ASSERT_EQ(a.all().size(), 1U);
    a.feed(k_packet, DLT_RAW, 0, 15 * s + 1);
    ASSERT_EQ(a.all().size(), 3U);
    EXPECT_TRUE(a.all()[1].incomplete);
}

TEST(Fragments, ThatOverlapAreNotPutTogether) {
    const bytes_t whole = udp(1, 9001, counting(4000));
    for (const size_t begin : {size_t{1472}, size_t{1600}}) {
        assembler a;
        a.feed(fragment(whole, 0, 1480));
        a.feed(fragment(whole, 2000, 800));
        a.feed(fragment(whole, begin, 800));
        ASSERT_EQ(a.all().size(), 1U) << begin;
        EXPECT_TRUE(a.all()[0].incomplete);
        EXPECT_EQ(a.all()[0].bytes.size(), 1472U);
    }
}

TEST(Fragments, BehindTheEndOrBeyondThePacketAreNotPutTogether) {
    const bytes_t whole = udp(1, 9001, counting(100));
    assembler a;
    a.feed(fragment(whole, 80, 80));
    a.feed(ipv4({.more = true, .offset = 160}, counting(80)));
    ASSERT_EQ(a.all().size(), 1U);
    a.feed(ipv4({.id = 9, .more = true, .offset = 65528}, counting(80)));
    ASSERT_EQ(a.all().size(), 2U);
    a.feed(ipv4({.id = 10, .more = true}, {}));
    ASSERT_EQ(a.all().size(), 3U);
    a.finish();
    EXPECT_EQ(a.all().size(), 3U) << "nothing is kept of them";
}

TEST(Fragments, ThatTheCaptureCutGiveTheirBytesToTheCut) {
    const bytes_t payload = counting(3000);
    const bytes_t whole = udp(1, 9001, payload);
    assembler a;
    a.feed(fragment(whole, 0, 1480));
    a.feed(fragment(whole, 1480, 1480), DLT_RAW, 1000);
    a.feed(fragment(whole, 2960, 1480));
    ASSERT_EQ(a.all().size(), 1U);
    EXPECT_FALSE(a.all()[0].incomplete);
    EXPECT_EQ(a.all()[0].wire_size, 3000U);
    EXPECT_EQ(a.all()[0].bytes, bytes_t(payload.begin(), payload.begin() + 1480 + 480 - 8));
}

TEST(Fragments, WaitingAreNotMoreThanSixtyFourDatagrams) {
    const bytes_t whole = udp(1, 9001, counting(4000));
    assembler a;
    for (uint16_t id = 0; id < 64; ++id) {
        a.feed(fragment(whole, 0, 1480, id), DLT_RAW, 0, 1000 - id);
    }
    EXPECT_EQ(a.all().size(), 0U);
    a.feed(fragment(whole, 0, 1480, 64), DLT_RAW, 0, 2000);
    EXPECT_EQ(a.all().size(), 1U);
    a.feed(fragment(whole, 1480, 8000, 0), DLT_RAW, 0, 2000);
    ASSERT_EQ(a.all().size(), 2U) << "one was still waiting: the oldest made room, which is number 63";
    EXPECT_FALSE(a.all()[1].incomplete);
}

TEST(Fragments, OfRandomBytesDoNoHarm) {
    std::mt19937 random(6);
    const bytes_t whole = udp(1, 9001, counting(5000));
    assembler a;
    for (int round = 0; round < 20000; ++round) {
        bytes_t packet =
            fragment(whole, random() % 600 * 8, random() % 200 * 8, static_cast<uint16_t>(random() % 100));
        for (unsigned i = 0; i < random() % 3; ++i) {
            packet[random() % std::min<size_t>(packet.size(), 40)] = static_cast<uint8_t>(random());
        }
        a.feed(packet, DLT_RAW, random() % packet.size() / (1 + random() % 20), int64_t{round} * 1000000);
    }
    a.finish();
    for (const given &d : a.all()) {
        ASSERT_LE(d.bytes.size(), d.wire_size);
    }
    EXPECT_GT(a.all().size(), 100U);
}
