/**
 * @file
 * The demo's result: for each way that something can travel, what was sent, what arrived, how long it took
 * and what is missing.
 */
#ifndef DEMO_PATH_REPORT_H
#define DEMO_PATH_REPORT_H

#include "transcript.h"

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace demo {

/** One way to travel. */
struct path {
    std::string name;
    bool polled = false;              /**< its arrival is noticed by looking every millisecond */
    uint64_t expected = 0;            /**< deliveries that must happen: of a broadcast, one per receiver */
    std::vector<uint64_t> delays_ns;  /**< one per delivery that did happen */
    std::vector<std::string> missing; /**< what did not, in words */
};

class path_report {
public:
    /** A new row. The reference stays good. */
    path &add(std::string name, bool polled = false);

    /** Whether everything that was sent has arrived, and something was sent. */
    [[nodiscard]] bool complete() const;

    /** The table, and below it what is missing. */
    void print(const transcript &out) const;

private:
    std::deque<path> paths_;
};

} // namespace demo

#endif
