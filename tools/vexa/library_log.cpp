// The program's own log functions: the loader prefers them to those of the log library. They are called on
// the library's threads with locks held, so they neither wait nor call the library.
#include "library_log.h"

#include "hb_fields.h"
#include "vision_log.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <unistd.h>

namespace vexa::library_log {
namespace {

constexpr auto k_levels = std::to_array<const char *>({"EMERG", "ERROR", "WARN", "INFO", "DEBUG"});

std::atomic<bool> shown{false};
std::atomic<uint64_t> dropped{0};

/// The queue says each drop, and says it nowhere else.
bool tells_of_drop(std::string_view function, std::string_view format) {
    return function == "io_pool_tx_put" && format == "node %u, rxq overstocked, drop the oldest one\n";
}

std::array<std::atomic<bool>, k_hb_fields.size()> fields_set{};

/// A line that two fields share tells of neither.
void note_field(std::string_view format) {
    const auto is_it = [format](const hb_field_t &row) { return format == row.log_format; };
    const auto found = std::find_if(k_hb_fields.begin(), k_hb_fields.end(), is_it);
    if (std::count_if(k_hb_fields.begin(), k_hb_fields.end(), is_it) == 1) {
        fields_set[static_cast<size_t>(found - k_hb_fields.begin())].store(true, std::memory_order_relaxed);
    }
}

/// Keeps what a line tells and nothing else does.
void note(std::string_view function, std::string_view format) {
    if (tells_of_drop(function, format)) {
        dropped.fetch_add(1, std::memory_order_relaxed);
    } else if (function == "hbmgr_set_hb") {
        note_field(format);
    }
}

const char *name_of(int level) {
    const auto index = static_cast<size_t>(level);
    return index < k_levels.size() ? k_levels[index] : "?";
}

/// One write per line, so that the lines of several threads do not mix.
void print(int level, const char *file, const char *function, const char *format, va_list args) {
    std::array<char, 1024> line{};
    const int head = snprintf(line.data(), line.size(), "%s %s:%s ", name_of(level), file, function);
    size_t used = std::min(static_cast<size_t>(std::max(head, 0)), line.size() - 1);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" // the compiler checked it at the caller
    const int body = vsnprintf(line.data() + used, line.size() - used, format, args);
#pragma GCC diagnostic pop
    used = std::min(used + static_cast<size_t>(std::max(body, 0)), line.size() - 1);
    while (used > 0 && (line[used - 1] == '\n' || line[used - 1] == '\r' || line[used - 1] == ' ')) {
        --used;
    }
    line[used] = '\n';
    // A line that nobody takes is lost; there is nobody to tell.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), used + 1);
}

} // namespace

void show(bool lines_are_shown) {
    shown.store(lines_are_shown, std::memory_order_relaxed);
}

uint64_t queue_drops() {
    return dropped.load(std::memory_order_relaxed);
}

bool heartbeat_was_set(size_t field) {
    return fields_set.at(field).load(std::memory_order_relaxed);
}

} // namespace vexa::library_log

extern "C" void ControlLogInit(const char * /*name*/) {
}

extern "C" void ControlLog(int /*module*/, int level, const char *file, const char *function, int /*line*/,
                           const char *format, ...) {
    using namespace vexa::library_log;
    note(function, format);
    if (shown.load(std::memory_order_relaxed)) {
        va_list args;
        va_start(args, format);
        print(level, file, function, format, args);
        va_end(args);
    }
}
