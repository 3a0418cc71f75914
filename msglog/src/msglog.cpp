// The stand-in log library: one line per message on standard error, written by one system call so that lines
// of several threads and processes do not mix.
//
//     10:31:04.117 INFO  soa ROUTE src/vx_msg:vision_msg_component_init:88 my node id 5, adv pipe[4]
//
// A log call never blocks on a lock for long and never fails: what cannot be written is lost.
#include "vision_log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string_view>
#include <unistd.h>

namespace {

constexpr size_t k_line_bytes = 2048; // a longer message is cut, its line feed kept

struct level_style {
    const char *name;
    const char *colour; // escape sequence, used on a terminal only
};

constexpr auto k_levels = std::to_array<level_style>({
    {"EMERG", "\033[1;37;41m"},
    {"ERROR", "\033[31m"},
    {"WARN ", "\033[33m"},
    {"INFO ", ""},
    {"DEBUG", "\033[2m"},
});
constexpr auto k_modules = std::to_array<const char *>({"LOG", "VISION", "ROUTE"});
constexpr level_style k_unknown_level = {"?    ", ""};

std::mutex name_lock;
std::array<char, 16> process_name; // guarded by name_lock; set by ControlLogInit

std::array<char, 16> name_now() {
    const std::lock_guard hold{name_lock};
    return process_name;
}

const level_style &style_of(int level) {
    const auto index = static_cast<size_t>(level);
    return index < k_levels.size() ? k_levels[index] : k_unknown_level;
}

const char *module_name(int module) {
    const auto index = static_cast<size_t>(module);
    return index < k_modules.size() ? k_modules[index] : "?";
}

bool colours() {
    static const bool terminal = isatty(STDERR_FILENO) == 1;
    return terminal;
}

/// Text of a fixed greatest length; what does not fit is cut.
class line_buffer {
public:
    void vprint(const char *format, va_list args) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" // the compiler checked it at the caller
        const int made = vsnprintf(text_.data() + used_, text_.size() - used_, format, args);
#pragma GCC diagnostic pop
        if (made > 0) {
            used_ = std::min(used_ + static_cast<size_t>(made), text_.size() - 1);
        }
    }

    // NOLINTNEXTLINE(cert-dcl50-cpp): in printf's manner; the compiler checks every call
    void print(const char *format, ...) __attribute__((format(printf, 2, 3))) {
        va_list args;
        va_start(args, format);
        vprint(format, args);
        va_end(args);
    }

    /// Messages bring their own line ends, some of them in odd places; a log line has one, at its end.
    void make_one_line(size_t from) {
        char *const begin = text_.data() + from;
        char *end = std::remove(begin, text_.data() + used_, '\r');
        while (begin != end && end[-1] == '\n') {
            --end;
        }
        while (begin != end && *begin == '\n') {
            end = std::copy(begin + 1, end, begin);
        }
        std::replace(begin, end, '\n', ' ');
        used_ = static_cast<size_t>(end - text_.data());
    }

    void end_line(std::string_view tail) {
        const size_t start = std::min(used_, text_.size() - tail.size());
        used_ = start + tail.copy(text_.data() + start, tail.size());
    }

    [[nodiscard]] size_t used() const {
        return used_;
    }
    [[nodiscard]] std::string_view text() const {
        return {text_.data(), used_};
    }

private:
    std::array<char, k_line_bytes> text_;
    size_t used_ = 0;
};

void write_whole(std::string_view text) {
    while (write(STDERR_FILENO, text.data(), text.size()) < 0 && errno == EINTR) {
    }
}

void print_time(line_buffer &line) {
    timespec now{};
    tm local{};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    (void)localtime_r(&now.tv_sec, &local);
    line.print("%02d:%02d:%02d.%03ld ", local.tm_hour, local.tm_min, local.tm_sec, now.tv_nsec / 1'000'000);
}

} // namespace

extern "C" void ControlLogInit(const char *name) {
    const std::lock_guard hold{name_lock};
    process_name.fill('\0');
    if (name != nullptr) {
        memcpy(process_name.data(), name, strnlen(name, process_name.size() - 1));
    }
}

extern "C" void ControlLog(int module, int level, const char *file, const char *function, int line,
                           const char *format, ...) {
    const int callers_errno = errno; // logging an error must not change it
    const level_style &style = style_of(level);
    const std::array<char, 16> name = name_now();
    line_buffer out;
    if (colours()) {
        out.print("%s", style.colour);
    }
    print_time(out);
    out.print("%s %s%s%s %s:%s:%d ", style.name, name.data(), name[0] == '\0' ? "" : " ", module_name(module),
              file, function, line);
    const size_t message = out.used();
    va_list args;
    va_start(args, format);
    out.vprint(format, args);
    va_end(args);
    out.make_one_line(message);
    out.end_line(colours() ? "\033[0m\n" : "\n");
    write_whole(out.text());
    errno = callers_errno;
}
