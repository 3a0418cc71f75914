// Numbers for tables. See number_text.h.
#include "number_text.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <cstring>
#include <ctime>
#include <fmt/chrono.h>
#include <fmt/core.h>
#include <langinfo.h>
#include <string_view>

namespace vexa {
namespace {

constexpr int64_t k_second_ns = 1'000'000'000;
// The highest one leaves a gap, so that rows do not grow together.
constexpr auto k_blocks = std::to_array<const char *>({" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇"});
constexpr auto k_letters = std::to_array<const char *>({" ", ".", ":", "-", "=", "+", "*", "#"});

std::string three_digits(double value, std::string_view unit) {
    return value < 9.995   ? fmt::format("{:.2f}{}", value, unit)
           : value < 99.95 ? fmt::format("{:.1f}{}", value, unit)
                           : fmt::format("{:.0f}{}", value, unit);
}

} // namespace

std::string rate_text(std::optional<double> per_second) {
    return !per_second             ? "-"
           : *per_second < 1e5     ? three_digits(*per_second, "")
           : *per_second < 999.5e3 ? three_digits(*per_second / 1e3, "k")
                                   : three_digits(*per_second / 1e6, "M");
}

std::string bytes_text(std::optional<double> bytes) {
    return !bytes             ? "-"
           : *bytes < 999.5   ? fmt::format("{:.0f}", *bytes)
           : *bytes < 999.5e3 ? three_digits(*bytes / 1e3, "k")
           : *bytes < 999.5e6 ? three_digits(*bytes / 1e6, "M")
                              : three_digits(*bytes / 1e9, "G");
}

std::string age_text(int64_t age_ns) {
    const double seconds = static_cast<double>(std::max<int64_t>(age_ns, 0)) / k_second_ns;
    return seconds < 9.95   ? fmt::format("{:.1f} s", seconds)
           : seconds < 120  ? fmt::format("{:.0f} s", seconds)
           : seconds < 7200 ? fmt::format("{:.0f} min", seconds / 60)
                            : fmt::format("{:.0f} h", seconds / 3600);
}

std::string bars_text(const std::vector<uint32_t> &numbers, bool in_blocks) {
    const auto &levels = in_blocks ? k_blocks : k_letters;
    const uint64_t most = numbers.empty() ? 0 : *std::ranges::max_element(numbers);
    std::string text;
    for (const uint64_t each : numbers) { // whatever has come shows, if only as the lowest bar
        text += levels.at(each == 0 ? 0 : std::max<uint64_t>(1, each * (levels.size() - 1) / most));
    }
    return text;
}

std::string clock_text(int64_t time_ns) {
    return fmt::format("{:%H:%M:%S}", fmt::localtime(static_cast<std::time_t>(time_ns / k_second_ns)));
}

bool has_utf8() {
    const locale_t theirs = newlocale(LC_CTYPE_MASK, "", nullptr); // the program itself stays as it is
    if (theirs == nullptr) {
        return false;
    }
    const bool utf8 = strcmp(nl_langinfo_l(CODESET, theirs), "UTF-8") == 0;
    freelocale(theirs);
    return utf8;
}

} // namespace vexa
