// Who holds which port, as /proc tells it.
#include "udp_sockets.h"

#include "emulator.h"
#include "udp_peer.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

std::optional<vexa::udp_socket> socket_at(uint16_t port) {
    const auto all = vexa::udp_sockets();
    const auto found =
        std::find_if(all.begin(), all.end(), [port](const auto &each) { return each.local.port == port; });
    return found == all.end() ? std::nullopt : std::optional{*found};
}

} // namespace

TEST(UdpSockets, TheKernelsTableIsReadToItsLastColumn) {
    const auto sockets = vexa::parse_udp_table(
        "   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode "
        "ref "
        "pointer drops            \n"
        "  417: 0501A8C0:232D 00000000:0000 07 00000000:00034200 00:00000000 00000000     0        0 71512 2 "
        "0000000000000000 42           \n"
        "a line that is none\n"
        "  418: 00000000:232E 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 71513 2 "
        "0000000000000000 0            \n");
    ASSERT_EQ(sockets.size(), 2U);
    EXPECT_EQ(sockets[0].local, (vexa::endpoint{0xC0A80105, 9005}));
    EXPECT_EQ(sockets[0].waiting_bytes, 0x34200U);
    EXPECT_EQ(sockets[0].inode, 71512U);
    EXPECT_EQ(sockets[0].drops, 42U);
    EXPECT_EQ(sockets[1].local, (vexa::endpoint{0, 9006}));
}

TEST(UdpSockets, AnAddressOfIpv6IsKnownByItsLastWord) {
    const auto sockets = vexa::parse_udp_table(
        "   5: 0000000000000000FFFF00000501A8C0:232D 00000000000000000000000000000000:0000 07 "
        "00000000:00000000 00:00000000 00000000 0 0 9 2 0000000000000000 1\n");
    ASSERT_EQ(sockets.size(), 1U);
    EXPECT_EQ(sockets[0].local, (vexa::endpoint{0xC0A80105, 9005}));
    EXPECT_EQ(sockets[0].drops, 1U);
}

TEST(UdpSockets, ASocketHasItsProcessAddressAndWaitingBytes) {
    SKIP_IN_EMULATOR("the emulator makes up what the kernel says of its process");
    udp_peer receiver{"192.168.1.5", 9005};
    udp_peer sender{"192.168.1.6", 9006};
    ASSERT_TRUE(sender.send({1, 2, 3}, "192.168.1.5", 9005));
    const auto found = socket_at(9005);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->local, (vexa::endpoint{0xC0A80105, 9005}));
    EXPECT_GT(found->waiting_bytes, 3U);
    ASSERT_TRUE(found->holder.has_value());
    EXPECT_EQ(found->holder->pid, getpid());
    EXPECT_EQ(found->holder->name, "test_udp_socket") << "as much as the kernel keeps";
    EXPECT_EQ(found->holder->state, 'R');
    EXPECT_EQ(vexa::holder_text(9005), "PID " + std::to_string(getpid()) + " (test_udp_socket)");
}

TEST(UdpSockets, NobodyHoldsAFreePort) {
    EXPECT_EQ(vexa::holder_text(9005), "nobody");
}

TEST(UdpSockets, LostDatagramsAreCounted) {
    udp_peer receiver{"192.168.1.5", 9005};
    udp_peer sender{"192.168.1.6", 9006};
    const std::vector<uint8_t> large(8000);
    for (int i = 0; i < 100; ++i) { // more than a receive buffer holds
        ASSERT_TRUE(sender.send(large, "192.168.1.5", 9005));
    }
    const auto found = socket_at(9005);
    ASSERT_TRUE(found.has_value());
    EXPECT_GT(found->drops, 0U);
    EXPECT_LT(found->drops, 100U);
}
