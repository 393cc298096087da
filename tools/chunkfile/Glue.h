#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Corvane/Pellin/DataChunk.h"
#include "Corvane/Time/TimePoint.h"

/// @file
/// What the tool can use of a platform besides what the library calls. A platform defines these functions in a source
/// of its own, and names it in `corvane_file_tool(... GLUE ...)`. Each function may decline; the tool then does without.
namespace Corvane::FileTool::Glue {

/// A name for --version. Declines: an empty text.
std::string PlatformName();

/// Nanoseconds since 1970-01-01 00:00 UTC. Declines: nothing. Times are then as operator<< prints them, and --from and
/// --to are refused.
std::optional<std::int64_t> NanosecondsOf(const Time::TimePoint& timePoint);

/// The time point of these nanoseconds. Declines, or the platform has no such time point: nothing.
std::optional<Time::TimePoint> TimePointOf(std::int64_t nanoseconds);

/// Calls `visit` with the name and the value of each field, in the order of the record. Declines: false, before the
/// first call.
bool VisitFields(const Pellin::DataChunk& chunk,
                 const std::function<void(std::string_view name, std::string_view value)>& visit);

using Fields = std::vector<std::pair<std::string, std::string>>;

/// A chunk of this time with these fields. Declines: null.
std::unique_ptr<Pellin::DataChunk> MakeChunk(std::int64_t nanoseconds, const Fields& fields);

/// The size of the record that begins with these bytes, if its head is intact; the rest of the record may be damaged or
/// missing. If `size` bytes, up to the end of the file, begin a head and do not hold it: a number above `size`.
/// Declines, or there is no intact head: nothing.
std::optional<std::uint64_t> AnnouncedSize(const unsigned char* bytes, std::size_t size);

/// The bytes that AnnouncedSize looks at, at most 4096.
std::size_t HeadSize();

/// Sends the library's log entries to `sink` instead of where the platform sends them. Declines: does nothing.
void SendLogTo(std::function<void(std::int32_t level, const std::string& message)> sink);

}  // namespace Corvane::FileTool::Glue
