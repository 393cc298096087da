#pragma once

#include <cstdint>
#include <iosfwd>

namespace Corvane::Time {

/// A point in time: nanoseconds since 1970-01-01 00:00 UTC, without leap seconds. The range is 1677 to 2262.
///
/// The library calls the copy constructor, operator< and the stream operator. A platform of your own must offer these.
/// operator< must be a strict weak ordering: two points are the same point if neither is less. The library makes time
/// points only as copies of those that chunks return. The other members are this platform's own.
class TimePoint {
public:
    constexpr explicit TimePoint(std::int64_t nanoseconds) noexcept : nanoseconds_(nanoseconds) {}

    /// The time of the system's clock.
    static TimePoint Now();

    constexpr std::int64_t Nanoseconds() const noexcept { return nanoseconds_; }
    constexpr bool operator<(const TimePoint& other) const noexcept { return nanoseconds_ < other.nanoseconds_; }

private:
    std::int64_t nanoseconds_;
};

/// Prints RFC 3339 in UTC with nine decimals: `2026-11-21T08:30:00.000000001Z`.
std::ostream& operator<<(std::ostream& stream, const TimePoint& timePoint);

}  // namespace Corvane::Time
