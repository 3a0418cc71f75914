/**
 * @file
 * Where packets come from: a network interface or a file of Wireshark's or tcpdump's. Capturing sends
 * nothing; it needs the right to see the interface's packets, which root has, also in a user namespace of
 * one's own.
 *
 *     vexa::capture packets = vexa::capture::live("lo", {});
 *     vexa::raw_packet packet;
 *     while (packets.next(packet) == vexa::capture::outcome::packet) { assembler.feed(packet, sink); }
 *
 * @par Threads  One object is used by one thread.
 */
#ifndef VEXA_CAPTURE_H
#define VEXA_CAPTURE_H

#include "packet.h"

#include <memory>
#include <stdexcept>
#include <string>

struct pcap;

namespace vexa {

/** Says what cannot be captured and what to do about it, in a line or more for people. */
class capture_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** The file ends in the middle of a packet, as one does whose writer was killed. */
class capture_cut : public capture_error {
public:
    using capture_error::capture_error;
};

/** What the system counts of a live capture. */
struct capture_counts {
    uint64_t received = 0; /**< packets that passed the filter */
    uint64_t dropped = 0;  /**< of them, packets that this program did not take in time */
};

class capture {
public:
    struct options {
        int snap_bytes = 262144;            /**< of a packet that are kept */
        int buffer_bytes = 8 * 1024 * 1024; /**< of the system's, for what has not been taken yet */
        int delay_ms = 20;                  /**< for which packets may be collected before they are seen */
    };

    /** A network interface, or "any" for all of them. @throws capture_error */
    static capture live(const std::string &interface, const options &how);

    /** A pcap or pcapng file; "-" is standard input. @throws capture_error */
    static capture file(const std::string &path);

    enum class outcome {
        packet,
        nothing, /**< yet; a live capture never waits */
        end      /**< of the file */
    };

    /**
     * Takes the next packet; its bytes are valid until the next call.
     * @throws capture_cut when the file is cut off, after everything before the cut was given
     * @throws capture_error when the file is damaged or the interface has gone
     */
    outcome next(raw_packet &to);

    /** Becomes readable when there is a packet, for poll; -1 of a file. */
    [[nodiscard]] int fd() const;

    /** Of a live capture, since it was opened; zeros of a file. */
    [[nodiscard]] capture_counts counts() const;

    [[nodiscard]] int link_type() const;
    [[nodiscard]] bool is_live() const { return live_; }

private:
    struct closer {
        void operator()(pcap *handle) const;
    };
    using handle = std::unique_ptr<pcap, closer>;

    capture(handle from, std::string name, bool live);

    handle handle_;
    std::string name_;
    bool live_;
};

} // namespace vexa

#endif
