#include "chunkfile/EqualTimes.h"

#include <stdexcept>
#include <vector>

#include "chunkfile/Times.h"

namespace Corvane::FileTool {

Glue::Fields FieldsOf(const Pellin::DataChunk& chunk)
{
    Glue::Fields fields;
    const bool shown = Glue::VisitFields(
        chunk, [&](std::string_view name, std::string_view value) { fields.emplace_back(name, value); });
    if (!shown) {
        throw std::runtime_error("this platform does not show its fields");
    }
    return fields;
}

bool GivenTimes::Give(const Time::TimePoint& timePoint)
{
    const auto place = given_.Find(timePoint);
    if (!place.isHeld) {
        given_.Insert(place, timePoint);
    }
    return !place.isHeld;
}

std::unique_ptr<Pellin::DataChunk> GivenTimes::Shifted(const Pellin::DataChunk& chunk)
{
    const std::int64_t time = FirstFree(Glue::NanosecondsOf(chunk.GetTimePoint()).value_or(INT64_MAX));
    auto shifted = Glue::MakeChunk(time, FieldsOf(chunk));
    if (shifted == nullptr || !Give(shifted->GetTimePoint())) {
        throw std::runtime_error("this platform does not make chunks of every nanosecond");
    }
    return shifted;
}

std::int64_t GivenTimes::FirstFree(std::int64_t time)
{
    std::vector<std::int64_t> passed;
    for (;;) {
        const auto timePoint = Glue::TimePointOf(time);
        if (!timePoint) {
            throw std::runtime_error("this platform does not have every nanosecond");
        }
        if (!given_.Find(*timePoint).isHeld) {
            break;
        }
        passed.push_back(time);
        const auto later = later_.find(time);
        if (later == later_.end() && time == INT64_MAX) {
            throw std::runtime_error("no later time is left");
        }
        time = later == later_.end() ? time + 1 : later->second;
    }
    for (const std::int64_t given : passed) {
        later_[given] = time;
    }
    return time;
}

}  // namespace Corvane::FileTool
