/**
 * @file
 * Asks for a log line by everything that is agreed about it.
 *
 *     EXPECT_LOGGED(ERROR, "src/vx_msg", "vision_send_msg", "max msg len %d\n", "max msg len 8192\n");
 */
#ifndef TEST_EXPECT_LOG_H
#define TEST_EXPECT_LOG_H

#include "log_capture.h"
#include "vision_log.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>

namespace logs {

/** The unit that most lines of a running node come from. */
inline constexpr char k_thread_io[] = "src/thread_io";

/** The lines that are this one in every respect. */
inline size_t count_of(const line &wanted) {
    const std::vector<line> lines = all();
    return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), [&](const line &l) {
        return l.module == wanted.module && l.level == wanted.level && l.unit == wanted.unit &&
               l.function == wanted.function && l.format == wanted.format && l.text == wanted.text;
    }));
}

inline testing::AssertionResult was_logged(const line &wanted) {
    if (count_of(wanted) > 0) {
        return testing::AssertionSuccess();
    }
    testing::AssertionResult missing = testing::AssertionFailure();
    missing << "no line " << wanted.level << ' ' << wanted.unit << ' ' << wanted.function << ' '
            << testing::PrintToString(wanted.text) << " among:";
    for (const line &l : all()) {
        missing << "\n  " << l.level << ' ' << l.unit << ' ' << l.function << ' '
                << testing::PrintToString(l.text) << " of " << testing::PrintToString(l.format);
    }
    return missing;
}

} // namespace logs

#define EXPECT_LOGGED(level, unit, function, format, text)                                                   \
    EXPECT_TRUE(logs::was_logged({MODULE_MSG_ROUTE, VISION_LOG_LEVEL_##level, unit, function, format, text}))

#endif
