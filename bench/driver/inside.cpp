// Calls that send nothing: their time is measured by a program of its own.
#include "sections.h"

#include "child_process.h"

#include <chrono>
#include <fmt/core.h>
#include <stdexcept>

namespace bench {

void measure_inside(const settings &how, report &out) {
    using namespace std::chrono_literals;
    child_process calls{{program(how, "bench_calls"), "--time", "--core", std::to_string(how.core)}};
    table filled{{"call", "time [ns]", "per second"}};
    while (const std::optional<std::string> line = calls.wait_line(60s)) {
        const size_t tab = line->find('\t');
        if (tab == std::string::npos) {
            throw std::runtime_error("bench_calls says '" + *line + "'");
        }
        const double ns = std::stod(line->substr(tab + 1));
        filled.add({fmt::format("`{}`", line->substr(0, tab)), fmt::format("{:.1f}", ns),
                    fmt::format("{:.0f}", 1e9 / ns)});
    }
    out.heading("Single calls, one core");
    out.paragraph(
        "On one thread, nothing is sent. Of several statuses, the one is asked for that was queued last.");
    out.add(filled);
}

} // namespace bench
