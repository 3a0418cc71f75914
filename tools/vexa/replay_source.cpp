// Recordings read as messages. See replay_source.h.
#include "replay_source.h"

#include <algorithm>
#include <utility>

namespace vexa {

replay_source::replay_source(std::vector<std::string> files, replay_choice choice)
    : files_(std::move(files)), choice_(std::move(choice)), from_ns_(choice_.from_ns) {
    rewind(0);
}

void replay_source::rewind(int64_t position_ns) {
    from_ns_ = std::max(position_ns, choice_.from_ns);
    files_opened_ = 0;
    assembler_ = std::make_unique<datagram_assembler>();
    ready_.clear();
    counts_ = {};
    at_beginning_ = true;
    last_ns_ = 0;
    open_next();
}

void replay_source::open_next() {
    file_ = std::make_unique<capture>(capture::file(files_[files_opened_]));
    in_new_file_ = files_opened_ > 0;
    ++files_opened_;
}

bool replay_source::next(replay_message &to) {
    while (ready_.empty() && (file_ || files_opened_ < files_.size())) {
        if (!file_) {
            open_next();
        }
        read_on();
    }
    if (ready_.empty()) {
        return false;
    }
    to = std::move(ready_.front());
    ready_.pop_front();
    return true;
}

/// Takes a packet, or notes that the file has no more.
void replay_source::read_on() {
    const auto hand_on = [this](const udp_datagram &datagram) { take(datagram); };
    const uint64_t others = assembler_->others();
    try {
        raw_packet packet;
        if (file_->next(packet) == capture::outcome::packet) {
            assembler_->feed(packet, hand_on);
        } else {
            file_.reset();
        }
    } catch (const capture_cut &cut) {
        counts_.cuts.emplace_back(cut.what());
        file_.reset();
    }
    if (!file_ && files_opened_ == files_.size()) {
        assembler_->finish(hand_on);
    }
    counts_.others += assembler_->others() - others;
}

/// Time never goes back: what was written late is due at once, and a file from earlier follows without a gap.
int64_t replay_source::position_of(int64_t time_ns) {
    if (std::exchange(at_beginning_, false)) {
        begin_ns_ = time_ns;
    }
    if (std::exchange(in_new_file_, false) && time_ns - begin_ns_ < last_ns_) {
        begin_ns_ = time_ns - last_ns_;
    }
    last_ns_ = std::max(last_ns_, time_ns - begin_ns_);
    return last_ns_;
}

void replay_source::take(const udp_datagram &datagram) {
    const int64_t position_ns = position_of(datagram.time_ns);
    const formats::datagram payload{.bytes = datagram.bytes,
                                    .wire_size = datagram.wire_size,
                                    .dst_port = datagram.dst.port,
                                    .incomplete = datagram.incomplete};
    if (datagram.incomplete) {
        ++counts_.incomplete;
    } else if (formats::recognise(payload) == nullptr) {
        ++counts_.strange;
    } else if (datagram.bytes.size() < datagram.wire_size) {
        ++counts_.cut;
    } else if (position_ns < from_ns_ || position_ns > choice_.to_ns ||
               !choice_.wanted.matches({datagram, formats::decode(payload)})) {
        ++counts_.filtered;
    } else {
        add(datagram, position_ns);
    }
}

void replay_source::add(const udp_datagram &datagram, int64_t position_ns) {
    replay_message message{.position_ns = position_ns,
                           .time_ns = datagram.time_ns,
                           .src = datagram.src,
                           .bytes = {datagram.bytes.begin(), datagram.bytes.end()}};
    message.dst = choice_.other.apply(message.bytes, datagram.dst);
    ++counts_.messages;
    counts_.bytes += message.bytes.size();
    counts_.end_ns = position_ns;
    ready_.push_back(std::move(message));
}

} // namespace vexa
