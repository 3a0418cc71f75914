// `vexa record` as a user runs it, on the loopback device of a network of the test's own.
#include "bench.h"
#include "recordings.h"
#include "wait.h"

#include "utils/ut_le.h"

#include <cstring>
#include <gmock/gmock.h>
#include <sys/resource.h>

using namespace std::chrono_literals;
using bench::run;
using recordings::payloads;
using testing::ElementsAre;
using testing::HasSubstr;
using words = std::vector<std::string>;

namespace {

constexpr int64_t k_ns_per_s = 1'000'000'000;

words record_to(const std::string &file, const words &options = {}) {
    words all = {"record", "-i", "lo", file};
    all.insert(all.end(), options.begin(), options.end());
    return all;
}

/// One that listens already.
class live_record : public bench::program {
public:
    explicit live_record(const std::string &file, const words &options = {})
        : bench::program(record_to(file, options)) {
        EXPECT_TRUE(wait_until([this] { return says("recording on lo"); }, bench::k_patience)) << error();
    }
    [[nodiscard]] bool says(const std::string &text) const { return error().find(text) != std::string::npos; }
};

bus::bytes message(uint16_t number, uint16_t dst = 5) {
    bus::bytes payload;
    bus::append16(payload, number);
    return bus::message({1, 9, dst}, payload);
}

class sender {
public:
    void send(const bus::bytes &datagram) { EXPECT_TRUE(socket_.send(datagram, "192.168.1.5", 9005)); }
    void send(uint16_t first, uint16_t last) {
        for (uint16_t number = first; number <= last; ++number) {
            send(message(number));
        }
    }

private:
    udp_peer socket_{"192.168.1.9", 40000};
};

int64_t now_ns() {
    timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * k_ns_per_s + now.tv_nsec;
}

size_t size_of(const std::string &path) {
    std::error_code absent;
    const auto size = std::filesystem::file_size(path, absent);
    return absent ? 0 : size;
}

} // namespace

TEST(Record, WritesWhatPassesUntilCtrlC) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const recordings::directory place;
        live_record program(place.path("a.pcapng"));
        sender{}.send(1, 3);
        program.signal(signal);
        const auto result = program.end();
        EXPECT_EQ(result.status, 0);
        EXPECT_THAT(payloads(place.path("a.pcapng")), ElementsAre(message(1), message(2), message(3)))
            << "what came just before the end too";
        EXPECT_THAT(result.error, HasSubstr("vexa record: 3 messages, "));
        EXPECT_THAT(result.error, HasSubstr("a.pcapng; none were lost\n"));
        EXPECT_EQ(result.error.find('\r'), std::string::npos) << "progress is for terminals";
    }
}

TEST(Record, WritesOnlyWhatTheFilterWants) {
    const recordings::directory place;
    live_record program(place.path("a.pcapng"), {"--count", "1", "to", "3"});
    sender one;
    one.send(message(1));
    one.send(message(2, 3));
    const auto result = program.end();
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(payloads(place.path("a.pcapng")), ElementsAre(message(2, 3)));
}

TEST(Record, TellsAScriptWhatItHasDone) {
    const recordings::directory place;
    live_record program(place.path("a.pcapng"), {"--count", "2", "--json"});
    sender{}.send(1, 2);
    const auto said = program.end().json();
    EXPECT_EQ(said["files"], words{place.path("a.pcapng")});
    EXPECT_EQ(said["messages"], 2);
    EXPECT_EQ(said["packets"], 2);
    EXPECT_EQ(said["bytes"], size_of(place.path("a.pcapng")));
    EXPECT_EQ(said["lost"], 0);
    EXPECT_GE(said["received"], 2);
}

TEST(Record, OverwritesOnlyByForce) {
    const recordings::directory place;
    recordings::write(place.path("a.pcapng"), {});
    const auto refused = run(record_to(place.path("a.pcapng")));
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.error, HasSubstr("a.pcapng exists already; choose another name"));
    live_record program(place.path("a.pcapng"), {"--force", "--count", "1"});
    sender{}.send(7, 7);
    EXPECT_EQ(program.end().status, 0);
    EXPECT_THAT(payloads(place.path("a.pcapng")), ElementsAre(message(7)));
}

TEST(Record, EndsAfterTheTimeAndBeforeTheSizeGiven) {
    const recordings::directory place;
    const auto timed = run(record_to(place.path("a.pcapng"), {"--max-time", "100ms"}));
    EXPECT_EQ(timed.status, 0);
    EXPECT_THAT(timed.error, HasSubstr("0 messages"));
    live_record sized(place.path("b.pcapng"), {"--max-size", "1kB"});
    sender{}.send(1, 100);
    EXPECT_EQ(sized.end().status, 0);
    EXPECT_LE(size_of(place.path("b.pcapng")), 1000U);
    EXPECT_GT(payloads(place.path("b.pcapng")).size(), 3U);
}

TEST(Record, SplitsAndKeepsTheLastFiles) {
    const recordings::directory place;
    live_record program(place.path("a.pcapng"), {"--split", "1kB", "--files", "2", "--count", "100"});
    sender{}.send(1, 100);
    const auto result = program.end();
    EXPECT_EQ(result.status, 0);
    ASSERT_EQ(place.files().size(), 2U);
    EXPECT_EQ(payloads(place.path(place.files()[1])).back(), message(100));
    EXPECT_THAT(result.error, HasSubstr(" files, of which the last 2 are kept, up to "));
}

TEST(Record, AMessageTriggersWhatWasBeforeAndBehind) {
    const recordings::directory place;
    live_record program(place.path("a.pcapng"),
                        {"--ring", "1MB", "--trigger", "to 3", "--after", "200ms", "--json"});
    sender one;
    one.send(1, 2);
    one.send(message(3, 3));
    one.send(message(4));
    const auto result = program.end();
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(payloads(place.path("a.pcapng")),
                ElementsAre(message(1), message(2), message(3, 3), message(4)));
    EXPECT_THAT(result.error, HasSubstr("vexa record: triggered; "));
    EXPECT_EQ(result.json()["messages"], 4);
}

TEST(Record, ASignalTriggersToo) {
    const recordings::directory place;
    live_record program(place.path("a.pcapng"), {"--ring", "10s", "--after", "0s"});
    ASSERT_TRUE(wait_until([&] { return program.says("waits for a trigger"); }, bench::k_patience));
    sender{}.send(1, 2);
    std::this_thread::yield();
    program.signal(SIGUSR1);
    const auto result = program.end();
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.error, HasSubstr("triggered"));
    EXPECT_GT(size_of(place.path("a.pcapng")), 0U);
}

TEST(Record, WithoutATriggerItLeavesNothing) {
    const recordings::directory place;
    live_record program(place.path("a.pcapng"), {"--ring", "1MB"});
    program.signal(SIGINT);
    const auto result = program.end();
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.error, HasSubstr("nothing has triggered, and nothing was written"));
    EXPECT_TRUE(place.files().empty());
}

/// Each message carries its number and when it was sent; the kill comes in the middle of the traffic.
TEST(Record, AKillLosesAtMostTheLastSecond) {
    const recordings::directory place;
    live_record program(place.path("a.pcapng"));
    sender one;
    const int64_t begin = now_ns();
    uint64_t sent = 0;
    while (now_ns() < begin + 13 * k_ns_per_s / 10) {
        bus::bytes payload(16);
        ut_put_le64(payload.data(), sent++);
        ut_put_le64(&payload[8], static_cast<uint64_t>(now_ns()));
        one.send(bus::message({1, 9, 5}, payload));
        std::this_thread::sleep_for(1ms); // the rate of the traffic; nothing is waited for
    }
    const int64_t killed_at = now_ns();
    program.signal(SIGKILL);
    EXPECT_EQ(program.end().status, 128 + SIGKILL);
    uint64_t expected = 0;
    int64_t last = 0;
    for (const bus::bytes &each : payloads(place.path("a.pcapng"))) {
        EXPECT_EQ(ut_get_le64(&each.at(16)), expected++) << "nothing is missing in between";
        last = static_cast<int64_t>(ut_get_le64(&each.at(24)));
    }
    EXPECT_GT(expected, 0U);
    EXPECT_GE(last, killed_at - k_ns_per_s) << expected << " of " << sent << " messages";
}

TEST(Record, ADiskThatIsFullIsSaidAndTheFileStaysReadable) {
    const recordings::directory place;
    const std::string limited = "ulimit -f 4; exec \"$0\" \"$@\""; // 4 kB or 2 kB, as the shell counts
    words all = {"sh", "-c", limited, VEXA_PROGRAM};
    const words rest = record_to(place.path("a.pcapng"));
    all.insert(all.end(), rest.begin(), rest.end());
    child_process program(all, {.error_file = "", .merge_errors = true});
    EXPECT_THAT(program.wait_line(bench::k_patience).value_or(""), HasSubstr("recording on lo"));
    sender{}.send(1, 200);
    const std::string error = program.wait_line(bench::k_patience).value_or("");
    EXPECT_THAT(error, HasSubstr("cannot write " + place.path("a.pcapng") + ": File too large"));
    EXPECT_THAT(error, HasSubstr("bytes so far can be read"));
    EXPECT_EQ(program.wait_exit(bench::k_patience), 1);
    const auto kept = payloads(place.path("a.pcapng"));
    ASSERT_GT(kept.size(), 10U);
    EXPECT_EQ(kept.back(), message(static_cast<uint16_t>(kept.size())));
}

TEST(Record, RefusesWhatMakesNoSense) {
    const recordings::directory place;
    const std::vector<std::pair<words, std::string>> rows = {
        {{"form", "9"}, "'form' is no condition"},
        {{"--split", "10"}, "needs a unit"},
        {{"--split", "0s"}, "more than nothing"},
        {{"--files", "2"}, "--files requires --split"},
        {{"--trigger", "to 3"}, "--trigger requires --ring"},
        {{"--ring", "1s", "--trigger", "to"}, "is missing at the end"},
        {{"--ring", "1s", "--split", "1MB"}, "excludes"},
        {{"--max-size", "5s"}, "is no size"},
    };
    for (const auto &[options, complaint] : rows) {
        const auto result = run(record_to(place.path("a.pcapng"), options));
        EXPECT_EQ(result.status, 2) << complaint;
        EXPECT_THAT(result.error + result.output, HasSubstr(complaint));
    }
    EXPECT_EQ(run({"record"}).status, 2) << "without a file";
    EXPECT_TRUE(place.files().empty());
}

TEST(Record, SaysWhatCannotBeRecordedOrWritten) {
    const auto absent = run({"record", "-i", "eth77", "/tmp/never.pcapng"});
    EXPECT_EQ(absent.status, 1);
    EXPECT_THAT(absent.error, HasSubstr("There is no interface 'eth77'"));
    const auto nowhere = run(record_to("/nowhere/a.pcapng"));
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_THAT(nowhere.error, HasSubstr("cannot create /nowhere/a.pcapng: No such file or directory"));
}
