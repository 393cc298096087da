#include "Corvane/Time/TimePoint.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <ostream>

namespace Corvane::Time {

TimePoint TimePoint::Now()
{
    using std::chrono::nanoseconds;
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return TimePoint(std::chrono::duration_cast<nanoseconds>(sinceEpoch).count());
}

std::ostream& operator<<(std::ostream& stream, const TimePoint& timePoint)
{
    using namespace std::chrono;
    const sys_time<nanoseconds> point{nanoseconds(timePoint.Nanoseconds())};
    // floor<days> of nanoseconds would overflow for the earliest time points, whose midnight is not representable. So
    // split off whole seconds first.
    const auto second = floor<seconds>(point);
    const auto day = floor<days>(second);
    const year_month_day date(day);
    const hh_mm_ss<seconds> time(second - day);
    const auto fraction = static_cast<std::uint64_t>(timePoint.Nanoseconds()) -
                          static_cast<std::uint64_t>(second.time_since_epoch().count()) * 1'000'000'000U;
    std::array<char, 48> text = {};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%09uZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()), static_cast<unsigned>(fraction));
    return stream << text.data();
}

}  // namespace Corvane::Time
