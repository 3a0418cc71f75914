/**
 * @file
 * What the nodes hold, compared with what they held after the warm-up: the library's memory to the byte, the
 * rest of the process, threads and descriptors.
 */
#ifndef SOAK_MEMORY_H
#define SOAK_MEMORY_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace soak {

/** What a node has reported while idle. */
struct memory_report {
    bool heap_watched = false;
    int64_t blocks_beyond = 0; /**< of the library, since the warm-up, beyond what its queues must take */
    int64_t bytes_beyond = 0;
    int64_t library_bytes = 0; /**< what the library has on the heap beside the pieces */
    int64_t pieces = 0;        /**< of 64 KiB, in which kept copies lie */
    int64_t pieces_due = 0;    /**< that the copies need, if they are kept; one more or less may be */
    int64_t copied_blocks = 0; /**< queued messages so far */
    int64_t copied_bytes = 0;  /**< of their copies */
    int64_t kept_blocks =
        0; /**< statuses in the receive queue; one that was damaged may have a key of its own */
    int64_t kept_bytes = 0;  /**< of these */
    int64_t other_bytes = 0; /**< on the heap, not the library's */
    int64_t resident = 0;    /**< [bytes] of the process in memory */
    int64_t threads = 0;
    int64_t descriptors = 0;
};

using memory_reports = std::map<uint16_t, memory_report>; /**< by node id */

/**
 * What has grown and must not have, one line each.
 * @param given_back  whether the copies of queued messages are; if not, they are all still there
 */
std::vector<std::string> unexplained_memory(const memory_reports &before, const memory_reports &now,
                                            bool given_back);

/** The same in sums, for the report. */
std::vector<std::string> memory_summary(const memory_reports &before, const memory_reports &now,
                                        bool given_back);

} // namespace soak

#endif
