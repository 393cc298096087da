#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "Corvane/File/TimePoints.h"
#include "Corvane/Pellin/DataChunk.h"
#include "Corvane/Time/TimePoint.h"
#include "chunkfile/Glue.h"

namespace Corvane::FileTool {

/// The fields of a chunk. Throws std::runtime_error if the platform does not show them.
Glue::Fields FieldsOf(const Pellin::DataChunk& chunk);

/// Time points that were given to chunks. Each is given once, because an appender refuses equal ones.
class GivenTimes {
public:
    /// Returns false if an equal one was given.
    bool Give(const Time::TimePoint& timePoint);

    /// A copy of the chunk with the next later nanosecond that is free, which it gives. Throws std::runtime_error if
    /// there is none.
    std::unique_ptr<Pellin::DataChunk> Shifted(const Pellin::DataChunk& chunk);

private:
    std::int64_t FirstFree(std::int64_t time);

    File::TimePoints given_;
    // For a given time: a later one with none free in between. So a search passes each given time once.
    std::unordered_map<std::int64_t, std::int64_t> later_;
};

}  // namespace Corvane::FileTool
