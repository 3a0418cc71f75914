// pcapng files: their bytes, and what is left of one that was cut off anywhere.
#include "block_file.h"
#include "capture.h"
#include "child_process.h"
#include "packets.h"
#include "pcapng.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <numeric>
#include <pcap/dlt.h>
#include <sys/resource.h>

namespace pcapng = vexa::pcapng;
using testing::HasSubstr;
using vexa::block_file;

namespace {

using bytes_t = std::vector<uint8_t>;

constexpr std::chrono::seconds k_patience{60};

/// A path of this test's own; the file is removed with its object.
class temporary_file {
public:
    ~temporary_file() { (void)std::filesystem::remove(path_); }
    [[nodiscard]] const std::string &path() const { return path_; }
    void write(std::span<const uint8_t> bytes) const {
        std::ofstream out(path_, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    [[nodiscard]] bytes_t content() const {
        std::ifstream in(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>{in}, {}};
    }

private:
    std::string path_ = testing::TempDir() + "vexa-pcapng-" + std::to_string(getpid());
};

vexa::raw_packet raw(const bytes_t &bytes, int64_t time_ns) {
    return {.time_ns = time_ns, .link_type = DLT_RAW, .wire_size = bytes.size(), .bytes = bytes};
}

/// A small recording, block by block: a head of two, four packets, statistics.
std::vector<bytes_t> blocks() {
    std::vector<bytes_t> all(7);
    pcapng::add_section(all[0], {.application = "test", .os = "os", .comment = ""});
    pcapng::add_interface(all[1], {.link_type = DLT_RAW, .snap_bytes = 65535, .name = "lo"});
    for (uint8_t i = 0; i < 4; ++i) {
        const bytes_t packet = packets::ipv4({}, packets::udp(40000, 9005, bytes_t(10U + i, i)));
        pcapng::add_packet(all[2U + i], raw(packet, 1'700'000'000'000'000'001 + i));
    }
    pcapng::add_statistics(all[6], {.received = 4});
    return all;
}

bytes_t joined(const std::vector<bytes_t> &all) {
    return std::accumulate(all.begin(), all.end(), bytes_t{}, packets::operator+);
}

/// Whether an offset is a block's end, and how many packets stand whole before it.
struct cut_point {
    size_t offset;
    bool at_end_of_block;
    bool has_head;
    size_t packets;
};

cut_point cut_at(size_t offset) {
    cut_point where{offset, false, false, 0};
    size_t end = 0;
    size_t number = 0;
    for (const bytes_t &each : blocks()) {
        end += each.size();
        if (end > offset) {
            break;
        }
        where.at_end_of_block = end == offset;
        where.has_head = number >= 1;
        where.packets += number >= 2 && number <= 5 ? 1 : 0;
        ++number;
    }
    return where;
}

struct read_back {
    size_t packets = 0;
    bool opened = false;
    bool cut = false;
};

read_back read(const std::string &path) {
    read_back result;
    try {
        vexa::capture file = vexa::capture::file(path);
        result.opened = true;
        vexa::raw_packet packet;
        while (file.next(packet) == vexa::capture::outcome::packet) {
            ++result.packets;
        }
    } catch (const vexa::capture_cut &) {
        result.cut = true;
    } catch (const vexa::capture_error &) {
        result.opened = false;
    }
    return result;
}

#ifdef TSHARK_PROGRAM
/// How many packets tshark shows.
size_t shown_by_tshark(const std::string &path) {
    child_process tshark({TSHARK_PROGRAM, "-n", "-r", path, "-T", "fields", "-e", "udp.length"},
                         {.error_file = "/dev/null", .merge_errors = false});
    size_t lines = 0;
    while (tshark.wait_line(k_patience)) {
        ++lines;
    }
    return lines;
}
#endif

} // namespace

TEST(Pcapng, ASectionHeaderSaysWhoWroteIt) {
    bytes_t block;
    pcapng::add_section(block, {.application = "vexa!", .os = "Linux", .comment = "why"});
    EXPECT_EQ(block, (bytes_t{0x0A, 0x0D, 0x0D, 0x0A, 64,   0,    0,    0,                  // type, length
                              0x4D, 0x3C, 0x2B, 0x1A, 1,    0,    0,    0,                  // byte order, 1.0
                              0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,               // length unknown
                              1,    0,    3,    0,    'w',  'h',  'y',  0,                  // comment
                              3,    0,    5,    0,    'L',  'i',  'n',  'u',  'x', 0, 0, 0, // os
                              4,    0,    5,    0,    'v',  'e',  'x',  'a',  '!', 0, 0, 0, // application
                              0,    0,    0,    0,    64,   0,    0,    0}));
}

TEST(Pcapng, AnInterfaceCountsInNanoseconds) {
    bytes_t block;
    pcapng::add_interface(block, {.link_type = DLT_EN10MB, .snap_bytes = 0x40000, .name = "eth0"});
    EXPECT_EQ(block, (bytes_t{1, 0, 0, 0, 40,  0,   0,   0,   // type, length
                              1, 0, 0, 0, 0,   0,   4,   0,   // Ethernet, snap length
                              2, 0, 4, 0, 'e', 't', 'h', '0', // name
                              9, 0, 1, 0, 9,   0,   0,   0,   // 10^-9 s
                              0, 0, 0, 0, 40,  0,   0,   0}));
}

TEST(Pcapng, BareIpHasTheNumberThatItHasInFiles) {
    bytes_t block;
    pcapng::add_interface(block, {.link_type = DLT_RAW});
    EXPECT_EQ(block[8], 101);
}

TEST(Pcapng, APacketHasItsTimeInTwoWordsAndIsFilledUp) {
    const bytes_t bytes = {0xA1, 0xA2, 0xA3, 0xA4, 0xA5};
    bytes_t block;
    pcapng::add_packet(block, {.time_ns = 0x0102030405060708, .wire_size = 300, .bytes = bytes});
    EXPECT_EQ(block, (bytes_t{6,    0,    0,    0,    40,   0, 0, 0, // type, length
                              0,    0,    0,    0,                   // interface
                              4,    3,    2,    1,    8,    7, 6, 5, // time, the higher word first
                              5,    0,    0,    0,    44,   1, 0, 0, // captured, travelled
                              0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0, 0, 0, 40, 0, 0, 0}));
    EXPECT_EQ(pcapng::packet_size(5), block.size());
}

TEST(Pcapng, StatisticsSayWhatWasLost) {
    bytes_t block;
    pcapng::add_statistics(block,
                           {.begin_ns = 0x100000002, .end_ns = 3, .received = 7, .dropped = 6, .written = 5});
    EXPECT_EQ(block, (bytes_t{5, 0, 0, 0, 88, 0, 0, 0, 0, 0, 0, 0, // type, length, interface
                              0, 0, 0, 0, 3,  0, 0, 0,             // time
                              2, 0, 8, 0, 1,  0, 0, 0, 2, 0, 0, 0, // begin
                              3, 0, 8, 0, 0,  0, 0, 0, 3, 0, 0, 0, // end
                              4, 0, 8, 0, 7,  0, 0, 0, 0, 0, 0, 0, // received
                              5, 0, 8, 0, 6,  0, 0, 0, 0, 0, 0, 0, // dropped
                              8, 0, 8, 0, 5,  0, 0, 0, 0, 0, 0, 0, // written
                              0, 0, 0, 0, 88, 0, 0, 0}));
}

TEST(Pcapng, WholeBlocksAreThoseThatEndInTime) {
    const bytes_t bytes = joined(blocks());
    const size_t first = blocks()[0].size();
    EXPECT_EQ(pcapng::whole_blocks(bytes, bytes.size()), bytes.size());
    EXPECT_EQ(pcapng::whole_blocks(bytes, first), first);
    EXPECT_EQ(pcapng::whole_blocks(bytes, first - 1), 0U);
    EXPECT_EQ(pcapng::whole_blocks(bytes, first + 9), first);
    EXPECT_EQ(pcapng::whole_blocks(bytes_t(16, 0), 16), 0U) << "a length of 0 leads nowhere";
}

TEST(CutRecording, GivesEveryPacketBeforeTheCutWhereverItIs) {
    const bytes_t whole = joined(blocks());
    const temporary_file file;
    ASSERT_LT(whole.size(), 700U);
    for (size_t offset = 0; offset <= whole.size(); ++offset) {
        file.write(std::span(whole).first(offset));
        const cut_point where = cut_at(offset);
        const read_back got = read(file.path());
        EXPECT_EQ(got.packets, where.packets) << "cut at byte " << offset;
        EXPECT_EQ(got.opened, where.has_head) << "cut at byte " << offset;
        EXPECT_EQ(got.cut, where.has_head && !where.at_end_of_block) << "cut at byte " << offset;
    }
}

#ifdef TSHARK_PROGRAM
/// At the end of block n, a byte before, a byte behind.
class CutForTshark : public testing::TestWithParam<size_t> {};

TEST_P(CutForTshark, ShowsEveryPacketBeforeTheCut) {
    const bytes_t whole = joined(blocks());
    size_t end = 0;
    for (size_t i = 0; i <= GetParam(); ++i) {
        end += blocks()[i].size();
    }
    const temporary_file file;
    for (const size_t offset : {end - 1, end, end + 1}) {
        if (offset <= whole.size()) {
            file.write(std::span(whole).first(offset));
            EXPECT_EQ(shown_by_tshark(file.path()), cut_at(offset).packets) << "cut at byte " << offset;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Blocks, CutForTshark, testing::Range(size_t{0}, size_t{7}));
#endif

TEST(BlockFile, RefusesAFileThatExistsButForOverwriting) {
    const temporary_file file;
    file.write(bytes_t{1, 2, 3});
    try {
        block_file refused(file.path(), block_file::existing::refuse);
        FAIL() << "it was taken";
    } catch (const vexa::file_error &error) {
        EXPECT_THAT(error.what(), HasSubstr("exists already"));
        EXPECT_THAT(error.what(), HasSubstr("--force"));
    }
    EXPECT_EQ(file.content(), (bytes_t{1, 2, 3}));
    const block_file taken(file.path(), block_file::existing::overwrite);
    EXPECT_EQ(file.content(), bytes_t{});
}

TEST(BlockFile, HasWrittenWhatWasFlushed) {
    const temporary_file file;
    block_file growing(file.path(), block_file::existing::refuse);
    const bytes_t whole = joined(blocks());
    growing.append(whole);
    EXPECT_EQ(growing.size(), whole.size());
    growing.flush();
    EXPECT_EQ(file.content(), whole);
    growing.append(blocks()[2]);
    growing.sync();
    EXPECT_EQ(file.content(), packets::operator+(whole, blocks()[2]));
}

TEST(BlockFile, IsCutBackToWholeBlocksWhenTheDiskIsFull) {
    const temporary_file file;
    const bytes_t whole = joined(blocks());
    ASSERT_NE(std::signal(SIGXFSZ, SIG_IGN), SIG_ERR);
    const rlimit room{whole.size() - 20, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &room), 0);
    block_file growing(file.path(), block_file::existing::refuse);
    growing.append(whole);
    try {
        growing.flush();
        FAIL() << "there was no room";
    } catch (const vexa::file_error &error) {
        EXPECT_THAT(error.what(), HasSubstr("File too large"));
    }
    EXPECT_EQ(file.content(),
              packets::bytes_t(whole.begin(), whole.end() - static_cast<ptrdiff_t>(blocks()[6].size())));
    const read_back got = read(file.path());
    EXPECT_EQ(got.packets, 4U);
    EXPECT_FALSE(got.cut);
}
