// pcapng, block by block. See pcapng.h.
#include "pcapng.h"

#include "utils/ut_le.h"

#include <algorithm>
#include <array>
#include <pcap/dlt.h>
#include <string_view>

namespace vexa::pcapng {
namespace {

using bytes_t = std::vector<uint8_t>;

constexpr uint32_t k_section_block = 0x0A0D0D0A;
constexpr uint32_t k_interface_block = 1;
constexpr uint32_t k_statistics_block = 5;
constexpr uint32_t k_packet_block = 6;
constexpr uint32_t k_byte_order = 0x1A2B3C4D;
constexpr uint64_t k_unknown_length = UINT64_MAX;
constexpr uint32_t k_first_interface = 0;
constexpr size_t k_head_size = 8; // type and length of a block

// Options. Each block has numbers of its own from 2 on.
constexpr uint16_t k_end = 0;
constexpr uint16_t k_comment = 1;
constexpr uint16_t k_section_os = 3;
constexpr uint16_t k_section_application = 4;
constexpr uint16_t k_interface_name = 2;
constexpr uint16_t k_interface_time_unit = 9;
constexpr uint16_t k_statistics_begin = 2;
constexpr uint16_t k_statistics_end = 3;
constexpr uint16_t k_statistics_received = 4;
constexpr uint16_t k_statistics_dropped = 5;
constexpr uint16_t k_statistics_written = 8;
constexpr uint8_t k_nanoseconds = 9; // negative power of ten
constexpr size_t k_longest_option = 65532;

constexpr uint16_t k_file_raw = 101;

/// Files have numbers of their own for what libpcap numbers by machine.
uint16_t file_link_type(int link_type) {
    return link_type == DLT_RAW ? k_file_raw : static_cast<uint16_t>(link_type);
}

void put16(bytes_t &to, uint16_t value) {
    std::array<uint8_t, 2> bytes{};
    ut_put_le16(bytes.data(), value);
    to.insert(to.end(), bytes.begin(), bytes.end());
}

void put32(bytes_t &to, uint32_t value) {
    std::array<uint8_t, 4> bytes{};
    ut_put_le32(bytes.data(), value);
    to.insert(to.end(), bytes.begin(), bytes.end());
}

void put64(bytes_t &to, uint64_t value) {
    std::array<uint8_t, 8> bytes{};
    ut_put_le64(bytes.data(), value);
    to.insert(to.end(), bytes.begin(), bytes.end());
}

/// Times stand as two words, the higher one first.
void put_time(bytes_t &to, int64_t time_ns) {
    const auto time = static_cast<uint64_t>(time_ns);
    put32(to, static_cast<uint32_t>(time >> 32));
    put32(to, static_cast<uint32_t>(time));
}

/// Bytes, filled up to whole words.
void put_padded(bytes_t &to, std::span<const uint8_t> bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
    to.insert(to.end(), (4 - bytes.size() % 4) % 4, 0);
}

void put_text(bytes_t &to, uint16_t option, std::string_view text) {
    if (text.empty()) {
        return;
    }
    const std::string_view fitting = text.substr(0, k_longest_option);
    const bytes_t bytes(fitting.begin(), fitting.end());
    put16(to, option);
    put16(to, static_cast<uint16_t>(bytes.size()));
    put_padded(to, bytes);
}

void put_number(bytes_t &to, uint16_t option, uint64_t value) {
    put16(to, option);
    put16(to, sizeof value);
    put64(to, value);
}

void put_moment(bytes_t &to, uint16_t option, int64_t time_ns) {
    put16(to, option);
    put16(to, sizeof time_ns);
    put_time(to, time_ns);
}

void put_end(bytes_t &to) {
    put16(to, k_end);
    put16(to, 0);
}

/// A block from its beginning to its end; its length stands on both sides, so that it is known only then.
class block {
public:
    block(bytes_t &to, uint32_t type) : to_(to), begin_(to.size()) {
        put32(to_, type);
        put32(to_, 0);
    }
    ~block() {
        const auto length = static_cast<uint32_t>(to_.size() - begin_ + sizeof(uint32_t));
        put32(to_, length);
        ut_put_le32(&to_[begin_ + sizeof(uint32_t)], length);
    }
    block(const block &) = delete;
    block &operator=(const block &) = delete;

private:
    bytes_t &to_;
    size_t begin_;
};

} // namespace

void add_section(bytes_t &to, const section &about) {
    const block whole(to, k_section_block);
    put32(to, k_byte_order);
    put16(to, 1); // version 1.0
    put16(to, 0);
    put64(to, k_unknown_length); // it grows until it ends
    put_text(to, k_comment, about.comment);
    put_text(to, k_section_os, about.os);
    put_text(to, k_section_application, about.application);
    put_end(to);
}

void add_interface(bytes_t &to, const interface &from) {
    const block whole(to, k_interface_block);
    put16(to, file_link_type(from.link_type));
    put16(to, 0);
    put32(to, from.snap_bytes);
    put_text(to, k_interface_name, from.name);
    put16(to, k_interface_time_unit);
    put16(to, 1);
    put_padded(to, std::array{k_nanoseconds});
    put_end(to);
}

void add_packet(bytes_t &to, const raw_packet &packet) {
    const block whole(to, k_packet_block);
    put32(to, k_first_interface);
    put_time(to, packet.time_ns);
    put32(to, static_cast<uint32_t>(packet.bytes.size()));
    put32(to, static_cast<uint32_t>(packet.wire_size));
    put_padded(to, packet.bytes);
}

void add_statistics(bytes_t &to, const statistics &counts) {
    const block whole(to, k_statistics_block);
    put32(to, k_first_interface);
    put_time(to, counts.end_ns);
    put_moment(to, k_statistics_begin, counts.begin_ns);
    put_moment(to, k_statistics_end, counts.end_ns);
    put_number(to, k_statistics_received, counts.received);
    put_number(to, k_statistics_dropped, counts.dropped);
    put_number(to, k_statistics_written, counts.written);
    put_end(to);
}

size_t packet_size(size_t captured_bytes) {
    constexpr size_t around = 32;
    return around + (captured_bytes + 3) / 4 * 4;
}

size_t whole_blocks(std::span<const uint8_t> bytes, size_t limit) {
    size_t end = 0;
    while (end + k_head_size <= std::min(limit, bytes.size())) {
        const size_t length = ut_get_le32(&bytes[end + sizeof(uint32_t)]);
        if (length < k_head_size || length > std::min(limit, bytes.size()) - end) {
            break;
        }
        end += length;
    }
    return end;
}

} // namespace vexa::pcapng
