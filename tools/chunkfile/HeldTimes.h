#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
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

/// Time points of records. While they ascend, it keeps the first and the last only, because page faults for the others
/// would cost a tenth of a walk. Otherwise it takes little more memory than the time points themselves.
class HeldTimes {
public:
    using Take = std::function<void(const Time::TimePoint& timePoint)>;

    /// `again` gives the first `number` times that were added once more.
    explicit HeldTimes(std::function<void(std::uint64_t number, const Take& take)> again) : again_(std::move(again)) {}

    /// Add times in the order of the records. The counted records come first.
    void Add(const Time::TimePoint& timePoint)
    {
        if (!kept_ && (!last_ || *last_ < timePoint)) {
            if (number_ == 0) {
                first_.emplace(timePoint);
            }
            last_.emplace(timePoint);
            ++number_;
            return;
        }
        Keep();
        if (!times_.empty() && !(times_.back().value < timePoint)) {
            ascends_ = false;
            const bool before = timePoint < times_.back().value;
            descents_ += before ? 1 : 0;
            sorted_ = sorted_ && !before;
        }
        times_.emplace_back(timePoint);
    }

    /// From now on, keeps all times. Call it before times are added that `again` does not know.
    void Keep()
    {
        if (!std::exchange(kept_, true) && number_ != 0) {
            again_(number_, [this](const Time::TimePoint& timePoint) { times_.emplace_back(timePoint); });
        }
    }

    std::uint64_t Size() const { return kept_ ? times_.size() : number_; }

    /// As they were added, until one of the members below is called. First and Last need one.
    const std::deque<HeldTime>& All()
    {
        Keep();
        return times_;
    }
    const Time::TimePoint& First() const { return kept_ ? times_.front().value : *first_; }
    const Time::TimePoint& Last() const { return kept_ ? times_.back().value : *last_; }

    /// How often a time was before the one added last.
    std::uint64_t Descents() const { return descents_; }

    /// The number of different time points.
    std::uint64_t Distinct()
    {
        if (ascends_) {
            return Size();
        }
        const auto equal = [](const HeldTime& left, const HeldTime& right) { return !(left < right); };
        std::uint64_t twins = 0;
        for (auto at = Sort().begin(); (at = std::adjacent_find(at, times_.end(), equal)) != times_.end(); ++at) {
            ++twins;
        }
        return times_.size() - twins;
    }

    /// The earliest and the latest. There must be one.
    const Time::TimePoint& Least() { return kept_ ? Sort().front().value : First(); }
    const Time::TimePoint& Most() { return kept_ ? Sort().back().value : Last(); }

    bool Contains(const Time::TimePoint& timePoint)
    {
        Keep();
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

    std::function<void(std::uint64_t number, const Take& take)> again_;
    std::uint64_t number_ = 0;  // added before they were kept, with the first and the last
    std::optional<Time::TimePoint> first_;
    std::optional<Time::TimePoint> last_;
    bool kept_ = false;
    std::deque<HeldTime> times_;
    std::uint64_t descents_ = 0;
    bool ascends_ = true;  // as added, without equal times
    bool sorted_ = true;   // as they lie
};

}  // namespace Corvane::FileTool
