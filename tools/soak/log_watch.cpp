// The log library of a soak's node. See log_watch.h.
#include "log_watch.h"

#include "node_record.h"
#include "vision_log.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace {

using soak::log_line;

constinit bool writes = false; // set before the node starts
constinit std::mutex keeping;  // guards what follows
constinit std::array<char, 200> first_unexpected{};

__attribute__((format(printf, 1, 0))) void keep_unexpected(const char *format, va_list values) {
    const std::lock_guard hold{keeping};
    if (first_unexpected[0] == '\0') {
        (void)vsnprintf(first_unexpected.data(), first_unexpected.size(), format, values);
    }
}

/// What the line's values say, when the record wants to know.
int value_of(log_line line, va_list values) {
    switch (line) {
    case log_line::field_unknown:
        return va_arg(values, int);
    case log_line::inactive:
        (void)va_arg(values, const char *);
        return static_cast<int>(va_arg(values, unsigned));
    default:
        return 0;
    }
}

__attribute__((format(printf, 1, 0))) void note(const char *format, int level, va_list values) {
    const log_line line = soak::log_line_of(format, level <= VISION_LOG_LEVEL_WARN);
    if (line == log_line::unexpected) {
        keep_unexpected(format, values);
    }
    if (line != log_line::number_of_lines) {
        soak::record_line(line, value_of(line, values));
    }
}

} // namespace

namespace soak {

void log_watch_write(bool write) {
    writes = write;
}

std::string first_unexpected_line() {
    const std::lock_guard hold{keeping};
    return first_unexpected.data();
}

} // namespace soak

extern "C" {

void ControlLogInit(const char * /*name*/) {
}

void ControlLog(int /*module*/, int level, const char *file, const char *function, int line,
                const char *format, ...) {
    va_list values;
    va_start(values, format);
    note(format, level, values);
    va_end(values);
    if (!writes) {
        return;
    }
    char text[512];
    va_start(values, format);
    (void)vsnprintf(text, sizeof text, format, values);
    va_end(values);
    (void)fprintf(stderr, "%d %s %s:%d %s\n", level, file, function, line, text);
}

} // extern "C"
