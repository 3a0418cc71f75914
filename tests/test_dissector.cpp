// The Wireshark dissector in the real tshark, field by field against the decoder of the tools.
#include "capture.h"
#include "child_process.h"
#include "datagrams.h"
#include "decoder.h"
#include "show.h"
#include "tshark.h"
#include "vectors.h"

#include "utils/ut_le.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <sstream>

using formats::decoded;
using formats::node;
using testing::ElementsAreArray;

namespace {

using namespace std::chrono_literals;
using bytes_t = std::vector<uint8_t>;

constexpr uint16_t k_flight_port = 5673;
constexpr uint16_t k_camera_port = 5685;
constexpr uint16_t k_other_port = 47777;

std::string line_of(const std::string &key, size_t pos, size_t size, const std::string &value) {
    return key + " at " + std::to_string(pos) + " +" + std::to_string(size) + ": " + value;
}

/// Floats are compared by their bytes: the two programs write different numbers of digits.
bool is_compared_by_bytes(const formats::field &f) {
    return f.type == formats::field_type::f32 || f.type == formats::field_type::bytes;
}

void list(const std::vector<node> &fields, const bytes_t &bytes, std::vector<std::string> &lines) {
    for (const node &n : fields) {
        const bool is_leaf = n.what != nullptr && (n.parts.empty() || !n.what->bits.empty());
        if (is_leaf) {
            const auto raw = std::span{bytes}.subspan(n.offset, n.size);
            const bool by_bytes = n.bit == nullptr && is_compared_by_bytes(*n.what);
            lines.push_back(
                line_of(key_of(n), n.offset, n.size, by_bytes ? formats::hex_text(raw) : value_text(n)));
        }
        list(n.parts, bytes, lines);
    }
}

std::vector<std::string> fields_of(const decoded &read, const bytes_t &bytes) {
    std::vector<std::string> lines;
    list(read.fields, bytes, lines);
    return lines;
}

std::vector<std::string> fields_of(const tshark::packet &shown, const std::vector<std::string> &by_bytes) {
    std::vector<std::string> lines;
    for (const tshark::field &f : shown.fields) {
        const bool as_bytes = std::ranges::find(by_bytes, f.name) != by_bytes.end();
        lines.push_back(line_of(f.name, f.pos, f.size, as_bytes ? f.value : f.show));
    }
    return lines;
}

/// Names of the fields that are compared by their bytes.
void names_by_bytes(const std::vector<node> &fields, std::vector<std::string> &names) {
    for (const node &n : fields) {
        if (n.what != nullptr && is_compared_by_bytes(*n.what)) {
            names.push_back(key_of(n));
        }
        names_by_bytes(n.parts, names);
    }
}

std::vector<std::string> experts_of(const decoded &read) {
    std::vector<std::string> all;
    for (const formats::finding &f : read.findings) {
        all.push_back(std::string(name_of(f.how)) + ": " + f.text);
    }
    return all;
}

decoded decode(const tshark::datagram &one) {
    return formats::decode({.bytes = std::span{one.bytes}.first(one.captured),
                            .wire_size = one.bytes.size(),
                            .dst_port = one.dst_port});
}

/// The two programs find the same in another order.
std::vector<std::string> sorted(std::vector<std::string> texts) {
    std::ranges::sort(texts);
    return texts;
}

void expect_same(const tshark::datagram &one, const tshark::packet &shown) {
    const decoded read = decode(one);
    std::vector<std::string> by_bytes;
    names_by_bytes(read.fields, by_bytes);
    const std::vector<std::string> fields = fields_of(shown, by_bytes);
    const std::vector<std::string> experts = sorted(shown.experts);
    const std::string message = read.what != nullptr ? read.name() : "";
    const bool same = shown.dissected == (read.wire != nullptr) && fields == fields_of(read, one.bytes) &&
                      experts == sorted(experts_of(read)) && shown.message == message;
    if (same) {
        return; // what follows takes its time to say the same
    }
    SCOPED_TRACE("port " + std::to_string(one.dst_port) + ", " + std::to_string(one.captured) +
                 " captured of " + formats::hex_text(one.bytes));
    EXPECT_EQ(shown.dissected, read.wire != nullptr);
    EXPECT_THAT(fields, ElementsAreArray(fields_of(read, one.bytes)));
    EXPECT_THAT(experts, ElementsAreArray(sorted(experts_of(read))));
    EXPECT_EQ(shown.message, message);
}

/// Every datagram in a file, dissected and compared.
void expect_same(const std::vector<tshark::datagram> &all) {
    tshark::file file;
    for (const tshark::datagram &one : all) {
        file.add(one);
    }
    const std::vector<tshark::packet> shown = tshark::dissect(file.close());
    ASSERT_EQ(shown.size(), all.size());
    for (size_t i = 0; i < all.size() && !testing::Test::HasFailure(); ++i) {
        expect_same(all[i], shown[i]);
    }
}

struct image {
    std::string name;
    bytes_t bytes;
    uint16_t port;
};

/// Where an image travels to.
uint16_t port_of(const std::string &name, const bytes_t &bytes) {
    if (name.starts_with("route_")) {
        return static_cast<uint16_t>(9000 + std::min<int>(ut_get_le16(&bytes[8]), 127));
    }
    return name.find("camera") != std::string::npos ? k_camera_port : k_flight_port;
}

std::vector<image> images() {
    std::vector<image> all;
    for (const auto &file : std::filesystem::directory_iterator(TEST_VECTORS_DIR)) {
        const std::string name = file.path().stem();
        const bytes_t bytes = vectors::bytes(name);
        all.push_back({name, bytes, port_of(name, bytes)});
    }
    std::ranges::sort(all, {}, &image::name);
    return all;
}

tshark::datagram whole(const bytes_t &bytes, uint16_t port) {
    return {.src_port = 40000, .dst_port = port, .bytes = bytes, .captured = bytes.size()};
}

/// Plays the demo in a network of its own while dumpcap listens there.
void capture_demo(const std::string &path) {
    const std::string script = R"(
        ip link set lo up && ip address add 192.168.1.1/24 dev lo || exit 2
        dumpcap -q -i lo -f udp -w "$1" 2>"$1.log" & listener=$!
        tries=0
        until grep -q '^File: ' "$1.log"; do
            tries=$((tries + 1)); [ $tries -lt 400 ] || exit 3
            sleep 0.05
        done
        "$2" --log "$1.demo" >"$1.table" || { cat "$1.table" "$1.demo"; exit 4; }
        printf 'the last datagram' >/dev/udp/192.168.1.1/9 # once it is in the file, so are those before it
        tries=0
        until grep -aq 'the last datagram' "$1"; do
            tries=$((tries + 1)); [ $tries -lt 400 ] || exit 5
            sleep 0.05
        done
        kill -INT $listener; wait $listener)";
    child_process demo(
        tshark::as_ordinary_user({"unshare", "-rn", "bash", "-c", script, "demo", path, DEMO_PROGRAM}));
    while (const auto line = demo.wait_line(100s)) {
        ADD_FAILURE() << *line;
    }
    ASSERT_EQ(demo.wait_exit(10s), 0);
}

/// The datagrams in a capture file.
std::vector<tshark::datagram> datagrams_in(const std::string &path) {
    std::vector<tshark::datagram> all;
    vexa::capture file = vexa::capture::file(path);
    vexa::datagram_assembler assembler;
    vexa::raw_packet packet;
    while (file.next(packet) == vexa::capture::outcome::packet) {
        assembler.feed(packet, [&](const vexa::udp_datagram &d) {
            all.push_back({d.src.port, d.dst.port, {d.bytes.begin(), d.bytes.end()}, d.bytes.size()});
        });
    }
    return all;
}

std::string text_of_file(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

} // namespace

TEST(Dissector, IsTheFileThatTheTablesGive) {
    child_process generator({DISSECTOR_GENERATOR, DISSECTOR_ENGINE});
    std::string text;
    while (const auto line = generator.wait_line(20s)) {
        text += *line + '\n';
    }
    EXPECT_EQ(generator.wait_exit(20s), 0);
    EXPECT_TRUE(text == text_of_file(DISSECTOR_FILE)) << "build the target vexamsg_lua";
    EXPECT_GT(text.size(), 10000U);
}

TEST(Dissector, ShowsEveryByteImageAsTheDecoderReadsIt) {
    std::vector<tshark::datagram> all;
    for (const image &each : images()) {
        all.push_back(whole(each.bytes, each.port));
    }
    ASSERT_GE(all.size(), 25U);
    expect_same(all);
}

TEST(Dissector, ShowsImagesAtPortsThatAreNotTheirs) {
    std::vector<tshark::datagram> all;
    for (const image &each : images()) {
        for (const uint16_t port : {k_flight_port, k_camera_port, uint16_t{9003}, k_other_port}) {
            all.push_back(whole(each.bytes, port));
        }
    }
    expect_same(all);
}

TEST(Dissector, ShowsImagesCutAtEveryLength) {
    std::vector<tshark::datagram> all;
    for (const image &each : images()) {
        for (size_t size = 1; size < each.bytes.size(); ++size) {
            const bytes_t cut(each.bytes.begin(), each.bytes.begin() + static_cast<ptrdiff_t>(size));
            all.push_back(whole(cut, each.port));
        }
    }
    expect_same(all);
}

TEST(Dissector, ShowsImagesWhoseCaptureWasCutAtEveryLength) {
    std::vector<tshark::datagram> all;
    for (const image &each : images()) {
        for (size_t size = 1; size < each.bytes.size(); ++size) {
            all.push_back({.src_port = 40000, .dst_port = each.port, .bytes = each.bytes, .captured = size});
        }
    }
    expect_same(all);
}

TEST(Dissector, ShowsTenThousandMutatedPacketsWithoutAnError) {
    std::mt19937 random(11);
    const std::vector<image> from = images();
    std::vector<tshark::datagram> all;
    while (all.size() < 10000) {
        const image &each = from[random() % from.size()];
        bytes_t bytes = each.bytes;
        bytes.resize(random() % 4 == 0 ? 1 + random() % (bytes.size() + 20) : bytes.size());
        for (auto i = random() % 6; i > 0; --i) {
            const size_t within = random() % 2 == 0 ? std::min<size_t>(bytes.size(), 24) : bytes.size();
            bytes[random() % within] = static_cast<uint8_t>(random() % 3 == 0 ? random() % 4 : random());
        }
        const size_t captured = random() % 8 == 0 ? 1 + random() % bytes.size() : bytes.size();
        all.push_back({.src_port = 40000, .dst_port = each.port, .bytes = bytes, .captured = captured});
    }
    expect_same(all);
}

TEST(Dissector, ShowsTheDemoAsTheDecoderReadsIt) {
    const tshark::file place;
    const std::string path = place.path() + ".demo";
    capture_demo(path);
    const std::vector<tshark::datagram> sent = datagrams_in(path);
    const std::vector<tshark::packet> shown = tshark::dissect(path);
    ASSERT_EQ(shown.size(), sent.size());
    std::set<std::string> messages;
    for (size_t i = 0; i + 1 < sent.size() && !HasFailure(); ++i) { // the last one only ends the capture
        expect_same(sent[i], shown[i]);
        messages.insert(shown[i].message);
        EXPECT_THAT(shown[i].experts, testing::IsEmpty());
    }
    EXPECT_THAT(messages, testing::IsSupersetOf({"register", "unregister", "notify", "status", "message",
                                                 "heartbeat_set", "track_status", "goal_area", "orbit_status",
                                                 "orbit_area", "command_ack", "camera_command"}));
}
