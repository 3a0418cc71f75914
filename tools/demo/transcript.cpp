// The demo's lines.
#include "transcript.h"

#include "demo_payload.h"

#include <cstdio>
#include <cstdlib>
#include <fmt/core.h>
#include <unistd.h>

namespace demo {

transcript::transcript(uint64_t started_ns)
    : started_ns_(started_ns),
      terminal_(isatty(STDOUT_FILENO) == 1),
      colours_(terminal_ && getenv("NO_COLOR") == nullptr) {
}

void transcript::scene(const std::string &title) {
    ++scenes_;
    fmt::print("\n{}\n", paint(fmt::format("{}. {}", scenes_, title), tone::title));
    (void)std::fflush(stdout);
}

void transcript::event(const std::string &who, const std::string &what, tone how) const {
    const double since_start_s = static_cast<double>(now_ns() - started_ns_) / 1e9;
    fmt::print("  {}  {:<9} {}\n", paint(fmt::format("{:6.3f} s", since_start_s), tone::faint), who,
               paint(what, how));
    (void)std::fflush(stdout);
}

void transcript::line(const std::string &text, tone how) const {
    fmt::print("{}\n", paint(text, how));
    (void)std::fflush(stdout);
}

std::string transcript::paint(const std::string &text, tone how) const {
    if (!colours_) {
        return text;
    }
    switch (how) {
    case tone::title:
        return fmt::format("\033[1m{}\033[0m", text);
    case tone::faint:
        return fmt::format("\033[2m{}\033[0m", text);
    case tone::good:
        return fmt::format("\033[32m{}\033[0m", text);
    case tone::bad:
        return fmt::format("\033[1;31m{}\033[0m", text);
    case tone::plain:
        break;
    }
    return text;
}

std::string as_ms(uint64_t ns) {
    return fmt::format("{:.3f} ms", static_cast<double>(ns) / 1e6);
}

} // namespace demo
