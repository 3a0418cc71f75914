// Recordings in files. See recording.h.
#include "recording.h"

#include "wall_clock.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fmt/core.h>
#include <unistd.h>
#include <utility>

namespace vexa {
namespace {

namespace fs = std::filesystem;

/// [bytes] of the last block, whatever it says.
size_t statistics_size() {
    static const size_t size = [] {
        std::vector<uint8_t> block;
        pcapng::add_statistics(block, {});
        return block.size();
    }();
    return size;
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

/// The files of a row that stand there.
std::vector<fs::path> row_of(const std::string &file) {
    const fs::path pattern{file};
    const std::string begin = pattern.stem().string() + '-';
    const std::string end = pattern.extension().string();
    const fs::path directory = pattern.has_parent_path() ? pattern.parent_path() : fs::path{"."};
    std::vector<fs::path> found;
    std::error_code unreadable; // creating a file there will say it better
    for (const fs::directory_entry &each : fs::directory_iterator(directory, unreadable)) {
        const std::string name = each.path().filename().string();
        if (name.size() < begin.size() + end.size() || !name.starts_with(begin) || !name.ends_with(end)) {
            continue;
        }
        const std::string number = name.substr(begin.size(), name.size() - begin.size() - end.size());
        if (number.size() >= 5 && std::ranges::all_of(number, is_digit)) {
            found.push_back(each.path());
        }
    }
    return found;
}

void remove_or_refuse_row(const recording_options &how) {
    const std::vector<fs::path> row = row_of(how.file);
    if (!row.empty() && !how.overwrite) {
        throw file_error(fmt::format("{} exists already; choose another name, or remove all files of that "
                                     "row with --force",
                                     std::ranges::min(row).string()));
    }
    for (const fs::path &each : row) {
        std::error_code failure;
        if (!fs::remove(each, failure) && failure) {
            throw file_error(fmt::format("cannot remove {}: {}", each.string(), failure.message()));
        }
    }
}

} // namespace

std::string numbered_name(const std::string &file, size_t number) {
    const fs::path path{file};
    const std::string name =
        fmt::format("{}-{:05}{}", path.stem().string(), number, path.extension().string());
    return (path.parent_path() / name).string();
}

void check_target(const recording_options &how) {
    const fs::path path{how.file};
    std::error_code unknown;
    if (!how.overwrite && fs::exists(path, unknown)) {
        throw file_error(
            fmt::format("{} exists already; choose another name, or overwrite it with --force", how.file));
    }
    const fs::path directory = path.has_parent_path() ? path.parent_path() : fs::path{"."};
    if (access(directory.c_str(), W_OK | X_OK) != 0) {
        throw file_error(fmt::format("cannot create {}: {}", how.file, strerror(errno)));
    }
}

recording::recording(recording_options how, pcapng::section about, pcapng::interface from)
    : how_(std::move(how)), about_(std::move(about)), from_(std::move(from)), begin_ns_(wall_clock_ns()) {
    if (how_.split.is_given()) {
        remove_or_refuse_row(how_);
    }
    begin_file();
}

std::string recording::next_name() const {
    return how_.split.is_given() ? numbered_name(how_.file, number_ + 1) : how_.file;
}

void recording::begin_file() {
    closed_size_ += file_ ? file_->size() : 0;
    file_ = std::make_unique<block_file>(next_name(), how_.overwrite ? block_file::existing::overwrite
                                                                     : block_file::existing::refuse);
    ++number_;
    files_.push_back(file_->name());
    packets_before_ = packets_;
    block_.clear();
    pcapng::add_section(block_, about_);
    pcapng::add_interface(block_, from_);
    file_->append(block_);
    file_->sync();
    if (how_.most_files > 0 && files_.size() > how_.most_files) {
        forget_oldest();
    }
}

void recording::forget_oldest() {
    std::error_code failure;
    if (!fs::remove(files_.front(), failure) && failure) {
        throw file_error(fmt::format("cannot remove {}: {}", files_.front(), failure.message()));
    }
    files_.pop_front();
}

/// Whether a packet belongs to the next file. One packet fits in any.
bool recording::is_full(const raw_packet &packet) const {
    if (packets_ == packets_before_) {
        return false;
    }
    const bool too_long = how_.split.time_ns && packet.time_ns - file_since_ns_ >= *how_.split.time_ns;
    return too_long || (how_.split.bytes && size_with(packet) - closed_size_ > *how_.split.bytes);
}

uint64_t recording::size_with(const raw_packet &packet) const {
    return size() + pcapng::packet_size(packet.bytes.size()) + statistics_size();
}

void recording::add(const raw_packet &packet) {
    if (is_full(packet)) {
        end_file();
        begin_file();
    }
    if (packets_ == packets_before_) {
        file_since_ns_ = packet.time_ns;
    }
    block_.clear();
    pcapng::add_packet(block_, packet);
    file_->append(block_);
    ++packets_;
}

void recording::tick(const capture_counts &so_far) {
    counts_ = so_far;
    file_->flush();
    file_->sync_when_due();
}

void recording::end_file() {
    block_.clear();
    pcapng::add_statistics(block_, {.begin_ns = begin_ns_,
                                    .end_ns = wall_clock_ns(),
                                    .received = counts_.received,
                                    .dropped = counts_.dropped,
                                    .written = packets_ - packets_before_});
    file_->append(block_);
    file_->sync();
}

void recording::finish(const capture_counts &counts) {
    counts_ = counts;
    end_file();
}

} // namespace vexa
