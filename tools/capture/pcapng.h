/**
 * @file
 * The blocks of a pcapng file, as Wireshark, tcpdump and this project's own readers take them: libpcap reads
 * such files but cannot write them. A file is a section header, the description of one interface, a block for
 * each packet, and statistics at its end, which a file that was cut off lacks.
 *
 *     std::vector<uint8_t> bytes;
 *     vexa::pcapng::add_section(bytes, {.application = "vexa 1.0.0"});
 *     vexa::pcapng::add_interface(bytes, {.link_type = DLT_EN10MB, .snap_bytes = 262144, .name = "eth0"});
 *     vexa::pcapng::add_packet(bytes, packet);
 *
 * Everything is little-endian, whatever the machine, and times are in nanoseconds since 1970.
 */
#ifndef VEXA_PCAPNG_H
#define VEXA_PCAPNG_H

#include "packet.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vexa::pcapng {

/** Who wrote a file, and why; what is empty is left out. */
struct section {
    std::string application = {};
    std::string os = {};
    std::string comment = {};
};

/** Where its packets were seen. */
struct interface {
    int link_type = 0; /**< a DLT_ number of libpcap */
    uint32_t snap_bytes = 0;
    std::string name = {};
};

/** What became of the packets. */
struct statistics {
    int64_t begin_ns = 0; /**< of the capture, since 1970 */
    int64_t end_ns = 0;
    uint64_t received = 0; /**< by the interface */
    uint64_t dropped = 0;  /**< of them, for lack of room */
    uint64_t written = 0;  /**< to this file */
};

// Each appends one whole block.
void add_section(std::vector<uint8_t> &to, const section &about);
void add_interface(std::vector<uint8_t> &to, const interface &from);
void add_packet(std::vector<uint8_t> &to, const raw_packet &packet);
void add_statistics(std::vector<uint8_t> &to, const statistics &counts);

/** [bytes] of the block of a packet of which so many were captured. */
size_t packet_size(size_t captured_bytes);

/** [bytes] of the whole blocks at the start of `bytes` that end within the first `limit`. */
size_t whole_blocks(std::span<const uint8_t> bytes, size_t limit);

} // namespace vexa::pcapng

#endif
