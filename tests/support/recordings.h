/**
 * @file
 * Capture files for the tests of what reads them, and the datagrams in a file that a test looks into.
 *
 *     const recordings::file kept({{0ms, "192.168.1.5", 9005, bytes}});
 *     for (const recordings::datagram &each : recordings::datagrams(kept.path())) { ... }
 */
#ifndef TEST_RECORDINGS_H
#define TEST_RECORDINGS_H

#include "capture.h"
#include "datagrams.h"
#include "packets.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <pcap/pcap.h>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace recordings {

using packets::bytes_t;

constexpr int64_t k_begin_s = 1'700'000'000;

/** A directory of the test's own, gone with it. */
class directory {
public:
    directory() {
        std::string name = testing::TempDir() + "vexa_recording_XXXXXX";
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        name_ = name;
    }
    ~directory() { std::filesystem::remove_all(name_); }
    directory(const directory &) = delete;
    directory &operator=(const directory &) = delete;

    [[nodiscard]] std::string path(const std::string &file) const { return name_ + '/' + file; }
    [[nodiscard]] std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto &each : std::filesystem::directory_iterator(name_)) {
            names.push_back(each.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    std::string name_;
};

/** An IPv4 packet and when it was seen. */
struct packet {
    std::chrono::milliseconds at;
    bytes_t bytes;
    size_t cut = 0; /**< [bytes] at its end that were not captured */
};

/** Writes a pcap file of bare IPv4 packets, the way that other programs do. */
inline void write(const std::string &path, const std::vector<packet> &all, int64_t begin_s = k_begin_s) {
    pcap_t *format = pcap_open_dead(DLT_RAW, 65535);
    pcap_dumper_t *out = pcap_dump_open(format, path.c_str());
    ASSERT_NE(out, nullptr);
    for (const packet &each : all) {
        const auto size = static_cast<bpf_u_int32>(each.bytes.size());
        const auto us = std::chrono::microseconds(each.at).count();
        const pcap_pkthdr head{.ts = {begin_s + us / 1'000'000, us % 1'000'000},
                               .caplen = static_cast<bpf_u_int32>(size - each.cut),
                               .len = size};
        pcap_dump(reinterpret_cast<u_char *>(out), &head, each.bytes.data());
    }
    pcap_dump_close(out);
    pcap_close(format);
}

/** A UDP datagram to 192.168.1.`last`. */
inline bytes_t to(uint8_t last, uint16_t port, const bytes_t &payload) {
    return packets::ipv4({.dst = 0xC0A80100U | last}, packets::udp(40000, port, payload));
}

struct datagram {
    std::string to;
    bytes_t bytes;
    int64_t time_ns;
};

/** What is in a capture file, up to its end or to where it is cut. */
inline std::vector<datagram> datagrams(const std::string &path) {
    std::vector<datagram> all;
    try {
        vexa::capture file = vexa::capture::file(path);
        vexa::datagram_assembler assembler;
        const auto take = [&](const vexa::udp_datagram &d) {
            all.push_back({to_text(d.dst), {d.bytes.begin(), d.bytes.end()}, d.time_ns});
        };
        vexa::raw_packet packet;
        while (file.next(packet) == vexa::capture::outcome::packet) {
            assembler.feed(packet, take);
        }
        assembler.finish(take);
    } catch (const vexa::capture_cut &) {
        return all;
    }
    return all;
}

/** The payloads alone. */
inline std::vector<bytes_t> payloads(const std::string &path) {
    std::vector<bytes_t> all;
    for (datagram &each : datagrams(path)) {
        all.push_back(std::move(each.bytes));
    }
    return all;
}

} // namespace recordings

#endif
