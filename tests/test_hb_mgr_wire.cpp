// Heartbeat pairs as they lie in a datagram: little-endian, at any address.
#include "hb_mgr.h"

#include "hb_rows.h"
#include "log_lines.h"
#include "vectors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using hb_rows::frame_bytes;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr size_t k_head_size = 16;

frame_bytes frame() {
    VPHeartbeatFrame now;
    hbmgr_get_hb(&now);
    return hb_rows::to_bytes(now);
}

/// Applies the payload of an image, moved to an odd address, in a block that ends with it.
void apply(const char *image, int pairs) {
    const std::vector<uint8_t> datagram = vectors::bytes(image);
    std::vector<uint8_t> odd(datagram.begin() + k_head_size - 1, datagram.end());
    hbmgr_set_hb_wire(odd.data() + 1, pairs);
}

} // namespace

TEST(HeartbeatWire, PairsAreLittleEndianAndSigned) {
    apply("route_heartbeat_two_pairs", 2);
    frame_bytes expected = hb_rows::k_initial;
    expected[4] |= 5;
    expected[48] = 0xFE;
    EXPECT_EQ(frame(), expected);
    EXPECT_THAT(logs::lines(), ElementsAre("INFO src/hb_mgr hbmgr_set_hb: LED:value 0x5\n",
                                           "INFO src/hb_mgr hbmgr_set_hb: WORK_MODE:value 0xfffffffe\n"));
}

TEST(HeartbeatWire, BytesBehindTheLastWholePairAreNotRead) {
    apply("route_heartbeat_13_bytes", 1);
    frame_bytes expected = hb_rows::k_initial;
    expected[12] = 0xFF;
    EXPECT_EQ(frame(), expected);
}

TEST(HeartbeatWire, NoPairsChangeAndLogNothing) {
    const uint8_t none = 0;
    hbmgr_set_hb_wire(&none, 0);
    hbmgr_set_hb_wire(&none, -1);
    EXPECT_EQ(frame(), hb_rows::k_initial);
    EXPECT_THAT(logs::lines(), IsEmpty());
}

TEST(HeartbeatWire, UnknownFieldsAreNamedAndSkipped) {
    const uint8_t pairs[] = {0x49, 0, 0, 0, 1,    0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF,
                             1,    0, 0, 0, 0x41, 0, 0, 0, 3,    0,    0,    0};
    hbmgr_set_hb_wire(pairs, 3);
    EXPECT_THAT(logs::lines(),
                ElementsAre("INFO src/hb_mgr hbmgr_set_hb: set heartbeat, 73 is a invalid field\n",
                            "INFO src/hb_mgr hbmgr_set_hb: set heartbeat, -1 is a invalid field\n",
                            "INFO src/hb_mgr hbmgr_set_hb: WORK_MODE:value 0x3\n"));
}
