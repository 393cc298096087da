#pragma once

#include <sstream>
#include <string>

#include "Corvane/Time/TimePoint.h"
#include "chunkfile/Glue.h"
#include "chunkfile/Times.h"

namespace Corvane::FileTool {

/// RFC 3339 if the glue knows nanoseconds; else what operator<< prints.
inline std::string TimeText(const Time::TimePoint& timePoint)
{
    if (const auto nanoseconds = Glue::NanosecondsOf(timePoint)) {
        std::string text;
        AppendTime(text, *nanoseconds);
        return text;
    }
    std::ostringstream stream;
    stream << timePoint;
    return stream.str();
}

}  // namespace Corvane::FileTool
