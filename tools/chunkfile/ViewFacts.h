#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "chunkfile/ByteMap.h"
#include "chunkfile/Timeline.h"

namespace Corvane::FileTool {

/// How many records have a size, in classes that are at most 1/128 wide, relative to their sizes.
class SizeClasses {
public:
    struct Class {
        std::uint64_t least;
        std::uint64_t most;
        std::uint64_t records;
    };

    void Add(std::uint64_t size);

    /// From the least to the largest size, at most 64: joined where there are more.
    std::vector<Class> All() const;

private:
    static constexpr unsigned kFinest = 7;  // bits of a size that count, after the first one

    static std::uint64_t IndexOf(std::uint64_t size, unsigned bits);
    static std::uint64_t LeastOf(std::uint64_t index, unsigned bits);

    std::map<std::uint64_t, std::uint64_t> records_;  // by the index of the finest class
    std::uint64_t* last_ = nullptr;                   // of lastSize_
    std::uint64_t lastSize_ = 0;
    std::uint64_t least_ = UINT64_MAX;
    std::uint64_t most_ = 0;
};

/// A field's name, and how many records have it.
struct FieldFacts {
    std::string name;
    std::uint64_t records = 0;    ///< counted ones
    std::uint64_t found = 0;      ///< after damage
    std::uint64_t numbers = 0;    ///< of both, with a number as value
    std::size_t band = SIZE_MAX;  ///< in Bin::bands; SIZE_MAX if there is none
};

/// What `view` draws, gathered from the records as a survey passes them. Memory is bounded, whatever their number.
class ViewFacts {
public:
    static constexpr std::size_t kMostBands = 24;

    explicit ViewFacts(const Input& input) : map_(input) {}

    void Add(const FoundRecord& record);
    void Finish(const Survey& survey);

    bool HasTimes() const { return hasTimes_; }  ///< false: the timeline's places are numbers of records
    const ByteMap& Map() const { return map_; }
    const Timeline& Time() const { return timeline_; }
    const SizeClasses& Sizes() const { return sizes_; }
    const std::deque<FieldFacts>& Fields() const { return fields_; }  ///< in the order in which they appear
    bool LacksFields() const { return lacksFields_; }                 ///< there are more than Survey::kMostFields

private:
    FieldFacts* FieldOf(std::string_view name);
    void AddField(std::string_view name, std::string_view value);

    ByteMap map_;
    Timeline timeline_;
    SizeClasses sizes_;
    std::deque<FieldFacts> fields_;
    std::map<std::string, std::size_t, std::less<>> places_;  // of names in fields_
    Bin* bin_ = nullptr;                                      // of the present record
    bool found_ = false;                                      // it lies after damage
    std::size_t expected_ = 0;  // the field that comes next if this record is like the one before
    std::size_t bands_ = 0;
    std::uint64_t records_ = 0;
    bool hasTimes_ = true;
    bool lacksFields_ = false;
};

}  // namespace Corvane::FileTool
