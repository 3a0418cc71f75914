/**
 * @file
 * What the system says this process holds.
 */
#ifndef TEST_PROCESS_STATE_H
#define TEST_PROCESS_STATE_H

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>

namespace process_state {

/** Every open descriptor and what it leads to. */
inline std::map<std::string, std::string> descriptors() {
    std::map<std::string, std::string> open;
    std::error_code gone; // the descriptor of this very walk
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const std::string target = std::filesystem::read_symlink(entry, gone).string();
        if (!gone && target.find("/proc/") != 0) {
            open[entry.path().filename()] = target;
        }
    }
    return open;
}

/** What all of them lead to, whatever their numbers: libev may make its own anew. */
inline std::multiset<std::string> open_things() {
    std::multiset<std::string> things;
    for (const auto &[fd, target] : descriptors()) {
        things.insert(target);
    }
    return things;
}

inline size_t threads() {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}));
}

/** Pieces of its address space; a thread that nobody has joined keeps its stack. */
inline long mappings() {
    std::ifstream maps("/proc/self/maps");
    return std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
}

} // namespace process_state

#endif
