// The words that say which messages to show, and how a message is shown.
#include "echo_output.h"
#include "message_filter.h"

#include "vectors.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using testing::HasSubstr;
using vexa::message_filter;

namespace {

/// Whether a filter lets an image of tests/vectors pass.
bool passes(const std::string &filter, const std::string &image, uint16_t port = 9127, size_t cut = 0) {
    const std::vector<uint8_t> bytes = vectors::bytes(image);
    const std::span<const uint8_t> left = std::span{bytes}.first(bytes.size() - cut);
    const vexa::udp_datagram datagram{.dst = {0, port}, .wire_size = left.size(), .bytes = left};
    const formats::decoded read =
        formats::decode({.bytes = left, .wire_size = left.size(), .dst_port = port});
    return message_filter(filter).matches({datagram, read});
}

std::string error_of(const std::string &filter) {
    try {
        const message_filter parsed(filter);
    } catch (const vexa::filter_error &error) {
        return error.what();
    }
    return "no error";
}

} // namespace

TEST(MessageFilter, WithoutWordsLetsEverythingPass) {
    EXPECT_TRUE(passes("", "route_register_node9"));
    EXPECT_TRUE(passes("  ", "link_datagram_goal_area", 5673));
}

TEST(MessageFilter, KnowsSenderAndReceiver) {
    EXPECT_TRUE(passes("from 9", "route_message_node9_to_3"));
    EXPECT_FALSE(passes("from 3", "route_message_node9_to_3"));
    EXPECT_TRUE(passes("to 3", "route_message_node9_to_3"));
    EXPECT_FALSE(passes("to 9", "route_message_node9_to_3"));
    EXPECT_TRUE(passes("node 9", "route_message_node9_to_3"));
    EXPECT_TRUE(passes("node 3", "route_message_node9_to_3"));
    EXPECT_FALSE(passes("node 4", "route_message_node9_to_3"));
}

TEST(MessageFilter, KnowsNodesByName) {
    EXPECT_TRUE(passes("to vio", "route_message_node9_to_3"));
    EXPECT_TRUE(passes("to NODE_VIO", "route_message_node9_to_3"));
    EXPECT_TRUE(passes("from detection_tracking", "route_message_node9_to_3"));
    EXPECT_TRUE(passes("to broadcast", "route_broadcast_status_node9"));
    EXPECT_TRUE(passes("to 0xff00", "route_broadcast_status_node9"));
    EXPECT_TRUE(passes("to manager", "route_register_node9"));
    EXPECT_TRUE(passes("to proxy", "route_heartbeat_two_pairs"));
    EXPECT_TRUE(passes("to app", "route_message_node9_to_app"));
}

TEST(MessageFilter, TakesSeveralValues) {
    EXPECT_TRUE(passes("to 7,vio,8", "route_message_node9_to_3"));
    EXPECT_FALSE(passes("to 7,8", "route_message_node9_to_3"));
}

TEST(MessageFilter, KnowsKinds) {
    EXPECT_TRUE(passes("kind 4", "route_heartbeat_two_pairs"));
    EXPECT_TRUE(passes("kind operation_on_hb", "route_heartbeat_two_pairs"));
    EXPECT_TRUE(passes("kind MSTP_OPERATION_ON_HB", "route_heartbeat_two_pairs"));
    EXPECT_FALSE(passes("kind 4", "route_register_node9"));
    EXPECT_FALSE(passes("kind 0", "link_datagram_goal_area", 5673)) << "that has no kind";
}

TEST(MessageFilter, KnowsMessageTypes) {
    EXPECT_TRUE(passes("type 6", "route_status_node9_to_5"));
    EXPECT_TRUE(passes("type detection_objects", "route_status_node9_to_5"));
    EXPECT_TRUE(passes("type MSG_DETECTION_OBJECTS", "route_status_node9_to_5"));
    EXPECT_FALSE(passes("type track_objects", "route_status_node9_to_5"));
    EXPECT_FALSE(passes("type 0", "route_register_node9")) << "that is no user data";
}

TEST(MessageFilter, KnowsFamiliesAndMessages) {
    EXPECT_TRUE(passes("family user", "route_status_node9_to_5"));
    EXPECT_TRUE(passes("family manager", "route_node_info_9_to_3"));
    EXPECT_TRUE(passes("family heartbeat", "route_heartbeat_two_pairs"));
    EXPECT_TRUE(passes("family report", "link_datagram_goal_area", 5673));
    EXPECT_TRUE(passes("family camera", "link_datagram_camera_command", 5685));
    EXPECT_TRUE(passes("family frame", "link_frame_goal_area", 5673));
    EXPECT_TRUE(passes("message notify", "route_manager_answer"));
    EXPECT_TRUE(passes("message goal_area,track_status", "link_datagram_goal_area", 5673));
    EXPECT_FALSE(passes("message register", "route_manager_answer"));
}

TEST(MessageFilter, KnowsWhatIsWrong) {
    EXPECT_TRUE(passes("cut", "route_register_node9", 9000, 1));
    EXPECT_FALSE(passes("cut", "route_register_node9", 9000));
    EXPECT_TRUE(passes("malformed", "link_datagram_goal_area", 5685)) << "at the camera's port";
    EXPECT_FALSE(passes("malformed", "link_datagram_goal_area", 5673));
}

TEST(MessageFilter, PutsConditionsTogether) {
    EXPECT_TRUE(passes("from 9 and to 3", "route_message_node9_to_3"));
    EXPECT_TRUE(passes("from 9 to 3", "route_message_node9_to_3"));
    EXPECT_FALSE(passes("from 9 to 4", "route_message_node9_to_3"));
    EXPECT_TRUE(passes("from 1 or to 3", "route_message_node9_to_3"));
    EXPECT_TRUE(passes("not from 1", "route_message_node9_to_3"));
    EXPECT_FALSE(passes("not not from 1", "route_message_node9_to_3"));
    EXPECT_FALSE(passes("not (from 1 or to 3)", "route_message_node9_to_3"));
}

TEST(MessageFilter, BindsAndCloserThanOr) {
    EXPECT_TRUE(passes("from 9 or from 1 and to 77", "route_message_node9_to_3"));
    EXPECT_FALSE(passes("(from 9 or from 1) and to 77", "route_message_node9_to_3"));
    EXPECT_TRUE(passes("not from 1 to 3", "route_message_node9_to_3"));
}

TEST(MessageFilter, SaysWhatItDoesNotUnderstand) {
    EXPECT_THAT(error_of("form 9"), HasSubstr("'form' is no condition; these are: from, to, node"));
    EXPECT_THAT(error_of("from"), HasSubstr("what 'from' asks for is missing at the end"));
    EXPECT_THAT(error_of("from nobody"),
                HasSubstr("'from' asks for a node: 9, vio, broadcast, not 'nobody'"));
    EXPECT_THAT(error_of("from 70000"), HasSubstr("not '70000'"));
    EXPECT_THAT(error_of("from 9,"), HasSubstr("not ''"));
    EXPECT_THAT(error_of("kind 9x"), HasSubstr("not '9x'"));
    EXPECT_THAT(error_of("family users"), HasSubstr("there is no family 'users'; there are: user, manager"));
    EXPECT_THAT(error_of("message hello"), HasSubstr("there is no message 'hello'; there are: "));
    EXPECT_THAT(error_of("(from 9"), HasSubstr("')' is missing at the end"));
    EXPECT_THAT(error_of("from 9)"), HasSubstr("')' has nothing before it to close"));
    EXPECT_THAT(error_of("from 9 or"), HasSubstr("a condition is missing at the end"));
    EXPECT_THAT(error_of("and from 9"), HasSubstr("'and' is no condition"));
}

TEST(MessageFilter, RefusesParenthesesWithoutEnd) {
    EXPECT_THAT(error_of(std::string(100000, '(')), HasSubstr("too many parentheses"));
    std::string denied;
    for (int i = 0; i < 100000; ++i) {
        denied += "not ";
    }
    EXPECT_THAT(error_of(denied + "cut"), HasSubstr("too many parentheses"));
}

TEST(NodeText, NamesWhoIsKnown) {
    EXPECT_EQ(vexa::node_text(3), "vio(3)");
    EXPECT_EQ(vexa::node_text(0), "manager(0)");
    EXPECT_EQ(vexa::node_text(127), "proxy(127)");
    EXPECT_EQ(vexa::node_text(0xFF00), "broadcast");
    EXPECT_EQ(vexa::node_text(64001), "app(64001)");
    EXPECT_EQ(vexa::node_text(42), "42");
}

TEST(MessageText, SaysSomethingOfImagesCutAndCapturedAtEveryLength) {
    for (const auto &file : std::filesystem::directory_iterator(TEST_VECTORS_DIR)) {
        const std::vector<uint8_t> whole = vectors::bytes(file.path().stem());
        for (size_t size = 0; size <= whole.size(); ++size) {
            const std::vector<uint8_t> bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
            for (const size_t wire : {size, whole.size()}) {
                const vexa::udp_datagram datagram{.dst = {0, 5673}, .wire_size = wire, .bytes = bytes};
                const formats::decoded read =
                    formats::decode({.bytes = bytes, .wire_size = wire, .dst_port = 5673});
                const std::string text = vexa::message_text({datagram, read});
                EXPECT_FALSE(text.empty());
                EXPECT_EQ(
                    text.find_first_not_of(" !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ["
                                           "\\]^_`abcdefghijklmnopqrstuvwxyz{|}~"),
                    std::string::npos);
                EXPECT_TRUE(nlohmann::json::accept(vexa::message_json({datagram, read})));
            }
        }
    }
}
