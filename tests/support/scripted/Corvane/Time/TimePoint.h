#pragma once

#include <cstdint>
#include <functional>
#include <ostream>

namespace Corvane::Time {

// A time point whose copies, comparisons and prints a test can count and let throw.
class TimePoint {
public:
    explicit TimePoint(std::int64_t value) : value_(value) {}
    TimePoint(const TimePoint& other) : value_(other.value_)
    {
        if (onCopy) {
            onCopy();
        }
    }
    TimePoint& operator=(const TimePoint&) = delete;
    ~TimePoint() = default;

    std::int64_t Value() const { return value_; }
    bool operator<(const TimePoint& other) const
    {
        if (onCompare) {
            onCompare();
        }
        return value_ / resolution < other.value_ / resolution;
    }

    static inline std::int64_t resolution = 1;  // values in one step of this width are the same point
    static inline std::function<void()> onCopy;
    static inline std::function<void()> onCompare;
    static inline std::function<void()> onPrint;

private:
    std::int64_t value_;
};

inline std::ostream& operator<<(std::ostream& stream, const TimePoint& timePoint)
{
    if (TimePoint::onPrint) {
        TimePoint::onPrint();
    }
    return stream << timePoint.Value();
}

}  // namespace Corvane::Time
