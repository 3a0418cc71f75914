// Stands in for the log library. See log.h.
#include "log.h"

#include "check.h"
#include "vision_log.h"

#include <atomic>
#include <cstdarg>
#include <cstring>

namespace {

constexpr int k_row_length = 68; // of a row of the node table, as long as each text in it ends

std::atomic<size_t> lines{0};

} // namespace

namespace fuzz {

size_t lines_logged() {
    return lines.exchange(0);
}

} // namespace fuzz

void ControlLogInit(const char *name) {
    FUZZ_CHECK(strlen(name) < 16);
}

void ControlLog(int module, int level, const char *file, const char *function, int line, const char *format,
                ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    const int len = vsnprintf(text, sizeof text, format, args);
    va_end(args);
    FUZZ_CHECK(len > 0);
    FUZZ_CHECK(*format != '|' || len == k_row_length);
    FUZZ_CHECK(module == MODULE_MSG_ROUTE && line > 0);
    FUZZ_CHECK(level >= VISION_LOG_LEVEL_ERROR && level <= VISION_LOG_LEVEL_INFO);
    FUZZ_CHECK(strncmp(file, "src/", 4) == 0 && *function != '\0');
    lines.fetch_add(1);
}
