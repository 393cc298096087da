#pragma once

#include <algorithm>
#include <cstddef>
#include <deque>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "Corvane/Time/TimePoint.h"

// Internal to the library.
namespace Corvane::File {

// The distinct time points of a file's chunks.
//
// Points that arrive in order lie in a sequence, late ones in sorted blocks. A std::set alone would allocate, touch and
// balance a node for each point: in order, that costs more than a record of 64 bytes. Out of order, a search in a large
// set finds each of its nodes in no cache; a block has one node for many points. When the set is first asked for, it
// takes in all points and is the only store from then on.
//
// A member that throws leaves the points unchanged.
class TimePoints {
    using Block = std::vector<Time::TimePoint>;       // in ascending order
    using Blocks = std::map<Time::TimePoint, Block>;  // by their first points

public:
    // Where a time point belongs. Valid until the next Insert.
    struct Place {
        bool isHeld;                                     // an equal point is here already
        bool isLast;                                     // later than all others
        std::set<Time::TimePoint>::const_iterator next;  // in the set, once that is complete
        Blocks::iterator block;                          // before that; none: it comes before all blocks
        std::ptrdiff_t index;                            // in the block
    };

    TimePoints() = default;
    TimePoints(const TimePoints&) = delete;
    TimePoints& operator=(const TimePoints&) = delete;

    // In order one comparison, else one search in the sequence and one in the blocks.
    Place Find(const Time::TimePoint& timePoint);

    // Adds a point that is not held. A point inside a block copies the block.
    void Insert(const Place& place, const Time::TimePoint& timePoint);

    // Returns the set of all points. The first call allocates and copies for each of them.
    const std::set<Time::TimePoint>& Complete();

private:
    static constexpr std::size_t kBlockSize = 64;  // points

    const Time::TimePoint* Last() const;
    void FindInBlocks(Place& place, const Time::TimePoint& timePoint);
    void StartBlock(const Time::TimePoint& timePoint);
    void InsertBeforeBlocks(const Time::TimePoint& timePoint);
    void InsertIntoBlock(const Place& place, const Time::TimePoint& timePoint);

    std::set<Time::TimePoint> set_;
    std::optional<std::deque<Time::TimePoint>> sequence_{std::in_place};  // ends with the last point; none: complete
    Blocks late_;
};

inline TimePoints::Place TimePoints::Find(const Time::TimePoint& timePoint)
{
    Place place = {false, false, set_.cend(), late_.end(), 0};
    const Time::TimePoint* const last = Last();
    if (last == nullptr || *last < timePoint) {
        place.isLast = true;
    } else if (sequence_) {
        place.isHeld = !(timePoint < *std::lower_bound(sequence_->begin(), sequence_->end(), timePoint));
        FindInBlocks(place, timePoint);
    } else {
        place.next = set_.lower_bound(timePoint);
        place.isHeld = !(timePoint < *place.next);
    }
    return place;
}

inline void TimePoints::FindInBlocks(Place& place, const Time::TimePoint& timePoint)
{
    const auto next = late_.upper_bound(timePoint);
    if (next == late_.begin()) {
        return;
    }
    place.block = std::prev(next);
    const Block& block = place.block->second;
    const auto point = std::lower_bound(block.begin(), block.end(), timePoint);
    place.index = point - block.begin();
    place.isHeld = place.isHeld || (point != block.end() && !(timePoint < *point));
}

// A chunk may ask for the set while it writes its record. So the set's place comes first.
inline void TimePoints::Insert(const Place& place, const Time::TimePoint& timePoint)
{
    if (!sequence_) {
        set_.insert(place.next, timePoint);
    } else if (place.isLast) {
        sequence_->push_back(timePoint);
    } else if (place.block == late_.end()) {
        InsertBeforeBlocks(timePoint);
    } else {
        InsertIntoBlock(place, timePoint);
    }
}

inline void TimePoints::StartBlock(const Time::TimePoint& timePoint)
{
    Block block;
    block.reserve(kBlockSize);
    block.push_back(timePoint);
    late_.emplace(timePoint, std::move(block));
}

// The first block gets a new first point, and so a new place. A full one stays, and the point starts another.
inline void TimePoints::InsertBeforeBlocks(const Time::TimePoint& timePoint)
{
    const auto first = late_.begin();
    if (first == late_.end() || first->second.size() == kBlockSize) {
        StartBlock(timePoint);
        return;
    }
    Block block;
    block.reserve(kBlockSize);
    block.push_back(timePoint);
    std::copy(first->second.begin(), first->second.end(), std::back_inserter(block));
    late_.emplace_hint(first, timePoint, std::move(block));
    late_.erase(first);
}

// Time points cannot be assigned, so they cannot move up inside their block. A full block becomes two, unless the point
// comes after it: then late points in order fill their blocks.
inline void TimePoints::InsertIntoBlock(const Place& place, const Time::TimePoint& timePoint)
{
    Block& block = place.block->second;
    const bool isFull = block.size() == kBlockSize;
    if (place.index == std::ssize(block)) {
        if (isFull) {
            StartBlock(timePoint);
        } else {
            block.push_back(timePoint);
        }
        return;
    }
    Block lower;
    Block upper;
    lower.reserve(kBlockSize);
    upper.reserve(isFull ? kBlockSize : 0);
    for (std::ptrdiff_t i = 0; i <= std::ssize(block); ++i) {
        Block& part = isFull && lower.size() > kBlockSize / 2 ? upper : lower;
        part.push_back(i == place.index ? timePoint : block[static_cast<std::size_t>(i - (i > place.index ? 1 : 0))]);
    }
    if (isFull) {
        late_.emplace_hint(std::next(place.block), upper.front(), std::move(upper));
    }
    block.swap(lower);
}

// If an insertion throws, the set keeps what it has. That is harmless: nobody reads it yet, and the next call goes on.
inline const std::set<Time::TimePoint>& TimePoints::Complete()
{
    if (sequence_) {
        auto next = set_.cbegin();
        const auto add = [&](const Time::TimePoint& timePoint) {
            const auto at = set_.insert(next, timePoint);
            next = next == set_.cend() ? next : std::next(at);  // at the end, std::next would climb to the root
        };
        for (const auto& [first, block] : late_) {
            std::for_each(block.begin(), block.end(), add);
        }
        next = set_.cbegin();
        std::for_each(sequence_->begin(), sequence_->end(), add);
        late_.clear();
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

}  // namespace Corvane::File
