/**
 * @file
 * Recordings as the messages that can be sent again, in their order and with their times, from one file or
 * several, one behind the other.
 *
 *     vexa::replay_source source({"bus.pcapng"}, {});
 *     vexa::replay_message message;
 *     while (source.next(message)) { ... }
 *     report(source.counts()); // what was left out, and why
 *     source.rewind(0);
 */
#ifndef VEXA_REPLAY_SOURCE_H
#define VEXA_REPLAY_SOURCE_H

#include "capture.h"
#include "message_filter.h"
#include "remapping.h"

#include <deque>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace vexa {

struct replay_message {
    int64_t position_ns = 0; /**< since the beginning of the recording; never less than the one before */
    int64_t time_ns = 0;     /**< since 1970; when it was recorded */
    endpoint src = {};       /**< who sent it then */
    endpoint dst = {};       /**< where it goes now */
    std::vector<uint8_t> bytes = {};
};

/** What can be sent, and what cannot. */
struct replay_counts {
    uint64_t messages = 0;
    uint64_t bytes = 0;
    int64_t end_ns = 0;                 /**< position of the last message */
    uint64_t filtered = 0;              /**< not wanted by the filter, or outside of the time asked for */
    uint64_t incomplete = 0;            /**< IP fragments are missing */
    uint64_t cut = 0;                   /**< the capture kept less than there was */
    uint64_t strange = 0;               /**< UDP that is none of this system's */
    uint64_t others = 0;                /**< packets that are no UDP over IPv4 */
    std::vector<std::string> cuts = {}; /**< files that end in the middle of a packet, in words */
};

struct replay_choice {
    message_filter wanted = {}; /**< looks at messages as they were recorded */
    int64_t from_ns = 0;        /**< position */
    int64_t to_ns = std::numeric_limits<int64_t>::max();
    remapping other = {};
};

class replay_source {
public:
    /** Opens the first file. @throws capture_error */
    replay_source(std::vector<std::string> files, replay_choice choice);

    /** Takes the next message; false at the end. @throws capture_error when a file is damaged */
    bool next(replay_message &to);

    /** Goes on with the first message that is not before this position. @throws capture_error */
    void rewind(int64_t position_ns);

    /** Of what was read since the last rewind. */
    [[nodiscard]] const replay_counts &counts() const { return counts_; }

private:
    void open_next();
    void read_on();
    void take(const udp_datagram &datagram);
    void add(const udp_datagram &datagram, int64_t position_ns);
    [[nodiscard]] int64_t position_of(int64_t time_ns);

    std::vector<std::string> files_;
    replay_choice choice_;
    int64_t from_ns_;
    std::unique_ptr<capture> file_;
    size_t files_opened_ = 0;
    std::unique_ptr<datagram_assembler> assembler_;
    std::deque<replay_message> ready_;
    replay_counts counts_;
    bool at_beginning_ = true; // of all
    bool in_new_file_ = false;
    int64_t begin_ns_ = 0; // time that has position 0
    int64_t last_ns_ = 0;  // position
};

} // namespace vexa

#endif
