// Says to the log library what the test asks for, and tells on standard output what the test cannot see from
// outside.
//
//     probe say MODULE LEVEL TEXT     one message, as given
//     probe named NAME                one message of a process with a name
//     probe long BYTES                one message of that length
//     probe errno                     prints errno before and after a message
//     probe threads THREADS LINES     messages of several threads at once
//     probe library                   makes libVexaMsg log
#include "node_mapping.h"
#include "vision_log.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int k_route = MODULE_MSG_ROUTE;
constexpr int k_info = VISION_LOG_LEVEL_INFO;

void say(int module, int level, const char *text) {
    ControlLog(module, level, "src/probe", "say", 42, "%s", text);
}

void say_in_threads(int threads, int lines) {
    const std::string text(200, 'x');
    std::vector<std::thread> all;
    for (int thread = 0; thread < threads; ++thread) {
        all.emplace_back([&text, thread, lines] {
            for (int line = 0; line < lines; ++line) {
                ControlLog(k_route, k_info, "src/probe", "thread", line, "%d of %d %s\n", line, thread,
                           text.c_str());
            }
        });
    }
    for (std::thread &each : all) {
        each.join();
    }
}

void compare_errno() {
    (void)fclose(stderr); // so that the write fails, and sets errno
    errno = ENOTTY + 100;
    const int before = errno;
    say(k_route, k_info, "text\n");
    printf("%d %d\n", before, errno);
}

} // namespace

int main(int argc, char **argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "say" && argc == 5) {
        say(atoi(argv[2]), atoi(argv[3]), argv[4]);
    } else if (mode == "named" && argc == 3) {
        ControlLogInit(argv[2]);
        say(k_route, k_info, "text\n");
    } else if (mode == "nameless") {
        ControlLogInit("name");
        ControlLogInit(nullptr);
        say(k_route, k_info, "text\n");
    } else if (mode == "long" && argc == 3) {
        say(k_route, k_info, (std::string(static_cast<size_t>(atoi(argv[2])), 'x') + "\n").c_str());
    } else if (mode == "errno") {
        compare_errno();
    } else if (mode == "threads" && argc == 4) {
        say_in_threads(atoi(argv[2]), atoi(argv[3]));
    } else if (mode == "library") {
        vexa_node_t node;
        (void)nmapping_get(128, &node);
    } else {
        return 2;
    }
    return 0;
}
