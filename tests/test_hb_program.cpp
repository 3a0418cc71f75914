// "vexa hb" as users run it; the proxy is a vexa of its own, which is a node of the library.
#include "bench.h"
#include "heartbeat_frame.h"

#include <gmock/gmock.h>
#include <set>

using bench::run;
using testing::HasSubstr;
using testing::Not;

namespace {

/// Beside the manager a proxy, which says what is set.
class Heartbeat : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(manager_.waits_for(127, true));
        (void)proxy_.line(); // the frame, as it joins
    }

    nlohmann::json proxy_says() {
        const auto line = proxy_.line();
        return line ? nlohmann::json::parse(*line) : nlohmann::json();
    }

    bench::manager &manager() { return manager_; }

private:
    bench::manager manager_;
    bench::program proxy_{{"hb", "watch", "--id", "127", "--json"}};
};

} // namespace

TEST_F(Heartbeat, FieldsAreSetByNameAndNumber) {
    const auto set = run({"hb", "set", "work_mode=3", "31=0x1e", "--json"});
    EXPECT_EQ(set.status, 0) << set.error;
    EXPECT_EQ(set.json()["fields"], (nlohmann::json{{"WORK_MODE", 3}, {"VIO_RATE", 30}}));
    EXPECT_EQ(set.json()["sent_on"], true);
    EXPECT_EQ((std::set<nlohmann::json>{proxy_says(), proxy_says()}),
              (std::set<nlohmann::json>{{{"event", "change"}, {"member", "vio_rate"}, {"value", 30}},
                                        {{"event", "change"}, {"member", "work_mode"}, {"value", 3}}}));
}

TEST_F(Heartbeat, WhatIsSetToItsOldValueIsSeenToBeSentOnToo) {
    const auto set = run({"hb", "set", "LED=0", "OVERHEART=1", "STEREO_CAMERA_HEAD=0"});
    EXPECT_EQ(set.status, 0) << set.error;
    EXPECT_THAT(set.output,
                HasSubstr("set LED=0 OVERHEART=1 STEREO_CAMERA_HEAD=0; the proxy has sent it on"));
    const nlohmann::json first = proxy_says();
    EXPECT_THAT(first["member"], testing::AnyOf("stereo_camera_head1", "bottom_flash_state", "overheat"))
        << "heard, although nothing has changed";
}

TEST_F(Heartbeat, OneOperationIsOneMessageWithAllPairs) {
    bench::node five{5};
    EXPECT_EQ(run({"hb", "set", "WORK_MODE=3", "VIO_RATE=-2"}).status, 0);
    const bus::bytes operation = five.receive();
    EXPECT_EQ(operation.at(3), 4);
    EXPECT_EQ(bus::payload_of(operation), bus::encoded({{65, 3}, {31, -2}}));
}

TEST_F(Heartbeat, AValueThatIsTooWideIsSaidToBeCut) {
    const auto set = run({"hb", "set", "VIO_RATE=300"});
    EXPECT_EQ(set.status, 0) << set.error;
    EXPECT_THAT(set.error, HasSubstr("VIO_RATE keeps 8 bits of 300: 44"));
    EXPECT_EQ(proxy_says()["value"], 44);
}

TEST_F(Heartbeat, GetPrintsAllFieldsAndMarksThoseHeard) {
    bench::program get{{"hb", "get", "--id", "9", "--listen", "60", "--json"}};
    ASSERT_TRUE(manager().waits_for(9, true));
    EXPECT_EQ(run({"hb", "set", "LED=5", "ENVIRONMENT=1"}).status, 0);
    const std::set<nlohmann::json> said{proxy_says()["member"], proxy_says()["member"]};
    ASSERT_EQ(said, (std::set<nlohmann::json>{"bottom_flash_state", "environment_light"}));
    bench::program another{{"hb", "get", "LED", "--id", "8", "--listen", "60"}};
    ASSERT_TRUE(manager().waits_for(8, true));
    EXPECT_EQ(run({"hb", "set", "LED=5"}).status, 0);
    EXPECT_EQ(another.end().status, 0) << "it ends as soon as it has heard what it was asked for";
    get.signal(SIGINT);
    const auto frame = get.end();
    EXPECT_EQ(frame.status, 0) << frame.error;
    const auto members = frame.json()["members"];
    EXPECT_EQ(members.size(), formats::k_frame_members.size());
    EXPECT_EQ(members["bottom_flash_state"], (nlohmann::json{{"value", 5}, {"heard", true}}));
    EXPECT_EQ(members["environment_light"], (nlohmann::json{{"value", 1}, {"heard", true}}))
        << "its initial value";
    EXPECT_EQ(members["overheat"], (nlohmann::json{{"value", 1}, {"heard", false}}));
    EXPECT_EQ(frame.json()["bytes"].get<std::string>().substr(0, 16), "01007e000d000000");
}

TEST_F(Heartbeat, AFieldThatNobodySetsIsPrintedAndStatusOne) {
    const auto got = run({"hb", "get", "WORK_MODE", "--listen", "0.2"});
    EXPECT_EQ(got.status, 1);
    EXPECT_THAT(got.output, HasSubstr("work_mode                      0  initial\n"));
    EXPECT_THAT(got.output, HasSubstr("0 of 1 were heard"));
}

TEST_F(Heartbeat, MembersAreFoundByTheirOwnNameAndByTheFieldThatWritesThem) {
    const auto got = run({"hb", "get", "LED", "STEREO_CAMERA_HEAD", "GIMBAL_CAMERA_PRIOR",
                          "gimbal_camera_prior", "--listen", "0", "--json"});
    std::vector<std::string> names;
    const nlohmann::json said = got.json();
    for (const auto &[name, value] : said["members"].items()) {
        names.push_back(name);
    }
    EXPECT_EQ(names,
              (std::vector<std::string>{"bottom_flash_state", "gimbal_calib_prior", "gimbal_camera_prior",
                                        "stereo_camera_head1", "stereo_camera_head2"}));
}

TEST_F(Heartbeat, WatchPrintsEachChange) {
    bench::program watch{{"hb", "watch", "WORK_MODE", "--id", "9", "--count", "2"}};
    EXPECT_THAT(watch.line().value_or(""), HasSubstr("work_mode"));
    (void)watch.line(); // how many were heard
    EXPECT_EQ(run({"hb", "set", "WORK_MODE=3"}).status, 0);
    EXPECT_THAT(watch.line().value_or(""), HasSubstr("  work_mode = 3"));
    EXPECT_EQ(run({"hb", "set", "VIO_RATE=9", "WORK_MODE=4"}).status, 0);
    const auto rest = watch.end();
    EXPECT_THAT(rest.output, HasSubstr("  work_mode = 4"));
    EXPECT_THAT(rest.output, Not(HasSubstr("vio_rate")));
    EXPECT_EQ(rest.status, 0);
}

TEST_F(Heartbeat, WatchThatSeesTooFewChangesIsStatusOne) {
    EXPECT_EQ(run({"hb", "watch", "--count", "1", "--duration", "0.2"}).status, 1);
    EXPECT_EQ(run({"hb", "watch", "--duration", "0.2"}).status, 0);
}

TEST(HeartbeatWithoutProxy, IsRefusedWithTheReason) {
    bench::manager manager;
    const auto set = run({"hb", "set", "WORK_MODE=3", "--timeout", "3"});
    EXPECT_EQ(set.status, 1);
    EXPECT_THAT(set.error, HasSubstr("node 127 is not active after 3 s"));
}

TEST(HeartbeatWithoutProxy, AProxyThatDoesNotSendOnIsStatusOne) {
    bench::manager manager;
    bench::node mute{127, "192.168.1.127"};
    const auto set = run({"hb", "set", "WORK_MODE=3", "--timeout", "3", "--json"});
    EXPECT_EQ(set.status, 1);
    EXPECT_EQ(set.json()["sent_on"], false);
    EXPECT_THAT(set.error, HasSubstr("has not sent it on to this node (id 119) within 3 s"));
    EXPECT_EQ(mute.receive(), bus::message({4, 119, 127}, bus::encoded({{65, 3}})));
}

TEST(HeartbeatProgram, WrongUsageIsStatusTwo) {
    const std::vector<std::vector<std::string>> wrong = {{"hb"},
                                                         {"hb", "set"},
                                                         {"hb", "set", "WORK_MODE"},
                                                         {"hb", "set", "NO_FIELD=1"},
                                                         {"hb", "set", "73=1"},
                                                         {"hb", "set", "WORK_MODE="},
                                                         {"hb", "set", "WORK_MODE=1x"},
                                                         {"hb", "set", "WORK_MODE=4294967296"},
                                                         {"hb", "get", "NO_FIELD"},
                                                         {"hb", "watch", "--count", "0"}};
    for (const auto &options : wrong) {
        const auto result = run(options);
        EXPECT_EQ(result.status, 2) << testing::PrintToString(options);
        EXPECT_FALSE(result.error.empty()) << testing::PrintToString(options);
    }
}
