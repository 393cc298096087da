#pragma once

#include <cstdint>
#include <iosfwd>

namespace Corvane::Time {

// A point in time: nanoseconds since 1970-01-01 00:00 UTC, leap seconds not counted; 1677 to 2262.
//
// What the library calls, and a platform of your own must offer: the copy constructor, operator< (a strict weak
// ordering; two points of which neither is less are the same point) and the stream operator. It makes time points only
// by copying those that chunks return. The other members are this platform's own.
class TimePoint {
public:
    constexpr explicit TimePoint(std::int64_t nanoseconds) noexcept : nanoseconds_(nanoseconds) {}

    // The system's clock.
    static TimePoint Now();

    constexpr std::int64_t Nanoseconds() const noexcept { return nanoseconds_; }
    constexpr bool operator<(const TimePoint& other) const noexcept { return nanoseconds_ < other.nanoseconds_; }

private:
    std::int64_t nanoseconds_;
};

// As RFC 3339 in UTC with nine decimals: 2026-11-21T08:30:00.000000001Z.
std::ostream& operator<<(std::ostream& stream, const TimePoint& timePoint);

}  // namespace Corvane::Time
