// Every routing image that a node of the library may be sent, to its addressee, through the network.
#include "peer.h"
#include "vectors.h"
#include "vision_service_route_vision_heartbeat.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

using bus::bytes;
using bus::node_under_test;

struct image_row {
    const char *image;
    uint16_t node; // which is sent the image
    int dst;       // as the application is told
};

std::ostream &operator<<(std::ostream &out, const image_row &row) {
    return out << row.image;
}

class CalledBack : public testing::TestWithParam<image_row> {};
class Kept : public testing::TestWithParam<image_row> {};

VPHeartbeatFrame frame() {
    VPHeartbeatFrame now{};
    vision_get_hearbeat(&now);
    return now;
}

/// Sends the image to the proxy, which must apply it and hand it on to node 3 as its own.
void expect_handed_on(node_under_test &proxy, const char *image) {
    ASSERT_TRUE(proxy.join({3}));
    bytes expected = vectors::bytes(image);
    proxy.send(expected);
    std::optional<bytes> got = proxy.other(3).receive();
    ASSERT_TRUE(got && got->size() > bus::k_head_size);
    std::fill_n(got->begin() + 12, 4, uint8_t{0}); // the time of arrival
    expected[6] = bus::k_proxy;
    expected[8] = 3;
    EXPECT_EQ(*got, expected);
    ASSERT_TRUE(proxy.settle());
}

} // namespace

TEST_P(CalledBack, WithThePayloadOfTheImage) {
    const bytes image = vectors::bytes(GetParam().image);
    node_under_test node{GetParam().node};
    ASSERT_TRUE(node.join({}));
    node.send(image);
    ASSERT_TRUE(node_under_test::wait_heard(1));
    const bus::heard got = node_under_test::all_heard()[0];
    EXPECT_EQ(got.payload, bus::text("hello"));
    EXPECT_EQ(got.extra.src, NODE_DETECTION_TRACKING);
    EXPECT_EQ(got.extra.dst, GetParam().dst);
    EXPECT_EQ(got.extra.len, static_cast<int>(image.size()));
}

INSTANTIATE_TEST_SUITE_P(Image, CalledBack,
                         testing::Values(image_row{"route_message_node9_to_3", 3, 3},
                                         image_row{"route_broadcast_message_node9_at_3", 3, 3},
                                         image_row{"route_message_node9_to_app", 127, NODE_APP}));

TEST_P(Kept, UnderTheTypeOfTheImage) {
    const bytes image = vectors::bytes(GetParam().image);
    node_under_test node{GetParam().node};
    ASSERT_TRUE(node.join({}));
    node.send(image);
    ASSERT_TRUE(node.settle());
    bytes payload(8192);
    MsgExtra extra{};
    ASSERT_EQ(vision_recv_status(MSG_DETECTION_OBJECTS, payload.data(), 8192, &extra), 10);
    payload.resize(10);
    EXPECT_EQ(payload, bus::payload_of(image));
    EXPECT_EQ(extra.src, NODE_DETECTION_TRACKING);
    EXPECT_EQ(extra.dst, GetParam().dst);
    EXPECT_EQ(extra.len, 10);
    EXPECT_EQ(vision_recv_status(MSG_TRACK_OBJECTS, payload.data(), 10, &extra), 0);
}

INSTANTIATE_TEST_SUITE_P(Image, Kept,
                         testing::Values(image_row{"route_status_node9_to_5", 5, 5},
                                         image_row{"route_broadcast_status_node9", 3, 0xFF00},
                                         image_row{"route_broadcast_status_node9_at_3", 3, 3}));

TEST(HeartbeatImage, IsAppliedByTheProxyAndHandedOn) {
    node_under_test proxy{bus::k_proxy};
    expect_handed_on(proxy, "route_heartbeat_two_pairs");
    EXPECT_EQ(frame().device.details.bottom_flash_state, 5);
    EXPECT_EQ(frame().task.details.work_mode, 0xFE); // the low byte of -2
}

TEST(HeartbeatImage, WithARestThatIsNoPairIsAppliedWithoutItAndHandedOnWhole) {
    node_under_test proxy{bus::k_proxy};
    expect_handed_on(proxy, "route_heartbeat_13_bytes");
    EXPECT_EQ(frame().core.details.vio_mode, 0xFF);
    EXPECT_EQ(frame().device.details.bottom_flash_state, 0);
}
