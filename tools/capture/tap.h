/**
 * @file
 * Listening on the bus: every UDP datagram of an interface or a file, until it is enough.
 *
 *     vexa::bus_tap tap({.interface = "any", .timeout_s = 5});
 *     const vexa::tap_end why = tap.run([&](const vexa::udp_datagram &d) { show(d); return true; });
 *
 * @par Threads  One object is used by one thread. SIGINT and SIGTERM end a run instead of the program once an
 * object has been made.
 */
#ifndef VEXA_TAP_H
#define VEXA_TAP_H

#include "capture.h"
#include "datagrams.h"

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace vexa {

struct tap_options {
    std::string interface = "any";
    std::string file = {};     /**< read instead of the interface when not empty; "-" is standard input */
    double timeout_s = 0;      /**< 0: no limit */
    capture::options how = {}; /**< of the interface */
};

/** Why a run has ended. */
enum class tap_end {
    enough,    /**< the taker had enough */
    asked,     /**< by SIGINT or SIGTERM */
    timed_out, /**< of the time given */
    file_ended
};

class bus_tap {
public:
    /** Opens the interface or file. @throws capture_error, std::system_error */
    explicit bus_tap(const tap_options &options);
    ~bus_tap();
    bus_tap(const bus_tap &) = delete;
    bus_tap &operator=(const bus_tap &) = delete;

    /** Takes a datagram; false when it was the last one wanted. */
    using taker = std::function<bool(const udp_datagram &)>;

    /** Called between datagrams, at least every `idle_ms`; false to end. */
    using idler = std::function<bool()>;

    /**
     * Hands on datagrams until one of the reasons to end. Nothing that the taker does may keep it longer than
     * the system's buffer lasts; what is lost meanwhile is counted. What has come before a signal is handed
     * on.
     * @throws capture_error when a file is damaged or the interface goes
     */
    tap_end run(const taker &take);
    tap_end run(const taker &take, const idler &idle, int idle_ms);

    /** Takes a packet as it was captured; false when it was the last one wanted. */
    using packet_taker = std::function<bool(const raw_packet &)>;

    /** The same for the packets themselves. @throws as run does */
    tap_end run_packets(const packet_taker &take, const idler &idle, int idle_ms);

    [[nodiscard]] int link_type() const { return capture_.link_type(); }
    /** Lets the idler be called also as soon as this descriptor is readable. It stays the caller's; -1 is
     * none. */
    void wake_on(int fd) { also_.push_back(fd); }

    [[nodiscard]] capture_counts counts() const { return capture_.counts(); }

private:
    bool take_waiting(const packet_taker &take, tap_end &why);
    [[nodiscard]] int patience_ms(int idle_ms) const;

    capture capture_;
    datagram_assembler assembler_;
    int end_signals_;
    std::vector<int> also_;                  // descriptors that wake
    std::chrono::milliseconds last_packets_; // for which is listened after a signal: the system collects them
    std::chrono::steady_clock::time_point until_;
    bool limited_;
};

} // namespace vexa

#endif
