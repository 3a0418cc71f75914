// Keeps the library's log lines for the tests. See log_capture.h.
#include "log_capture.h"

#include "vision_log.h"

#include <algorithm>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <pthread.h>

namespace {

std::mutex lock;
std::condition_variable grown;
std::vector<logs::line> lines;
std::vector<std::string> names;
std::function<void(const logs::line &)> listener_of_lines;
bool keeping = true;

std::string formatted(const char *format, va_list args) {
    char text[1024];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" // the compiler checked it at the call
    (void)vsnprintf(text, sizeof text, format, args);
#pragma GCC diagnostic pop
    return text;
}

// A child that is forked while another thread writes a line must be able to write its own.
[[maybe_unused]] const int forks_watched =
    pthread_atfork([] { lock.lock(); }, [] { lock.unlock(); }, [] { lock.unlock(); });

size_t count_locked(const std::string &format) {
    return static_cast<size_t>(
        std::count_if(lines.begin(), lines.end(), [&](const logs::line &l) { return l.format == format; }));
}

} // namespace

extern "C" void ControlLogInit(const char *name) {
    const std::lock_guard hold{lock};
    if (keeping) {
        names.emplace_back(name);
    }
}

extern "C" void ControlLog(int module, int level, const char *file, const char *function, int /*line*/,
                           const char *format, ...) {
    va_list args;
    va_start(args, format);
    logs::line made{module, level, file, function, format, formatted(format, args)};
    va_end(args);
    std::function<void(const logs::line &)> listener;
    {
        const std::lock_guard hold{lock};
        if (keeping) {
            lines.push_back(made);
        }
        listener = listener_of_lines;
    }
    grown.notify_all();
    if (listener) {
        listener(made);
    }
}

namespace logs {

std::vector<line> all() {
    const std::lock_guard hold{lock};
    return lines;
}

void clear() {
    const std::lock_guard hold{lock};
    lines.clear();
}

void keep(bool lines_are_kept) {
    const std::lock_guard hold{lock};
    keeping = lines_are_kept;
}

std::vector<line> with_format(const std::string &format) {
    const std::lock_guard hold{lock};
    std::vector<line> found;
    std::copy_if(lines.begin(), lines.end(), std::back_inserter(found),
                 [&](const line &l) { return l.format == format; });
    return found;
}

size_t count(const std::string &format) {
    const std::lock_guard hold{lock};
    return count_locked(format);
}

bool wait_for(const std::string &format, size_t how_often, std::chrono::milliseconds deadline) {
    std::unique_lock hold{lock};
    return grown.wait_for(hold, deadline, [&] { return count_locked(format) >= how_often; });
}

std::vector<std::string> init_names() {
    const std::lock_guard hold{lock};
    return names;
}

void on_line(std::function<void(const line &)> listener) {
    const std::lock_guard hold{lock};
    listener_of_lines = std::move(listener);
}

} // namespace logs
