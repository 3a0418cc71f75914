// Growth of the nodes. See memory.h.
#include "memory.h"

#include <algorithm>
#include <fmt/format.h>

namespace soak {
namespace {

constexpr int64_t k_piece = 64 << 10;         // [bytes]
constexpr int64_t k_other_slack = 16 << 10;   // [bytes] rare messages give the node's own records a new row
constexpr int64_t k_resident_slack = 1 << 20; // [bytes] pages touched for the first time
constexpr int64_t k_overhead = 40;            // [bytes] of a block at most: the allocator's, and the seal

/// Bytes that queued messages may have added to a process.
int64_t queues_gross(const memory_report &before, const memory_report &now) {
    return (now.pieces - before.pieces) * (k_piece + k_overhead) +
           std::max<int64_t>(0, now.kept_bytes - before.kept_bytes) +
           std::max<int64_t>(0, now.kept_blocks - before.kept_blocks) * k_overhead;
}

class comparison {
public:
    comparison(uint16_t id, std::vector<std::string> &found) : id_(id), found_(found) {}

    void within(const char *what, int64_t growth, int64_t least, int64_t most) {
        if (growth < least || growth > most) {
            found_.push_back(fmt::format("memory of node {}: {} have grown by {}, at most {} are explained",
                                         id_, what, growth, most));
        }
    }

private:
    uint16_t id_;
    std::vector<std::string> &found_;
};

} // namespace

std::vector<std::string> unexplained_memory(const memory_reports &before, const memory_reports &now,
                                            bool given_back) {
    std::vector<std::string> found;
    for (const auto &[id, is] : now) {
        const memory_report &was = before.at(id);
        comparison compare{id, found};
        if (is.heap_watched) {
            const int64_t queues = queues_gross(was, is);
            compare.within("blocks of the library beyond its queues", is.blocks_beyond, 0, 0);
            compare.within("bytes of the library beyond its queues", is.bytes_beyond, 0, 0);
            const int64_t in_doubt = given_back ? 0 : 1; // two threads that queue at once
            compare.within("pieces of kept copies beyond those due", is.pieces - is.pieces_due, -in_doubt,
                           in_doubt);
            compare.within("bytes of the rest of the process", is.other_bytes - was.other_bytes,
                           -k_other_slack, k_other_slack);
            compare.within("resident bytes", is.resident - was.resident, INT64_MIN,
                           queues + k_resident_slack);
        }
        compare.within("threads", is.threads - was.threads, 0, 0);
        compare.within("descriptors", is.descriptors - was.descriptors, 0, 0);
    }
    return found;
}

std::vector<std::string> memory_summary(const memory_reports &before, const memory_reports &now,
                                        bool given_back) {
    memory_report grown;
    int64_t most_resident = 0;
    int64_t most_other = 0;
    bool watched = true;
    for (const auto &[id, is] : now) {
        const memory_report &was = before.at(id);
        watched = watched && is.heap_watched;
        grown.library_bytes += is.library_bytes - was.library_bytes;
        grown.pieces += is.pieces - was.pieces;
        grown.pieces_due += is.pieces_due - was.pieces_due;
        grown.copied_blocks += is.copied_blocks - was.copied_blocks;
        grown.copied_bytes += is.copied_bytes - was.copied_bytes;
        grown.kept_blocks += is.kept_blocks - was.kept_blocks;
        grown.bytes_beyond += is.bytes_beyond;
        most_resident = std::max(most_resident, is.resident - was.resident);
        most_other = std::max(most_other, std::abs(is.other_bytes - was.other_bytes));
    }
    const memory_report &one = now.begin()->second;
    const std::string counts =
        fmt::format("threads {} and descriptors {} in each node, as before", one.threads, one.descriptors);
    if (!watched) {
        return {"heap not measured: built with a sanitizer", counts};
    }
    return {
        fmt::format("queued messages since the warm-up: {} copies of {} bytes, {}", grown.copied_blocks,
                    grown.copied_bytes,
                    given_back
                        ? "given back when they leave their queue"
                        : fmt::format("kept: {} pieces of 64 KiB, {} due", grown.pieces, grown.pieces_due)),
        fmt::format(
            "rest of the library's heap: {:+} bytes in all nodes, {:+} more than its queues must take; {:+} "
            "statuses in the receive queues",
            grown.library_bytes, grown.bytes_beyond, grown.kept_blocks),
        fmt::format("rest of the heap: at most {} bytes up or down in a node", most_other),
        fmt::format("resident: at most {:+} KiB in a node", most_resident / 1024), counts};
}

} // namespace soak
