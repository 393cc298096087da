#include "chunkfile/Times.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <limits>
#include <sstream>

#include "chunkfile/Glue.h"

namespace Corvane::FileTool {

namespace {

using std::chrono::sys_days;
using std::chrono::year_month_day;

using Nanoseconds = std::optional<std::int64_t>;
__extension__ using Wide = __int128;

constexpr std::int64_t kSecond = 1'000'000'000;  // nanoseconds
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();

struct Unit {
    std::string_view name;
    std::int64_t nanoseconds;
};

constexpr std::array<Unit, 7> kUnits = {{{"d", 86400 * kSecond},
                                         {"h", 3600 * kSecond},
                                         {"min", 60 * kSecond},
                                         {"s", kSecond},
                                         {"ms", 1'000'000},
                                         {"us", 1000},
                                         {"ns", 1}}};

Nanoseconds Checked(Wide nanoseconds)
{
    return nanoseconds < kLeast || nanoseconds > kMost ? Nanoseconds() : static_cast<std::int64_t>(nanoseconds);
}

std::string_view TakeDigits(std::string_view& text)
{
    const std::string_view digits = text.substr(0, std::min(text.find_first_not_of("0123456789"), text.size()));
    text.remove_prefix(digits.size());
    return digits;
}

std::int64_t ValueOf(std::string_view digits)
{
    std::int64_t value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return value;
}

// Takes ".5" and the like, in billionths; 0 without a point.
Nanoseconds TakeFraction(std::string_view& text)
{
    if (text.empty() || text.front() != '.') {
        return 0;
    }
    text.remove_prefix(1);
    const std::string_view digits = TakeDigits(text);
    if (digits.empty() || digits.size() > 9) {
        return {};
    }
    return ValueOf(std::string(digits).append(9 - digits.size(), '0'));
}

// Takes "12.5", in billionths.
std::optional<Wide> TakeDecimal(std::string_view& text)
{
    const std::string_view digits = TakeDigits(text);
    const Nanoseconds fraction = TakeFraction(text);
    if (digits.empty() || digits.size() > 18 || !fraction) {
        return {};
    }
    return Wide{ValueOf(digits)} * kSecond + *fraction;
}

// Whether the text begins as the pattern does, where 0 is any digit and T also t or a space.
bool HasForm(std::string_view text, std::string_view pattern)
{
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const char expected = pattern[i];
        const char found = i < text.size() ? text[i] : '\0';
        const bool isDigit = found >= '0' && found <= '9';
        const bool separates = expected == 'T' && (found == 't' || found == ' ');
        const bool fits = expected == '0' ? isDigit : found == expected || separates;
        if (!fits) {
            return false;
        }
    }
    return true;
}

// Seconds east of UTC.
Nanoseconds Offset(std::string_view text)
{
    if (text == "Z" || text == "z") {
        return 0;
    }
    if (text.size() != 6 || (!HasForm(text, "+00:00") && !HasForm(text, "-00:00"))) {
        return {};
    }
    const std::int64_t hours = ValueOf(text.substr(1, 2));
    const std::int64_t minutes = ValueOf(text.substr(4, 2));
    if (hours > 23 || minutes > 59) {
        return {};
    }
    return (text.front() == '-' ? -1 : 1) * (hours * 3600 + minutes * 60);
}

Nanoseconds DateAndTime(std::string_view text)
{
    if (!HasForm(text, "0000-00-00T00:00:00")) {
        return {};
    }
    const auto number = [text](std::size_t at, std::size_t size) { return ValueOf(text.substr(at, size)); };
    const year_month_day date(std::chrono::year(static_cast<int>(number(0, 4))),
                              std::chrono::month(static_cast<unsigned>(number(5, 2))),
                              std::chrono::day(static_cast<unsigned>(number(8, 2))));
    const std::int64_t hours = number(11, 2);
    const std::int64_t minutes = number(14, 2);
    const std::int64_t seconds = number(17, 2);
    text.remove_prefix(19);
    const Nanoseconds fraction = TakeFraction(text);
    const Nanoseconds offset = Offset(text);
    if (!date.ok() || hours > 23 || minutes > 59 || seconds > 59 || !fraction || !offset) {
        return {};
    }
    const std::int64_t days = sys_days(date).time_since_epoch().count();
    return Checked(Wide{days * 86400 + hours * 3600 + minutes * 60 + seconds - *offset} * kSecond + *fraction);
}

Nanoseconds SecondsSince1970(std::string_view text)
{
    const bool before = !text.empty() && text.front() == '-';
    text.remove_prefix(before ? 1 : 0);
    const auto size = TakeDecimal(text);
    return size && text.empty() ? Checked(before ? -*size : *size) : Nanoseconds();
}

Nanoseconds Duration(std::string_view text)
{
    const auto number = TakeDecimal(text);
    for (const Unit& unit : kUnits) {
        if (number && unit.name == text) {
            const bool fits = *number <= Wide{kMost} * kSecond / unit.nanoseconds;  // else the product may overflow
            return fits ? Checked(*number * unit.nanoseconds / kSecond) : Nanoseconds();
        }
    }
    return {};
}

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

std::optional<std::int64_t> ParseTime(std::string_view text)
{
    return text.substr(0, 1) == "@" ? SecondsSince1970(text.substr(1)) : DateAndTime(text);
}

std::optional<TimeBound> ParseTimeBound(std::string_view text)
{
    using Base = TimeBound::Base;
    const bool first = text.substr(0, 1) == "+";
    const bool last = text.substr(0, 1) == "-";
    const Nanoseconds size = first || last ? Duration(text.substr(1)) : ParseTime(text);
    if (!size) {
        return {};
    }
    return last ? TimeBound{Base::Last, -*size} : TimeBound{first ? Base::First : Base::Epoch, *size};
}

void AppendTime(std::string& text, std::int64_t nanoseconds)
{
    using std::chrono::floor;
    using std::chrono::seconds;
    const auto second = floor<seconds>(std::chrono::nanoseconds(nanoseconds));
    const auto day = floor<std::chrono::days>(second);
    const year_month_day date{sys_days(day)};
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
    if (const Nanoseconds nanoseconds = Glue::NanosecondsOf(timePoint)) {
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
