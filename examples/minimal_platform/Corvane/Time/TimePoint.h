#pragma once

#include <ostream>

namespace Corvane::Time {

// A point in time, in ticks. It can only be copied, compared and printed.
class TimePoint {
public:
    explicit TimePoint(long ticks) : ticks_(ticks) {}
    TimePoint() = delete;
    TimePoint(const TimePoint& other) = default;
    TimePoint(TimePoint&&) = delete;
    TimePoint& operator=(const TimePoint&) = delete;
    TimePoint& operator=(TimePoint&&) = delete;
    ~TimePoint() = default;

    bool operator<(const TimePoint& other) const { return ticks_ < other.ticks_; }

private:
    friend std::ostream& operator<<(std::ostream& stream, const TimePoint& timePoint)
    {
        return stream << "tick " << timePoint.ticks_;
    }

    const long ticks_;
};

}  // namespace Corvane::Time
