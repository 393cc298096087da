#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <memory>
#include <utility>

#include "Corvane/Time/TimePoint.h"

namespace Corvane::FileTool {

/// A time point that can be assigned, as sorting needs it. A platform's can perhaps only be copied and compared.
struct HeldTime {
    explicit HeldTime(const Time::TimePoint& timePoint) : value(timePoint) {}
    HeldTime(const HeldTime& other) = default;
    ~HeldTime() = default;

    HeldTime& operator=(const HeldTime& other) noexcept
    {
        if (this != &other) {
            std::destroy_at(&value);
            std::construct_at(&value, other.value);
        }
        return *this;
    }

    bool operator<(const HeldTime& other) const { return value < other.value; }

    Time::TimePoint value;
};

/// Time points of records. It takes little more memory than the time points themselves.
class HeldTimes {
public:
    /// Add times in the order of the records. The counted records come first.
    void Add(const Time::TimePoint& timePoint)
    {
        if (!times_.empty() && !(times_.back().value < timePoint)) {
            ascends_ = false;
            const bool before = timePoint < times_.back().value;
            descents_ += before ? 1 : 0;
            sorted_ = sorted_ && !before;
        }
        times_.emplace_back(timePoint);
    }

    std::uint64_t Size() const { return times_.size(); }

    /// In the order of Add, until one of the members below is called.
    const std::deque<HeldTime>& All() const { return times_; }

    /// How often a time was before the one added last.
    std::uint64_t Descents() const { return descents_; }

    /// The number of different time points.
    std::uint64_t Distinct()
    {
        if (ascends_) {
            return times_.size();
        }
        const auto equal = [](const HeldTime& left, const HeldTime& right) { return !(left < right); };
        std::uint64_t twins = 0;
        for (auto at = Sort().begin(); (at = std::adjacent_find(at, times_.end(), equal)) != times_.end(); ++at) {
            ++twins;
        }
        return times_.size() - twins;
    }

    /// The earliest and the latest. There must be one.
    const Time::TimePoint& Least() { return Sort().front().value; }
    const Time::TimePoint& Most() { return Sort().back().value; }

    bool Contains(const Time::TimePoint& timePoint)
    {
        return std::binary_search(Sort().begin(), times_.end(), HeldTime(timePoint));
    }

private:
    std::deque<HeldTime>& Sort()
    {
        if (!std::exchange(sorted_, true)) {
            std::sort(times_.begin(), times_.end());
        }
        return times_;
    }

    std::deque<HeldTime> times_;
    std::uint64_t descents_ = 0;
    bool ascends_ = true;  // as added, without equal times
    bool sorted_ = true;   // as they lie
};

}  // namespace Corvane::FileTool
