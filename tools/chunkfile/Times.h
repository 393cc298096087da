#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Corvane/Time/TimePoint.h"

namespace Corvane::FileTool {

/// One end of a span of time, as a user writes it.
struct TimeBound {
    enum class Base { Epoch, First, Last };
    Base base;
    std::int64_t nanoseconds;  ///< from 1970-01-01 00:00 UTC, or from the file's first or last record

    /// The bound for a file with these first and last times; at the end of the range where it would be outside.
    std::int64_t In(std::int64_t first, std::int64_t last) const;
};

/// How a time differs from RFC 3339, which has all of date, time, seconds and offset.
enum TimeForm : unsigned {
    kDateOnly = 1,
    kNoSeconds = 2,
    kNoOffset = 4,     ///< taken as UTC
    kComma = 8,        ///< for the decimal point
    kOtherOffset = 16  ///< `+0100`, `+01`, or a space before it
};

/// Reads RFC 3339 (`2026-11-21T08:30:00.5+01:00`), what differs from it in these ways, or `@seconds.fraction`. Adds the
/// ways to `forms`, bits of TimeForm. Nothing for another text, a date that does not exist, more than nine decimals, or a
/// time outside 1677 to 2262.
std::optional<std::int64_t> ParseIsoTime(std::string_view text, unsigned& forms);

/// Reads a number of units of `unit` nanoseconds, a power of ten: `1795249800.5`, `1.7952498e9`. Nothing for another text
/// and a number that no count of nanoseconds equals.
std::optional<std::int64_t> ParseNumber(std::string_view text, std::int64_t unit);

/// Reads RFC 3339, a date alone (its midnight in UTC), `@seconds.fraction`, or `+10s` from the first and `-10s` from the
/// last record. Units: ns, us, ms, s, min, h, d.
std::optional<TimeBound> ParseTimeBound(std::string_view text);

/// Appends RFC 3339 in UTC with nine decimals.
void AppendTime(std::string& text, std::int64_t nanoseconds);

/// RFC 3339 if the glue knows nanoseconds; else what operator<< prints.
std::string TimeText(const Time::TimePoint& timePoint);

/// A span for people, in one unit: `1.99 s`, `12.5 ms`, `3.33 h`.
std::string DurationText(std::uint64_t nanoseconds);

}  // namespace Corvane::FileTool
