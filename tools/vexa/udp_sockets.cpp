// UDP sockets and their processes, from /proc. Processes come and go while it is read: what cannot be read is
// left out.
#include "udp_sockets.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <fmt/core.h>
#include <fstream>
#include <iterator>
#include <map>
#include <netinet/in.h>
#include <sstream>

namespace vexa {
namespace {

namespace fs = std::filesystem;

constexpr size_t k_words_of_ipv6 = 4;

std::string read_whole(const fs::path &file) {
    std::ifstream in{file};
    return {std::istreambuf_iterator<char>{in}, {}};
}

std::optional<uint64_t> number(std::string_view text, int base) {
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional{value} : std::nullopt;
}

/// The words are printed as numbers of the host, whose bytes lie in network order.
uint32_t address_of(const std::string &hex) {
    const size_t words = hex.size() / 8;
    const auto last = number(std::string_view{hex}.substr(words == k_words_of_ipv6 ? size_t{24} : 0, 8), 16);
    return words == 0 || !last ? 0 : ntohl(static_cast<uint32_t>(*last));
}

/// "   5: 0501A8C0:232D 00000000:0000 07 tx:rx tr:when retrnsmt uid timeout inode ref pointer drops"
std::optional<udp_socket> parse_line(const std::string &line) {
    std::istringstream in{line};
    const std::vector<std::string> words(std::istream_iterator<std::string>{in},
                                         std::istream_iterator<std::string>{});
    if (words.size() < 13) {
        return std::nullopt;
    }
    const size_t colon = words[1].find(':');
    const size_t queues = words[4].find(':');
    if (colon == std::string::npos || queues == std::string::npos) {
        return std::nullopt;
    }
    const auto port = number(std::string_view{words[1]}.substr(colon + 1), 16);
    const auto waiting = number(std::string_view{words[4]}.substr(queues + 1), 16);
    const auto inode = number(words[9], 10);
    const auto drops = number(words[12], 10);
    if (!port || !waiting || !inode || !drops) {
        return std::nullopt;
    }
    return udp_socket{{address_of(words[1].substr(0, colon)), static_cast<uint16_t>(*port)},
                      *inode,
                      *waiting,
                      *drops,
                      std::nullopt};
}

process_info describe(const fs::path &process) {
    process_info info;
    const std::string stat = read_whole(process / "stat"); // "4711 (soa) S ..."; the name may hold brackets
    const size_t open = stat.find('(');
    const size_t close = stat.rfind(')');
    if (open != std::string::npos && close != std::string::npos && close + 2 < stat.size()) {
        info.name = stat.substr(open + 1, close - open - 1);
        info.state = stat[close + 2];
    }
    info.pid = static_cast<int>(number(process.filename().string(), 10).value_or(0));
    return info;
}

/// Calls `visit` with the inode of every socket that a process holds.
template <class Visit>
void for_each_socket(const fs::path &process, Visit visit) {
    constexpr std::string_view prefix = "socket:[";
    std::error_code refused;
    for (fs::directory_iterator each{process / "fd", refused}, end; !refused && each != end;
         each.increment(refused)) {
        std::error_code gone;
        const std::string target = fs::read_symlink(each->path(), gone).string();
        if (!gone && target.starts_with(prefix)) {
            visit(
                number(std::string_view{target}.substr(prefix.size(), target.size() - prefix.size() - 1), 10)
                    .value_or(0));
        }
    }
}

void find_holders(std::vector<udp_socket> &sockets) {
    std::map<uint64_t, udp_socket *> by_inode;
    for (udp_socket &each : sockets) {
        by_inode.emplace(each.inode, &each);
    }
    std::error_code refused;
    for (fs::directory_iterator each{"/proc", refused}, end; !refused && each != end;
         each.increment(refused)) {
        if (!number(each->path().filename().string(), 10)) {
            continue;
        }
        for_each_socket(each->path(), [&](uint64_t inode) {
            const auto found = by_inode.find(inode);
            if (found != by_inode.end() && !found->second->holder) {
                found->second->holder = describe(each->path());
            }
        });
    }
}

} // namespace

std::vector<udp_socket> parse_udp_table(const std::string &text) {
    std::vector<udp_socket> sockets;
    std::istringstream lines{text};
    for (std::string line; std::getline(lines, line);) {
        if (const auto socket = parse_line(line)) {
            sockets.push_back(*socket);
        }
    }
    return sockets;
}

std::vector<udp_socket> udp_sockets_without_holders() {
    std::vector<udp_socket> sockets = parse_udp_table(read_whole("/proc/net/udp"));
    const std::vector<udp_socket> more = parse_udp_table(read_whole("/proc/net/udp6"));
    sockets.insert(sockets.end(), more.begin(), more.end());
    std::stable_sort(sockets.begin(), sockets.end(),
                     [](const udp_socket &a, const udp_socket &b) { return a.local.port < b.local.port; });
    return sockets;
}

std::vector<udp_socket> udp_sockets() {
    std::vector<udp_socket> sockets = udp_sockets_without_holders();
    find_holders(sockets);
    return sockets;
}

std::string holder_text(const udp_socket &socket) {
    return socket.holder ? fmt::format("PID {} ({})", socket.holder->pid, socket.holder->name)
                         : "a process that only root can see";
}

std::string holder_text(uint16_t port) {
    for (const udp_socket &each : udp_sockets()) {
        if (each.local.port == port) {
            return holder_text(each);
        }
    }
    return "nobody";
}

} // namespace vexa
