// Sizes and times with units. See amount.h.
#include "amount.h"

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fmt/core.h>
#include <stdexcept>

namespace vexa {
namespace {

struct unit {
    const char *name;
    bool is_time;
    double factor; // bytes or nanoseconds
};

constexpr auto k_units = std::to_array<unit>({
    {"B", false, 1},
    {"kB", false, 1e3},
    {"MB", false, 1e6},
    {"GB", false, 1e9},
    {"ns", true, 1},
    {"us", true, 1e3},
    {"ms", true, 1e6},
    {"s", true, 1e9},
    {"min", true, 60e9},
    {"h", true, 3600e9},
});
constexpr double k_most = 9e18;

struct quantity {
    double value;
    std::string unit;
};

quantity split(const std::string &text) {
    char *behind = nullptr;
    const double value = std::strtod(text.c_str(), &behind);
    const bool is_number = behind != text.c_str() && std::isfinite(value) && value >= 0;
    if (!is_number || text.find_first_of("xXpP") != std::string::npos) {
        throw std::invalid_argument(fmt::format("'{}' does not begin with a number", text));
    }
    return {value, behind};
}

/// Either kind, multiplied out.
double scaled(const std::string &text, const quantity &what, const unit &by) {
    const double result = what.value * by.factor;
    if (result >= k_most) {
        throw std::invalid_argument(fmt::format("'{}' is too much", text));
    }
    return std::round(result);
}

/// Calls `parse`, and gives what it does not like to the command line as a wrong value of this option.
template <class Parse>
CLI::Option *add(CLI::App &command, const std::string &option, const char *type, const std::string &about,
                 const Parse &parse) {
    return command
        .add_option_function<std::string>(
            option,
            [option, parse](const std::string &text) {
                try {
                    parse(text);
                } catch (const std::invalid_argument &wrong) {
                    throw CLI::ValidationError(option, wrong.what());
                }
            },
            about)
        ->type_name(type);
}

} // namespace

amount parse_amount(const std::string &text) {
    const quantity what = split(text);
    for (const unit &each : k_units) {
        if (what.unit == each.name) {
            const double value = scaled(text, what, each);
            return each.is_time ? amount{.time_ns = static_cast<int64_t>(value)}
                                : amount{.bytes = static_cast<uint64_t>(value)};
        }
    }
    throw std::invalid_argument(
        fmt::format("'{}' needs a unit: B, kB, MB, GB for a size, ms, s, min, h for a time", text));
}

int64_t parse_time(const std::string &text) {
    const quantity what = split(text);
    if (what.unit.empty()) {
        return static_cast<int64_t>(scaled(text, what, {"s", true, 1e9}));
    }
    const amount parsed = parse_amount(text);
    if (!parsed.time_ns) {
        throw std::invalid_argument(fmt::format("'{}' is a size, not a time", text));
    }
    return *parsed.time_ns;
}

CLI::Option *add_amount(CLI::App &command, const std::string &option, amount &to, const std::string &about) {
    return add(command, option, "SIZE|TIME", about, [&to](const std::string &text) {
        to = parse_amount(text);
        if (to.bytes == 0U || to.time_ns == 0) {
            throw std::invalid_argument("it must be more than nothing");
        }
    });
}

CLI::Option *add_size(CLI::App &command, const std::string &option, std::optional<uint64_t> &to,
                      const std::string &about) {
    return add(command, option, "SIZE", about, [&to](const std::string &text) {
        to = parse_amount(text).bytes;
        if (!to || *to == 0) {
            throw std::invalid_argument(fmt::format("'{}' is no size", text));
        }
    });
}

CLI::Option *add_time(CLI::App &command, const std::string &option, std::optional<int64_t> &to_ns,
                      const std::string &about) {
    return add(command, option, "TIME", about,
               [&to_ns](const std::string &text) { to_ns = parse_time(text); });
}

std::string size_text(uint64_t bytes) {
    const auto value = static_cast<double>(bytes);
    return bytes < 1000      ? fmt::format("{} bytes", bytes)
           : value < 999.5e3 ? fmt::format("{:.1f} kB", value / 1e3)
           : value < 999.5e6 ? fmt::format("{:.1f} MB", value / 1e6)
                             : fmt::format("{:.2f} GB", value / 1e9);
}

double seconds_of(int64_t time_ns) {
    return static_cast<double>(time_ns) / 1e9;
}

std::string time_text(int64_t time_ns) {
    return fmt::format("{:.1f} s", seconds_of(time_ns));
}

} // namespace vexa
