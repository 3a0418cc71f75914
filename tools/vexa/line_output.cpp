// Lines as they come. See line_output.h.
#include "line_output.h"

#include <cstdio>
#include <ctime>
#include <fmt/chrono.h>
#include <fmt/core.h>

namespace vexa {

void say(const std::string &line) {
    fmt::print("{}\n", line);
    (void)std::fflush(stdout);
}

std::string clock_text() {
    const std::time_t now = std::time(nullptr);
    return fmt::format("{:%H:%M:%S}", fmt::localtime(now));
}

} // namespace vexa
