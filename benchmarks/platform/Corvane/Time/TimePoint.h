#pragma once

#include <cstdint>
#include <ostream>

namespace Corvane::Time {

// Eight bytes that are compared as a number.
class TimePoint {
public:
    constexpr explicit TimePoint(std::int64_t value) noexcept : value_(value) {}

    constexpr std::int64_t Value() const noexcept { return value_; }
    constexpr bool operator<(const TimePoint& other) const noexcept { return value_ < other.value_; }

private:
    std::int64_t value_;
};

inline std::ostream& operator<<(std::ostream& stream, const TimePoint& timePoint)
{
    return stream << timePoint.Value();
}

}  // namespace Corvane::Time
