#include "chunkfile/Times.h"

#include <algorithm>
#include <charconv>
#include <chrono>

#include "chunkfile/TimeUnits.h"

namespace Corvane::FileTool {

namespace {

using std::chrono::sys_days;
using std::chrono::year_month_day;

using Nanoseconds = std::optional<std::int64_t>;
__extension__ using Wide = __int128;

Nanoseconds Checked(Wide nanoseconds)
{
    return nanoseconds < kLeast || nanoseconds > kMost ? Nanoseconds() : static_cast<std::int64_t>(nanoseconds);
}

std::int64_t ValueOf(std::string_view digits)
{
    std::int64_t value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return value;
}

// Takes ".5" and the like, in billionths; 0 without a point.
Nanoseconds TakeFraction(std::string_view& text, char point = '.')
{
    if (text.empty() || text.front() != point) {
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

// Takes the seconds east of UTC.
Nanoseconds TakeOffset(std::string_view text, unsigned& forms)
{
    if (text == "Z" || text == "z") {
        return 0;
    }
    if (text.empty()) {
        forms |= kNoOffset;
        return 0;
    }
    const bool hasSpace = text.front() == ' ';
    text.remove_prefix(hasSpace ? 1 : 0);
    const bool east = text.substr(0, 1) == "+";
    const std::string_view digits = text.substr(std::min<std::size_t>(1, text.size()));
    const bool extended = digits.size() == 5 && HasForm(digits, "00:00");
    const bool basic = (digits.size() == 4 && HasForm(digits, "0000")) || (digits.size() == 2 && HasForm(digits, "00"));
    if ((!east && text.substr(0, 1) != "-") || (!extended && !basic)) {
        return {};
    }
    forms |= hasSpace || basic ? kOtherOffset : 0U;
    const std::int64_t hours = ValueOf(digits.substr(0, 2));
    const std::int64_t minutes = digits.size() == 2 ? 0 : ValueOf(digits.substr(digits.size() - 2));
    if (hours > 23 || minutes > 59) {
        return {};
    }
    return (east ? 1 : -1) * (hours * 3600 + minutes * 60);
}

// Takes `2026-11-21` as days since 1970.
Nanoseconds TakeDate(std::string_view& text)
{
    if (!HasForm(text, "0000-00-00")) {
        return {};
    }
    const year_month_day date(std::chrono::year(static_cast<int>(ValueOf(text.substr(0, 4)))),
                              std::chrono::month(static_cast<unsigned>(ValueOf(text.substr(5, 2)))),
                              std::chrono::day(static_cast<unsigned>(ValueOf(text.substr(8, 2)))));
    text.remove_prefix(10);
    return date.ok() ? Nanoseconds(sys_days(date).time_since_epoch().count()) : std::nullopt;
}

// Takes `T08:30:00`, or less, as seconds.
Nanoseconds TakeTimeOfDay(std::string_view& text, unsigned& forms)
{
    if (text.empty()) {
        forms |= kDateOnly;
        return 0;
    }
    if (!HasForm(text, "T00:00")) {
        return {};
    }
    const bool hasSeconds = HasForm(text, "T00:00:00");
    forms |= hasSeconds ? 0U : kNoSeconds;
    const std::int64_t hours = ValueOf(text.substr(1, 2));
    const std::int64_t minutes = ValueOf(text.substr(4, 2));
    const std::int64_t seconds = hasSeconds ? ValueOf(text.substr(7, 2)) : 0;
    text.remove_prefix(hasSeconds ? 9 : 6);
    return hours > 23 || minutes > 59 || seconds > 59 ? Nanoseconds() : hours * 3600 + minutes * 60 + seconds;
}

Nanoseconds DateAndTime(std::string_view text, unsigned& forms)
{
    const Nanoseconds days = TakeDate(text);
    const Nanoseconds seconds = days ? TakeTimeOfDay(text, forms) : days;
    const bool hasComma = text.substr(0, 1) == ",";
    forms |= hasComma ? kComma : 0U;
    const Nanoseconds fraction = (forms & kNoSeconds) == 0 ? TakeFraction(text, hasComma ? ',' : '.') : 0;
    const Nanoseconds offset = seconds && fraction ? TakeOffset(text, forms) : std::nullopt;
    if (!offset) {
        return {};
    }
    return Checked(Wide{*days * 86400 + *seconds - *offset} * kSecond + *fraction);
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

}  // namespace

std::optional<std::int64_t> ParseIsoTime(std::string_view text, unsigned& forms)
{
    unsigned met = 0;
    const Nanoseconds time = text.substr(0, 1) == "@" ? SecondsSince1970(text.substr(1)) : DateAndTime(text, met);
    forms |= time ? met : 0U;
    return time;
}

std::optional<TimeBound> ParseTimeBound(std::string_view text)
{
    using Base = TimeBound::Base;
    const bool first = text.substr(0, 1) == "+";
    const bool last = text.substr(0, 1) == "-";
    unsigned forms = 0;
    const Nanoseconds size = first || last ? Duration(text.substr(1)) : ParseIsoTime(text, forms);
    if (!size || (forms != 0 && forms != (kDateOnly | kNoOffset))) {
        return {};
    }
    return last ? TimeBound{Base::Last, -*size} : TimeBound{first ? Base::First : Base::Epoch, *size};
}

}  // namespace Corvane::FileTool
