#pragma once

#include <algorithm>
#include <deque>
#include <iterator>
#include <optional>
#include <set>

#include "Corvane/Time/TimePoint.h"

// Internal to the library.
namespace Corvane::File {

// The distinct time points of a file's chunks.
//
// Points that arrive in order lie in a sequence of blocks, late ones in a set. With all of them in the set, allocating,
// touching and balancing a node for each would cost more than a record of 64 bytes. When the set is first asked for, it
// takes in the sequence and is the only store from then on.
//
// A member that throws leaves the points unchanged.
class TimePoints {
public:
    // Where a time point belongs. Valid until the next Insert.
    struct Place {
        std::set<Time::TimePoint>::const_iterator next;  // in the set
        bool isLast;                                     // later than all others
        bool isHeld;                                     // an equal point is here already
    };

    TimePoints() = default;
    TimePoints(const TimePoints&) = delete;
    TimePoints& operator=(const TimePoints&) = delete;

    // In order one comparison, else one search in the sequence and one in the set.
    Place Find(const Time::TimePoint& timePoint) const;

    // Adds a point that is not held.
    void Insert(const Place& place, const Time::TimePoint& timePoint);

    // Returns the set of all points. The first call inserts the sequence; it allocates and copies for each point.
    const std::set<Time::TimePoint>& Complete();

private:
    const Time::TimePoint* Last() const;
    bool IsInSequence(const Time::TimePoint& timePoint) const;

    std::set<Time::TimePoint> set_;
    std::optional<std::deque<Time::TimePoint>> sequence_{std::in_place};  // ends with the last point; none: complete
};

inline TimePoints::Place TimePoints::Find(const Time::TimePoint& timePoint) const
{
    const Time::TimePoint* const last = Last();
    if (last == nullptr || *last < timePoint) {
        return {set_.end(), true, false};
    }
    const auto next = set_.lower_bound(timePoint);
    const bool isInSet = next != set_.end() && !(timePoint < *next);
    return {next, false, isInSet || IsInSequence(timePoint)};
}

inline void TimePoints::Insert(const Place& place, const Time::TimePoint& timePoint)
{
    if (place.isLast && sequence_) {
        sequence_->push_back(timePoint);
    } else {
        set_.insert(place.next, timePoint);
    }
}

// If an insertion throws, the set holds some points of the sequence twice. That is harmless: the next call skips them.
inline const std::set<Time::TimePoint>& TimePoints::Complete()
{
    if (sequence_) {
        auto next = set_.cbegin();
        for (const Time::TimePoint& timePoint : *sequence_) {
            next = std::next(set_.insert(next, timePoint));
        }
        sequence_.reset();
    }
    return set_;
}

inline const Time::TimePoint* TimePoints::Last() const
{
    if (sequence_) {
        return sequence_->empty() ? nullptr : &sequence_->back();
    }
    return set_.empty() ? nullptr : &*set_.rbegin();
}

inline bool TimePoints::IsInSequence(const Time::TimePoint& timePoint) const
{
    if (!sequence_) {
        return false;
    }
    const auto next = std::lower_bound(sequence_->begin(), sequence_->end(), timePoint);
    return next != sequence_->end() && !(timePoint < *next);
}

}  // namespace Corvane::File
