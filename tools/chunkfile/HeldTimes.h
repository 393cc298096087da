#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <numeric>
#include <type_traits>
#include <vector>

#include "Corvane/Time/TimePoint.h"

namespace Corvane::FileTool {

/// Time points of records. It takes little more memory than the time points themselves, where these can be moved.
class HeldTimes {
public:
    /// Add times in the order of the records. The counted records come first.
    void Add(const Time::TimePoint& timePoint)
    {
        if (!times_.empty() && !(times_.back() < timePoint)) {
            ascends_ = false;
            const bool before = timePoint < times_.back();
            descents_ += before ? 1 : 0;
            ordered_ = ordered_ && !before;
        }
        times_.push_back(timePoint);
    }

    std::uint64_t Size() const { return times_.size(); }
    const std::deque<Time::TimePoint>& All() const
    {
        return times_;
    }  ///< in the order of Add until the others are called

    /// How often a time was before the one added last.
    std::uint64_t Descents() const { return descents_; }

    /// The number of different time points.
    std::uint64_t Distinct()
    {
        if (ascends_) {
            return times_.size();
        }
        Sort();
        std::uint64_t distinct = 1;
        for (std::uint64_t i = 1; i < times_.size(); ++i) {
            distinct += At(i - 1) < At(i) ? 1 : 0;
        }
        return distinct;
    }

    /// The earliest and the latest. There must be one.
    const Time::TimePoint& Least()
    {
        Sort();
        return At(0);
    }
    const Time::TimePoint& Most()
    {
        Sort();
        return At(times_.size() - 1);
    }

    bool Contains(const Time::TimePoint& timePoint)
    {
        Sort();
        std::uint64_t from = 0;
        for (std::uint64_t to = times_.size(); from < to;) {
            const std::uint64_t middle = from + (to - from) / 2;
            At(middle) < timePoint ? from = middle + 1 : to = middle;
        }
        return from < times_.size() && !(timePoint < At(from));
    }

private:
    const Time::TimePoint& At(std::uint64_t i) const { return order_.empty() ? times_[i] : times_[order_[i]]; }

    void Sort()
    {
        if (!ordered_ && order_.size() != times_.size()) {
            SortOf(times_);
        }
    }

    // Time points need only be copied and compared. Those that cannot be moved are ordered by their numbers.
    template <typename Points>
    void SortOf(Points& points)
    {
        if constexpr (std::is_swappable_v<typename Points::value_type>) {
            std::sort(points.begin(), points.end());
            ordered_ = true;
        } else {
            order_.resize(points.size());
            std::iota(order_.begin(), order_.end(), std::uint64_t{0});
            std::sort(order_.begin(), order_.end(), [&](auto a, auto b) { return points[a] < points[b]; });
        }
    }

    std::deque<Time::TimePoint> times_;
    std::vector<std::uint64_t> order_;  // empty: as they lie
    std::uint64_t descents_ = 0;
    bool ascends_ = true;
    bool ordered_ = true;  // as they lie
};

}  // namespace Corvane::FileTool
