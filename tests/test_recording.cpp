// What is recorded, where it goes and when, without an interface: packets of the test's own making.
#include "amount.h"
#include "packet_ring.h"
#include "recorder.h"
#include "recordings.h"
#include "route_messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using recordings::payloads;
using testing::ElementsAre;
using testing::HasSubstr;
using vexa::recorder;
using vexa::recorder_options;

namespace {

using bytes_t = std::vector<uint8_t>;

constexpr int64_t k_ms = 1'000'000;
constexpr int64_t k_begin = 1'700'000'000'000 * k_ms;

/// From node 9; the payload is its number.
bytes_t message(uint8_t number, uint16_t dst = 5) {
    return bus::message({1, 9, dst}, {number, 0});
}

bytes_t packet(const bytes_t &payload) {
    return packets::ipv4({}, packets::udp(40000, 9005, payload));
}

bool feed(recorder &to, const bytes_t &bytes, int64_t at_ms = 0) {
    return to.take(
        {.time_ns = k_begin + at_ms * k_ms, .link_type = DLT_RAW, .wire_size = bytes.size(), .bytes = bytes});
}

recorder make(recorder_options how) {
    return {std::move(how), {}, {.link_type = DLT_RAW, .snap_bytes = 65535, .name = "test"}};
}

std::string error_of(const recorder_options &how) {
    try {
        (void)std::make_unique<recorder>(how, vexa::pcapng::section{}, vexa::pcapng::interface{});
    } catch (const vexa::file_error &error) {
        return error.what();
    }
    return "no error";
}

} // namespace

TEST(Amounts, HaveUnits) {
    EXPECT_EQ(vexa::parse_amount("12kB").bytes, 12'000U);
    EXPECT_EQ(vexa::parse_amount("1.5MB").bytes, 1'500'000U);
    EXPECT_EQ(vexa::parse_amount("2GB").bytes, 2'000'000'000U);
    EXPECT_EQ(vexa::parse_amount("7B").bytes, 7U);
    EXPECT_EQ(vexa::parse_amount("250ms").time_ns, 250 * k_ms);
    EXPECT_EQ(vexa::parse_amount("5min").time_ns, 300'000 * k_ms);
    EXPECT_EQ(vexa::parse_amount("1h").time_ns, 3'600'000 * k_ms);
    EXPECT_EQ(vexa::parse_time("2.5"), 2500 * k_ms) << "seconds";
    EXPECT_EQ(vexa::parse_time("2s"), 2000 * k_ms);
}

TEST(Amounts, RefuseWhatIsNone) {
    for (const char *text : {"", "MB", "5", "5m", "5mb", "-1s", "1e99s", "nan", "inf", "0x10s", "1 MB"}) {
        EXPECT_THROW((void)vexa::parse_amount(text), std::invalid_argument) << text;
    }
    EXPECT_THROW((void)vexa::parse_time("5MB"), std::invalid_argument);
}

TEST(Recorder, WritesWhatIsWantedAndNothingElse) {
    const recordings::directory place;
    recorder to =
        make({.to = {.file = place.path("a.pcapng")}, .what = {.wanted = vexa::message_filter("to 5")}});
    EXPECT_TRUE(feed(to, packet(message(1, 5))));
    EXPECT_TRUE(feed(to, packet(message(2, 3))));
    EXPECT_TRUE(feed(to, packets::ipv4({}, packets::udp(1, 53, {1, 2, 3}))));
    EXPECT_TRUE(feed(to, packets::ipv4({.protocol = 6}, bytes_t(20, 0))));
    to.finish({});
    EXPECT_EQ(to.messages(), 1U);
    EXPECT_THAT(payloads(place.path("a.pcapng")), ElementsAre(message(1, 5)));
}

TEST(Recorder, WritesEverythingWhenAsked) {
    const recordings::directory place;
    recorder to = make({.to = {.file = place.path("a.pcapng")}, .what = {.all = true}});
    EXPECT_TRUE(feed(to, packets::ipv4({}, packets::udp(1, 53, {1, 2, 3}))));
    EXPECT_TRUE(feed(to, packets::ipv4({.protocol = 6}, bytes_t(20, 0))));
    to.finish({});
    EXPECT_EQ(to.written()->packets(), 2U);
}

TEST(Recorder, TakesAllFragmentsOfAMessageOrNone) {
    const recordings::directory place;
    recorder to =
        make({.to = {.file = place.path("a.pcapng")}, .what = {.wanted = vexa::message_filter("to 5")}});
    const bytes_t wanted = bus::message({1, 9, 5}, bus::pattern(3000));
    const bytes_t other = bus::message({1, 9, 3}, bus::pattern(3000));
    const bytes_t one = packets::udp(1, 9005, wanted);
    const bytes_t two = packets::udp(1, 9003, other);
    for (const size_t begin : {0U, 1480U, 2960U}) {
        EXPECT_TRUE(feed(to, packets::fragment(one, begin, 1480, 1)));
        EXPECT_TRUE(feed(to, packets::fragment(two, begin, 1480, 2)));
    }
    EXPECT_EQ(to.written()->packets(), 3U);
    EXPECT_EQ(to.messages(), 1U);
    to.finish({});
    EXPECT_EQ(to.written()->packets(), 3U);
    EXPECT_THAT(payloads(place.path("a.pcapng")), ElementsAre(wanted));
}

TEST(Recorder, KeepsFragmentsWhoseOthersStayAwayAfterAWhile) {
    const recordings::directory place;
    recorder to = make({.to = {.file = place.path("a.pcapng")}});
    const bytes_t whole = packets::udp(1, 9005, bus::message({1, 9, 5}, bus::pattern(3000)));
    EXPECT_TRUE(feed(to, packets::fragment(whole, 0, 1480), 0));
    EXPECT_TRUE(feed(to, packet(message(1)), 500));
    EXPECT_EQ(to.written()->packets(), 1U);
    EXPECT_TRUE(feed(to, packet(message(2)), 501));
    EXPECT_EQ(to.written()->packets(), 3U);
    EXPECT_EQ(to.messages(), 2U);
}

TEST(Recorder, EndsWithTheMessageThatIsTheLastOne) {
    const recordings::directory place;
    recorder to = make({.to = {.file = place.path("a.pcapng")}, .count = 2});
    EXPECT_TRUE(feed(to, packet(message(1))));
    EXPECT_FALSE(feed(to, packet(message(2))));
    EXPECT_FALSE(feed(to, packet(message(3))));
    to.finish({});
    EXPECT_THAT(payloads(place.path("a.pcapng")), ElementsAre(message(1), message(2)));
}

TEST(Recorder, NeverGrowsBeyondTheSizeGiven) {
    const recordings::directory place;
    recorder to = make({.to = {.file = place.path("a.pcapng")}, .most_bytes = 1000});
    uint8_t number = 0;
    while (number < 100 && feed(to, packet(message(number)))) {
        ++number;
    }
    to.finish({});
    const auto size = std::filesystem::file_size(place.path("a.pcapng"));
    EXPECT_LE(size, 1000U);
    EXPECT_GT(size, 1000U - vexa::pcapng::packet_size(packet(message(0)).size()));
    EXPECT_EQ(payloads(place.path("a.pcapng")).size(), number);
}

TEST(Recorder, BeginsANewFileBeforeOneIsTooLargeAndKeepsTheLast) {
    const recordings::directory place;
    recorder to = make({.to = {.file = place.path("a.pcapng"), .split = {.bytes = 500}, .most_files = 2}});
    for (uint8_t number = 0; number < 20; ++number) {
        EXPECT_TRUE(feed(to, packet(message(number))));
    }
    to.finish({});
    const size_t begun = to.written()->files_begun();
    ASSERT_GT(begun, 3U);
    const std::string last = vexa::numbered_name("a.pcapng", begun);
    EXPECT_THAT(place.files(), ElementsAre(vexa::numbered_name("a.pcapng", begun - 1), last));
    EXPECT_EQ(payloads(place.path(last)).back(), message(19));
    for (const std::string &each : place.files()) {
        EXPECT_LE(std::filesystem::file_size(place.path(each)), 500U);
    }
}

TEST(Recorder, BeginsANewFileAfterTheTimeGiven) {
    const recordings::directory place;
    recorder to = make({.to = {.file = place.path("a.pcapng"), .split = {.time_ns = 1000 * k_ms}}});
    for (const int at_ms : {100, 1099, 1100, 5000}) {
        EXPECT_TRUE(feed(to, packet(message(static_cast<uint8_t>(at_ms / 100))), at_ms));
    }
    to.finish({});
    EXPECT_THAT(place.files(), ElementsAre("a-00001.pcapng", "a-00002.pcapng", "a-00003.pcapng"));
    EXPECT_THAT(payloads(place.path("a-00001.pcapng")), ElementsAre(message(1), message(10)));
    EXPECT_THAT(payloads(place.path("a-00002.pcapng")), ElementsAre(message(11)));
}

TEST(Recorder, RefusesFilesThatStandThereBeforeAnythingComes) {
    const recordings::directory place;
    recordings::write(place.path("a.pcapng"), {});
    recordings::write(place.path("b-00007.pcapng"), {});
    recordings::write(place.path("b-notes.pcapng"), {});
    EXPECT_THAT(error_of({.to = {.file = place.path("a.pcapng")}}), HasSubstr("a.pcapng exists already"));
    EXPECT_THAT(error_of({.to = {.file = place.path("a.pcapng")}, .ring = {.bytes = 1000}}),
                HasSubstr("a.pcapng exists already"));
    EXPECT_THAT(error_of({.to = {.file = place.path("b.pcapng"), .split = {.bytes = 1000}}}),
                HasSubstr("b-00007.pcapng exists already"));
    EXPECT_THAT(error_of({.to = {.file = place.path("no/c.pcapng")}, .ring = {.bytes = 1000}}),
                HasSubstr("cannot create"));
    EXPECT_EQ(error_of({.to = {.file = place.path("b.pcapng"), .overwrite = true, .split = {.bytes = 1000}}}),
              "no error");
    EXPECT_THAT(place.files(), ElementsAre("a.pcapng", "b-00001.pcapng", "b-notes.pcapng"));
}

TEST(Ring, HoldsTheNewestOfATime) {
    vexa::packet_ring ring({.time_ns = 100 * k_ms});
    for (const int64_t at_ms : {0, 50, 100, 151}) {
        ring.add({.time_ns = at_ms * k_ms}, true);
    }
    std::vector<int64_t> held;
    ring.drain([&](const vexa::raw_packet &p, bool) { held.push_back(p.time_ns / k_ms); });
    EXPECT_THAT(held, ElementsAre(100, 151));
    EXPECT_FALSE(ring.is_shortened());
    EXPECT_EQ(ring.packets(), 0U);
}

TEST(Ring, HoldsNoMoreThanItsSize) {
    vexa::packet_ring ring({.bytes = 10'000});
    const bytes_t bytes(100, 1);
    for (int i = 0; i < 1000; ++i) {
        ring.add({.time_ns = i, .wire_size = bytes.size(), .bytes = bytes}, true);
    }
    EXPECT_LE(ring.bytes(), 10'000U);
    EXPECT_GT(ring.bytes(), 9'500U);
    int64_t expected = 1000 - static_cast<int64_t>(ring.packets());
    ring.drain([&](const vexa::raw_packet &p, bool) {
        EXPECT_EQ(p.time_ns, expected++);
        EXPECT_EQ(p.bytes.size(), 100U);
    });
    EXPECT_EQ(expected, 1000);
}

TEST(Trigger, WritesWhatWasBeforeItAndAWhileBehindIt) {
    const recordings::directory place;
    recorder to = make({.to = {.file = place.path("a.pcapng")},
                        .ring = {.time_ns = 100 * k_ms},
                        .trigger = vexa::message_filter("to 3"),
                        .after_ns = 50 * k_ms});
    EXPECT_TRUE(feed(to, packet(message(1)), 0));
    EXPECT_TRUE(feed(to, packet(message(2)), 200));
    EXPECT_TRUE(place.files().empty()) << "nothing has triggered yet";
    EXPECT_TRUE(feed(to, packet(message(3, 3)), 290));
    EXPECT_TRUE(feed(to, packet(message(4)), 340));
    EXPECT_FALSE(feed(to, packet(message(5)), 341));
    to.finish({});
    EXPECT_THAT(payloads(place.path("a.pcapng")), ElementsAre(message(2), message(3, 3), message(4)));
    EXPECT_EQ(to.messages(), 3U);
    EXPECT_EQ(to.packets_before(), 2U);
}

TEST(Trigger, FromOutsideDoesTheSameOnce) {
    const recordings::directory place;
    recorder to = make({.to = {.file = place.path("a.pcapng")}, .ring = {.bytes = 100'000}});
    EXPECT_TRUE(feed(to, packet(message(1)), 0));
    to.trigger_now();
    to.trigger_now();
    EXPECT_TRUE(feed(to, packet(message(2)), 1));
    to.finish({});
    EXPECT_THAT(payloads(place.path("a.pcapng")), ElementsAre(message(1), message(2)));
}

TEST(Trigger, ThatNeverComesLeavesNoFile) {
    const recordings::directory place;
    recorder to = make({.to = {.file = place.path("a.pcapng")}, .ring = {.bytes = 100'000}});
    EXPECT_TRUE(feed(to, packet(message(1)), 0));
    to.finish({});
    EXPECT_EQ(to.written(), nullptr);
    EXPECT_TRUE(place.files().empty());
}
