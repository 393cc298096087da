#include "chunkfile/Times.h"

#include <chrono>
#include <cstdio>
#include <sstream>

#include "chunkfile/Glue.h"
#include "chunkfile/TimeUnits.h"

namespace Corvane::FileTool {

namespace {

void AppendNumber(std::string& text, std::int64_t number, std::size_t digits)
{
    text.append(digits, '0');
    for (auto at = text.end(); number != 0; number /= 10) {
        *--at = static_cast<char>('0' + number % 10);
    }
}

}  // namespace

std::int64_t TimeBound::In(std::int64_t first, std::int64_t last) const
{
    const std::int64_t end = base == Base::First ? first : last;
    const std::int64_t origin = base == Base::Epoch ? 0 : end;
    std::int64_t sum = 0;
    if (__builtin_add_overflow(origin, nanoseconds, &sum)) {
        return nanoseconds < 0 ? kLeast : kMost;
    }
    return sum;
}

void AppendTime(std::string& text, std::int64_t nanoseconds)
{
    using std::chrono::floor;
    using std::chrono::seconds;
    const auto second = floor<seconds>(std::chrono::nanoseconds(nanoseconds));
    const auto day = floor<std::chrono::days>(second);
    const std::chrono::year_month_day date{std::chrono::sys_days(day)};
    const std::int64_t ofDay = (second - day).count();
    AppendNumber(text, static_cast<int>(date.year()), 4);
    AppendNumber(text += '-', static_cast<unsigned>(date.month()), 2);
    AppendNumber(text += '-', static_cast<unsigned>(date.day()), 2);
    AppendNumber(text += 'T', ofDay / 3600, 2);
    AppendNumber(text += ':', ofDay / 60 % 60, 2);
    AppendNumber(text += ':', ofDay % 60, 2);
    AppendNumber(text += '.', (nanoseconds % kSecond + kSecond) % kSecond, 9);
    text += 'Z';
}

std::string TimeText(const Time::TimePoint& timePoint)
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

std::string DurationText(std::uint64_t nanoseconds)
{
    const Unit* unit = kUnits.data();
    while (unit->nanoseconds > 1 && nanoseconds < static_cast<std::uint64_t>(unit->nanoseconds)) {
        ++unit;
    }
    const double value = static_cast<double>(nanoseconds) / static_cast<double>(unit->nanoseconds);
    const int fewer = value >= 10 ? 1 : 2;
    const int decimals = unit->nanoseconds == 1 || value >= 100 ? 0 : fewer;
    std::array<char, 64> text = {};
    const int size = std::snprintf(text.data(), text.size(), "%.*f ", decimals, value);
    return std::string(text.data(), static_cast<std::size_t>(size)).append(unit->name);
}

}  // namespace Corvane::FileTool
