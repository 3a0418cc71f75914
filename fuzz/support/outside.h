/**
 * @file
 * The system as the library sees it in a fuzz target. The linker sends the calls named in fuzz/CMakeLists.txt
 * here: nothing leaves the process, nothing waits, and a target can ask what was said and choose what is
 * answered. Plans and requests are those of the target's own thread.
 */
#ifndef FUZZ_OUTSIDE_H
#define FUZZ_OUTSIDE_H

#include "input.h"

#include <deque>

namespace fuzz::outside {

/** A datagram that was handed to sendto; the address in host order. */
struct datagram {
    uint32_t ip;
    uint16_t port;
    bytes content;
};

/** What this thread sent since the last call. */
std::vector<datagram> take_sent();

/** What threads of the library sent since the last call, when it is so many datagrams: waits for them.
 * REGISTERs and the like come whenever they like and do not count. */
std::vector<datagram> await_sent_by_threads(size_t count);

/** What a call gives: bytes, or an error number. */
struct answer {
    int error = 0; // 0: it works
    bytes content; // of recvfrom
};

/** What the next calls of sendto give, oldest first; an answer without an error sends. After them all work.
 */
void plan_sends(std::deque<answer> answers);

/** What the next calls of recvfrom give, oldest first. After them there is nothing to read (EAGAIN). */
void plan_receives(std::deque<answer> answers);

/** How many planned receives are left. */
size_t receives_left();

/** The last call of one of these, as it was made; cleared by take. */
struct request {
    bytes address;      // of bind and connect
    int level = 0;      // of setsockopt
    int name = 0;       // of setsockopt
    bytes value;        // of setsockopt
    std::string text;   // path of chmod, interface name of ioctl
    unsigned count = 0; // how many calls there were
};
request take_request();

/** What ioctl answers to a question about an interface: bytes of its sockaddr; nothing: no such device. */
void plan_interface(const bytes &answer);

} // namespace fuzz::outside

#endif
