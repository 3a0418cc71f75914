/**
 * @file
 * Where recorded packets go: a pcapng file, or a row of them that begins anew after so much or so long and of
 * which only the last ones may be kept. A file is complete at every moment: see block_file.h.
 *
 *     vexa::recording to({.file = "bus.pcapng"}, section, interface);
 *     to.add(packet);
 *     to.tick(counts);    // now and then: what came is written, and once a second is on the disk
 *     to.finish(counts);  // the statistics at the end
 */
#ifndef VEXA_RECORDING_H
#define VEXA_RECORDING_H

#include "amount.h"
#include "block_file.h"
#include "capture.h"
#include "pcapng.h"

#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace vexa {

struct recording_options {
    std::string file;
    bool overwrite = false;
    amount split = {};     /**< begin a new file after so much; then "bus.pcapng" is "bus-00001.pcapng" */
    size_t most_files = 0; /**< older ones are removed; 0: all are kept */
};

class recording {
public:
    /**
     * Creates the file.
     * @throws file_error when it cannot, or when there is one already, or one of the row
     */
    recording(recording_options how, pcapng::section about, pcapng::interface from);

    /** @throws file_error */
    void add(const raw_packet &packet);

    /** Writes what was added, and brings it to the disk once a second. @throws file_error */
    void tick(const capture_counts &so_far);

    /** Ends the file, with the counts of the whole capture. @throws file_error */
    void finish(const capture_counts &counts);

    /** The file that is written to. */
    [[nodiscard]] const std::string &name() const { return file_->name(); }

    /** The files that are there now, the oldest first. */
    [[nodiscard]] const std::deque<std::string> &files() const { return files_; }

    /** How many there were, those removed too. */
    [[nodiscard]] size_t files_begun() const { return number_; }
    [[nodiscard]] uint64_t packets() const { return packets_; }

    /** [bytes] of all files, those removed too. */
    [[nodiscard]] uint64_t size() const { return closed_size_ + file_->size(); }

    /** The same once one more packet has come and the file was ended. */
    [[nodiscard]] uint64_t size_with(const raw_packet &packet) const;

private:
    [[nodiscard]] std::string next_name() const;
    [[nodiscard]] bool is_full(const raw_packet &packet) const;
    void begin_file();
    void end_file();
    void forget_oldest();

    recording_options how_;
    pcapng::section about_;
    pcapng::interface from_;
    std::unique_ptr<block_file> file_;
    std::deque<std::string> files_;
    std::vector<uint8_t> block_;
    size_t number_ = 0;
    uint64_t packets_ = 0;
    uint64_t packets_before_ = 0; // this file
    uint64_t closed_size_ = 0;
    int64_t begin_ns_; // since 1970
    int64_t file_since_ns_ = 0;
    capture_counts counts_ = {};
};

/** Says why a recording could not be made there, before anything has come. @throws file_error */
void check_target(const recording_options &how);

/** The name of a file of a row: "logs/bus-00007.pcapng". */
std::string numbered_name(const std::string &file, size_t number);

} // namespace vexa

#endif
