// Drops of the nodes' sockets, from look to look.
#include "socket_watch.h"

#include <gtest/gtest.h>

using vexa::socket_watch;
using vexa::udp_socket;

namespace {

constexpr int64_t k_second = 1'000'000'000;

udp_socket socket_of(uint16_t node, uint64_t inode, uint64_t drops) {
    return {{0xC0A80100U + node, static_cast<uint16_t>(9000 + node)}, inode, 0, drops, std::nullopt};
}

} // namespace

TEST(SocketWatch, CountsDropsFromItsFirstLookOn) {
    socket_watch watch;
    watch.update({socket_of(5, 71, 40)}, 10 * k_second);
    EXPECT_EQ(watch.all().at(0).new_drops, 0U);
    EXPECT_EQ(watch.all().at(0).drops, 40U);
    watch.update({socket_of(5, 71, 46)}, 12 * k_second);
    EXPECT_EQ(watch.all().at(0).new_drops, 6U);
    EXPECT_DOUBLE_EQ(watch.all().at(0).drops_per_s, 3);
    watch.update({socket_of(5, 71, 46)}, 13 * k_second);
    EXPECT_EQ(watch.all().at(0).new_drops, 6U);
    EXPECT_DOUBLE_EQ(watch.all().at(0).drops_per_s, 0);
}

TEST(SocketWatch, ANodeThatWasStartedAgainHasLostAllItsDropsSince) {
    socket_watch watch;
    watch.update({socket_of(5, 71, 40)}, k_second);
    watch.update({socket_of(5, 99, 3)}, 2 * k_second);
    ASSERT_EQ(watch.all().size(), 1U);
    EXPECT_EQ(watch.all().at(0).new_drops, 3U);
    EXPECT_EQ(watch.new_drops(), 3U);
}

TEST(SocketWatch, KnowsNodesByTheirPorts) {
    socket_watch watch;
    watch.update({socket_of(127, 3, 0),
                  {{0, 53}, 1, 0, 9, std::nullopt},
                  {{0, 9128}, 2, 0, 9, std::nullopt},
                  socket_of(0, 4, 0)},
                 k_second);
    ASSERT_EQ(watch.all().size(), 2U);
    EXPECT_EQ(watch.all().at(0).node_id, 0);
    EXPECT_EQ(watch.all().at(1).node_id, 127);
}

TEST(SocketWatch, AsksForTheHolderOfANewSocketOnly) {
    socket_watch watch;
    udp_socket five = socket_of(5, 71, 0);
    EXPECT_TRUE(watch.needs_holders({five}));
    five.holder = {4711, "soa", 'S'};
    watch.update({five}, k_second);
    five.holder.reset();
    EXPECT_FALSE(watch.needs_holders({five}));
    watch.update({five}, 2 * k_second);
    EXPECT_EQ(watch.all().at(0).holder, "PID 4711 (soa)");
    EXPECT_TRUE(watch.needs_holders({five, socket_of(6, 72, 0)}));
    EXPECT_FALSE(watch.needs_holders({{{0, 53}, 1, 0, 9, std::nullopt}}));
}
