// Other ids and addresses in messages, byte by byte.
#include "remapping.h"

#include "recordings.h"
#include "replay_source.h"
#include "route_messages.h"
#include "vectors.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

using bus::bytes;

constexpr uint32_t k_net = 0xC0A80100; // 192.168.1.0

vexa::remapping with(const std::vector<std::string> &ids, const std::vector<std::string> &addresses = {}) {
    vexa::remapping map;
    for (const std::string &each : ids) {
        map.add_id(each);
    }
    for (const std::string &each : addresses) {
        map.add_address(each);
    }
    return map;
}

std::string applied(const vexa::remapping &map, bytes &datagram, uint32_t ip, uint16_t port) {
    return to_text(map.apply(datagram, {ip, port}));
}

} // namespace

TEST(Remapping, ChangesTheHeaderAndThePortThatFollowsFromTheId) {
    bytes datagram = bus::message({1, 9, 5}, {9, 0, 5, 0});
    EXPECT_EQ(applied(with({"5=7"}), datagram, k_net + 5, 9005), "192.168.1.5:9007");
    EXPECT_EQ(datagram, bus::message({1, 9, 7}, {9, 0, 5, 0})) << "the payload stays";
}

TEST(Remapping, MayExchangeTwoNodes) {
    bytes datagram = bus::message({1, 9, 5});
    EXPECT_EQ(applied(with({"5=9", "9=5"}), datagram, k_net + 5, 9005), "192.168.1.5:9009");
    EXPECT_EQ(datagram, bus::message({1, 5, 9}));
}

TEST(Remapping, KnowsNodesByName) {
    bytes datagram = bus::message({1, 9, 5});
    (void)with({"soa=vio"}).apply(datagram, {});
    EXPECT_EQ(datagram, bus::message({1, 9, 3}));
}

TEST(Remapping, LeavesABroadcastOne) {
    bytes datagram = bus::message({1, 5, bus::k_everybody});
    (void)with({"5=7"}).apply(datagram, {});
    EXPECT_EQ(datagram, bus::message({1, 7, bus::k_everybody}));
}

TEST(Remapping, ChangesTheRecordOfARegistration) {
    bytes datagram = bus::message({2, 9, 0}, bus::table({bus::record_of(9)}, 0));
    EXPECT_EQ(applied(with({"9=8"}, {"192.168.1.9=127.0.0.1"}), datagram, k_net + 1, 9000),
              "192.168.1.1:9000");
    EXPECT_EQ(datagram, bus::message({2, 8, 0}, bus::table({{"node9", "127.0.0.1", 9008, 8, 1}}, 0)));
}

TEST(Remapping, ChangesEveryRecordOfATable) {
    bytes datagram =
        bus::message({2, 0, 3, 0x80}, bus::table({bus::record_of(3), bus::record_of(5), bus::record_of(9)}));
    (void)with({"5=7"}, {"192.168.1.9:9009=10.0.0.1:7000"}).apply(datagram, {});
    EXPECT_EQ(datagram, bus::message({2, 0, 3, 0x80}, bus::table({bus::record_of(3),
                                                                  {"node5", "192.168.1.5", 9007, 7, 1},
                                                                  {"node9", "10.0.0.1", 7000, 9, 1}})));
}

TEST(Remapping, ChangesTheRecordThatStandsAlone) {
    bytes datagram = bus::message({2, 9, 3}, bus::encoded(bus::record_of(9)));
    (void)with({"9=8"}).apply(datagram, {});
    EXPECT_EQ(datagram, bus::message({2, 8, 3}, bus::encoded({"node9", "192.168.1.9", 9008, 8, 1})));
}

TEST(Remapping, LeavesWhatADatagramIsTooShortFor) {
    bytes whole = bus::message({2, 9, 0}, bus::table({bus::record_of(9)}, 0));
    for (size_t size = 0; size < whole.size(); ++size) {
        bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
        (void)with({"9=8"}, {"192.168.1.9=127.0.0.1"}).apply(cut, {});
        EXPECT_EQ(cut.size(), size);
        if (size > 0) {
            const bool has_header = size >= bus::k_head_size;
            EXPECT_EQ(cut.at(6 % size), has_header ? 8 : whole.at(6 % size)) << "with " << size << " bytes";
        }
    }
}

TEST(Remapping, SendsLinkDatagramsElsewhereAndChangesNoByte) {
    bytes datagram = vectors::bytes("link_datagram_orbit_area");
    const bytes before = datagram;
    EXPECT_EQ(applied(with({"5=7"}, {"192.168.1.5=127.0.0.1"}), datagram, k_net + 5, 5673), "127.0.0.1:5673");
    EXPECT_EQ(datagram, before);
}

TEST(Remapping, AnAddressWithAPortMeansThatPort) {
    bytes datagram = bus::message({1, 9, 5});
    const auto map = with({}, {"192.168.1.5:9005=127.0.0.1:1234", "192.168.1.5=10.0.0.5"});
    EXPECT_EQ(applied(map, datagram, k_net + 5, 9005), "127.0.0.1:1234");
    EXPECT_EQ(applied(map, datagram, k_net + 5, 9006), "10.0.0.5:9006");
    EXPECT_EQ(applied(map, datagram, k_net + 6, 9005), "192.168.1.6:9005");
}

TEST(Remapping, RefusesWhatMakesNoSense) {
    for (const char *text : {"5", "5=", "=7", "5=128", "broadcast=5", "5=nobody", "5=7=9"}) {
        EXPECT_THROW((void)with({text}), std::invalid_argument) << text;
    }
    for (const char *text :
         {"1.2.3.4", "1.2.3.4=", "1.2.3=1.2.3.4", "1.2.3.4=1.2.3.4:0", "1.2.3.4:x=1.2.3.4"}) {
        EXPECT_THROW((void)with({}, {text}), std::invalid_argument) << text;
    }
}

TEST(ReplaySource, CountsWhatCannotBeSent) {
    const recordings::directory place;
    const bytes large = packets::udp(1, 9005, bus::message({1, 9, 5}, bus::pattern(3000)));
    recordings::write(place.path("a"), {{0ms, recordings::to(5, 9005, bus::message({1, 9, 5}))},
                                        {1ms, recordings::to(5, 53, {1, 2, 3})},
                                        {2ms, packets::ipv4({.protocol = 6}, bytes(20))},
                                        {3ms, packets::fragment(large, 1480, 1480)},
                                        {4ms, recordings::to(5, 9005, bus::message({1, 9, 5}, {1})), 1},
                                        {5ms, recordings::to(3, 9003, bus::message({1, 9, 3}))}});
    vexa::replay_source source({place.path("a")}, {.wanted = vexa::message_filter("to 5")});
    vexa::replay_message message;
    ASSERT_TRUE(source.next(message));
    EXPECT_EQ(message.bytes, bus::message({1, 9, 5}));
    EXPECT_FALSE(source.next(message));
    const vexa::replay_counts &counts = source.counts();
    EXPECT_EQ(counts.messages, 1U);
    EXPECT_EQ(counts.strange, 1U);
    EXPECT_EQ(counts.others, 1U);
    EXPECT_EQ(counts.incomplete, 1U);
    EXPECT_EQ(counts.cut, 1U);
    EXPECT_EQ(counts.filtered, 1U);
}

TEST(ReplaySource, PlaysFilesOneBehindTheOtherAndTimeNeverGoesBack) {
    const recordings::directory place;
    const auto message = [](uint8_t number) {
        return recordings::to(5, 9005, bus::message({1, 9, 5}, {number}));
    };
    recordings::write(place.path("a"), {{100ms, message(1)}, {300ms, message(2)}, {200ms, message(3)}});
    recordings::write(place.path("b"), {{500ms, message(4)}});
    recordings::write(place.path("c"), {{0ms, message(5)}, {50ms, message(6)}});
    vexa::replay_source source({place.path("a"), place.path("b"), place.path("c")}, {});
    std::vector<int64_t> positions_ms;
    vexa::replay_message next;
    while (source.next(next)) {
        positions_ms.push_back(next.position_ns / 1'000'000);
        EXPECT_EQ(next.bytes.back(), positions_ms.size());
    }
    EXPECT_EQ(positions_ms, (std::vector<int64_t>{0, 200, 200, 400, 400, 450}));
    source.rewind(400'000'000);
    ASSERT_TRUE(source.next(next));
    EXPECT_EQ(next.bytes.back(), 4);
}
