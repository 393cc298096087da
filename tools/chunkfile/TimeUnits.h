#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <string_view>

namespace Corvane::FileTool {

constexpr std::int64_t kSecond = 1'000'000'000;  // nanoseconds
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();

struct Unit {
    std::string_view name;
    std::int64_t nanoseconds;
};

constexpr std::array<Unit, 7> kUnits = {{{"d", 86400 * kSecond},
                                         {"h", 3600 * kSecond},
                                         {"min", 60 * kSecond},
                                         {"s", kSecond},
                                         {"ms", 1'000'000},
                                         {"us", 1000},
                                         {"ns", 1}}};

/// Takes the digits at the front of a text; none if there are none.
inline std::string_view TakeDigits(std::string_view& text)
{
    const std::string_view digits = text.substr(0, std::min(text.find_first_not_of("0123456789"), text.size()));
    text.remove_prefix(digits.size());
    return digits;
}

}  // namespace Corvane::FileTool
