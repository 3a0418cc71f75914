/**
 * @file
 * Sends the messages of a recording again: in their order, at the time that each has in the recording, slower
 * or faster, again and again; and does what keys ask for meanwhile.
 *
 *     vexa::replay_player player(source, {.rate = 2}, end_signals.get());
 *     const vexa::replay_result done = player.run();
 */
#ifndef VEXA_REPLAY_PLAYER_H
#define VEXA_REPLAY_PLAYER_H

#include "bench_socket.h"
#include "keyboard.h"
#include "progress_line.h"
#include "replay_source.h"

#include <chrono>
#include <map>
#include <utility>

namespace vexa {

struct player_options {
    double rate = 1;       /**< times as fast as recorded; 0: as fast as possible */
    uint64_t rounds = 1;   /**< 0: until it is ended */
    bool paused = false;   /**< at first */
    int64_t begin_ns = 0;  /**< position at which each round begins */
    int64_t length_ns = 0; /**< of the recording, for the progress */
};

struct replay_result {
    uint64_t sent = 0;
    uint64_t bytes = 0;
    uint64_t rounds = 0;                                        /**< that came to their end */
    double seconds = 0;                                         /**< that it took */
    bool was_ended = false;                                     /**< by a signal or a key */
    std::map<std::pair<endpoint, int>, uint64_t> failures = {}; /**< by destination and errno */
};

class replay_player {
public:
    /**
     * @param source       at its beginning
     * @param end_signals  readable when it is to end
     * @throws std::system_error when there is no socket to be had
     */
    replay_player(replay_source &source, const player_options &how, int end_signals);

    /** @throws capture_error when a file cannot be read any more, std::system_error */
    replay_result run();

    [[nodiscard]] bool has_keyboard() const { return keyboard_.fd() >= 0; }

private:
    using clock = std::chrono::steady_clock;
    enum class step { send, sought, end };

    bool play_round();
    step wait_for(const replay_message &next);
    void send(const replay_message &message);
    void handle(const key &pressed);
    void seek(int64_t by_ns);
    void set_paused(bool paused);
    void show_progress();
    void poll_until(clock::time_point when);
    [[nodiscard]] int64_t position() const;
    [[nodiscard]] clock::time_point due(int64_t position_ns) const;

    replay_source &source_;
    player_options how_;
    int end_signals_;
    descriptor socket_;
    keyboard keyboard_;
    progress_line line_;
    replay_result result_;
    bool paused_ = false;
    bool one_step_ = false;
    bool ended_ = false;
    bool sought_ = false;
    int64_t anchor_ns_ = 0;    // position ...
    clock::time_point anchor_; // ... and when it was, or is while paused
};

} // namespace vexa

#endif
