#pragma once

#include <ostream>

#include "Fault.h"

namespace Corvane::Time {

class TimePoint {
public:
    explicit TimePoint(long ticks) : ticks_(ticks) {}

    bool operator<(const TimePoint& other) const
    {
        return broken::Has("order") ? ticks_ <= other.ticks_ : ticks_ < other.ticks_;
    }

private:
    friend std::ostream& operator<<(std::ostream& stream, const TimePoint& timePoint)
    {
        return stream << timePoint.ticks_;
    }

    long ticks_;
};

}  // namespace Corvane::Time
