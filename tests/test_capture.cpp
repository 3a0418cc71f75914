// Captures on real interfaces of the test's own network, and of files.
#include "capture.h"
#include "datagrams.h"
#include "emulator.h"
#include "packets.h"
#include "udp_peer.h"
#include "wait.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pcap/pcap.h>
#include <poll.h>

using testing::HasSubstr;
using vexa::capture;
using vexa::raw_packet;

namespace {

using bytes_t = std::vector<uint8_t>;

constexpr int k_patience_ms = 20000;

struct seen {
    std::string from;
    std::string to;
    bytes_t bytes;
    bool incomplete;
    int64_t time_ns;
};

/// Everything to port 9005, until so many have come or the time is over.
std::vector<seen> datagrams(capture &from, size_t count) {
    vexa::datagram_assembler assembler;
    std::vector<seen> all;
    const auto take = [&](const vexa::udp_datagram &d) {
        if (d.dst.port == 9005) {
            all.push_back(
                {to_text(d.src), to_text(d.dst), {d.bytes.begin(), d.bytes.end()}, d.incomplete, d.time_ns});
        }
    };
    raw_packet packet;
    while (all.size() < count) {
        switch (from.next(packet)) {
        case capture::outcome::packet:
            assembler.feed(packet, take);
            break;
        case capture::outcome::nothing: {
            pollfd readable{from.fd(), POLLIN, 0};
            if (poll(&readable, 1, k_patience_ms) != 1) {
                return all;
            }
            break;
        }
        case capture::outcome::end:
            assembler.finish(take);
            return all;
        }
    }
    return all;
}

int64_t now_ns() {
    timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * 1'000'000'000 + now.tv_nsec;
}

std::string error_of(const std::function<void()> &what) {
    try {
        what();
    } catch (const vexa::capture_error &error) {
        return error.what();
    }
    return "no error";
}

/// A file of this test's own, removed with its object.
class temporary_file {
public:
    explicit temporary_file(const std::string &name)
        : path_(testing::TempDir() + "capture-" + std::to_string(getpid()) + '-' + name) {}
    ~temporary_file() { (void)std::filesystem::remove(path_); }
    temporary_file(const temporary_file &) = delete;
    temporary_file &operator=(const temporary_file &) = delete;
    [[nodiscard]] const std::string &path() const { return path_; }

private:
    std::string path_;
};

/// Makes it a capture file with these packets.
void write(const temporary_file &to, const std::vector<bytes_t> &frames, int link_type = DLT_RAW) {
    pcap_t *dead = pcap_open_dead(link_type, 65535);
    pcap_dumper_t *file = pcap_dump_open(dead, to.path().c_str());
    ASSERT_NE(file, nullptr) << to.path();
    for (const bytes_t &frame : frames) {
        const auto size = static_cast<bpf_u_int32>(frame.size());
        const pcap_pkthdr head{.ts = {1000, 5}, .caplen = size, .len = size};
        pcap_dump(reinterpret_cast<u_char *>(file), &head, frame.data());
    }
    pcap_dump_close(file);
    pcap_close(dead);
}

} // namespace

class LiveCapture : public testing::TestWithParam<const char *> {};

TEST_P(LiveCapture, SeesADatagramOnceWithAddressesAndTime) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    capture packets = capture::live(GetParam(), {});
    const udp_peer receiver("192.168.1.5", 9005);
    udp_peer sender("192.168.1.9", 40000);
    const int64_t before = now_ns();
    ASSERT_TRUE(sender.send({1, 2, 3}, "192.168.1.5", 9005));
    ASSERT_TRUE(sender.send({4}, "192.168.1.5", 9005));
    const std::vector<seen> all = datagrams(packets, 2);
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].bytes, (bytes_t{1, 2, 3}));
    EXPECT_EQ(all[1].bytes, (bytes_t{4})) << "none is seen twice";
    EXPECT_EQ(all[0].from, "192.168.1.9:40000");
    EXPECT_EQ(all[0].to, "192.168.1.5:9005");
    EXPECT_GE(all[0].time_ns, before - 1'000'000);
    EXPECT_LE(all[0].time_ns, now_ns());
}

TEST_P(LiveCapture, SeesTheLongestMessageWhole) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    capture packets = capture::live(GetParam(), {});
    const udp_peer receiver("192.168.1.5", 9005);
    udp_peer sender("192.168.1.9", 40000);
    ASSERT_TRUE(sender.send(bytes_t(8208, 7), "192.168.1.5", 9005));
    const std::vector<seen> all = datagrams(packets, 1);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].bytes, bytes_t(8208, 7));
}

INSTANTIATE_TEST_SUITE_P(Interfaces, LiveCapture, testing::Values("lo", "any"),
                         [](const auto &row) { return std::string(row.param); });

TEST(LiveCaptures, PutTogetherWhatEthernetFragmented) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    ASSERT_EQ(
        system("ip link add veth_a type veth peer name veth_b && ip address add 10.9.9.1/24 dev veth_a && "
               "ip link set veth_a up && ip link set veth_b up && "
               "ip neigh add 10.9.9.2 lladdr 02:00:00:00:00:02 dev veth_a"),
        0);
    ASSERT_TRUE(wait_until([] { return system("ip -o link show veth_a | grep -q 'state UP'") == 0; }))
        << "what is sent before is lost";
    capture packets = capture::live("veth_b", {});
    EXPECT_EQ(packets.link_type(), DLT_EN10MB);
    udp_peer sender("10.9.9.1", 40000);
    ASSERT_TRUE(sender.send(bytes_t(8208, 7), "10.9.9.2", 9005));
    const std::vector<seen> all = datagrams(packets, 1);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].bytes, bytes_t(8208, 7));
    EXPECT_FALSE(all[0].incomplete);
    EXPECT_EQ(all[0].to, "10.9.9.2:9005");
}

TEST(LiveCaptures, CountWhatTheyCouldNotTake) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    capture packets = capture::live("lo", {.snap_bytes = 262144, .buffer_bytes = 256 * 1024, .delay_ms = 20});
    udp_peer sender("192.168.1.9", 40000);
    for (int i = 0; i < 2000; ++i) {
        ASSERT_TRUE(sender.send(bytes_t(8000, 1), "192.168.1.5", 9005));
    }
    EXPECT_GT(packets.counts().dropped, 0U);
    EXPECT_GE(packets.counts().received, packets.counts().dropped);
}

TEST(LiveCaptures, SayWhichInterfaceThereIsNot) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    const std::string error = error_of([] { (void)capture::live("eth77", {}); });
    EXPECT_THAT(error, HasSubstr("eth77"));
    EXPECT_THAT(error, HasSubstr("'ip link' lists them"));
}

TEST(CaptureFiles, GiveTheirDatagramsAndTimes) {
    const temporary_file kept("capture.pcap");
    write(kept, {packets::ipv4({}, packets::udp(1, 9005, {1, 2})),
                 packets::fragment(packets::udp(1, 9005, bytes_t(3000, 1)), 0, 1480)});
    capture file = capture::file(kept.path());
    EXPECT_EQ(file.fd(), -1);
    const std::vector<seen> all = datagrams(file, 9);
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].bytes, (bytes_t{1, 2}));
    EXPECT_EQ(all[0].time_ns, 1000'000'005'000);
    EXPECT_TRUE(all[1].incomplete);
}

TEST(CaptureFiles, ThatAreDamagedGiveWhatStandsBeforeAndThenAnError) {
    const temporary_file kept("damaged.pcap");
    write(kept, {packets::ipv4({}, packets::udp(1, 9005, {1, 2})),
                 packets::ipv4({}, packets::udp(1, 9005, {3, 4}))});
    std::filesystem::resize_file(kept.path(), std::filesystem::file_size(kept.path()) - 1);
    capture file = capture::file(kept.path());
    EXPECT_EQ(datagrams(file, 1).size(), 1U);
    EXPECT_THAT(error_of([&] { (void)datagrams(file, 1); }), HasSubstr("truncated"));
}

TEST(CaptureFiles, ThatAreNoneAreNamed) {
    EXPECT_THAT(error_of([] { (void)capture::file("absent.pcap"); }), HasSubstr("absent.pcap"));
    const temporary_file kept("text.pcap");
    std::ofstream(kept.path()) << "no capture at all, but long enough for one";
    EXPECT_THAT(error_of([&] { (void)capture::file(kept.path()); }), HasSubstr("text.pcap"));
}

TEST(CaptureFiles, OfStrangeLinksAreRefused) {
    const temporary_file kept("wifi.pcap");
    write(kept, {bytes_t(60, 0)}, DLT_IEEE802_11);
    EXPECT_THAT(error_of([&] { (void)capture::file(kept.path()); }), HasSubstr("IEEE802_11"));
}
