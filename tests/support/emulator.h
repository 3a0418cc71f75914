/**
 * @file
 * The emulator that runs the tests of another architecture; none in a build for this one.
 */
#ifndef TEST_EMULATOR_H
#define TEST_EMULATOR_H

#include <gtest/gtest.h>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace emulator {

/** The command before the program, its words separated by blanks; empty when programs run by themselves. */
inline constexpr std::string_view command = TEST_EMULATOR;

constexpr bool in_use() {
    return !command.empty();
}

/** How often to do something that is done often: an emulator takes its time. */
constexpr int rounds(int how_many) {
    return in_use() ? how_many / 10 : how_many;
}

/** The command that starts this program, which is of the tests' own architecture. */
inline std::vector<std::string> started(const std::vector<std::string> &program) {
    std::istringstream words{std::string(command)};
    std::vector<std::string> all{std::istream_iterator<std::string>(words), {}};
    all.insert(all.end(), program.begin(), program.end());
    return all;
}

/** Why a test that captures from an interface is left out: system calls are translated, and this kind is not.
 */
inline constexpr std::string_view k_why_not_captured = "the emulator has no packet sockets";

} // namespace emulator

/** First in a test that an emulator cannot run; says why. scripts/test-arch lists these tests. */
#define SKIP_IN_EMULATOR(reason)                                                                             \
    if (emulator::in_use()) {                                                                                \
        GTEST_SKIP() << (reason);                                                                            \
    }                                                                                                        \
    static_assert(true)

#endif
