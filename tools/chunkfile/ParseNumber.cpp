#include <algorithm>
#include <charconv>

#include "chunkfile/TimeUnits.h"
#include "chunkfile/Times.h"

namespace Corvane::FileTool {

namespace {

// Takes "e5" and the like, up to three digits; 0 if there is none.
std::optional<std::int64_t> TakeExponent(std::string_view& text)
{
    if (text.empty() || (text.front() != 'e' && text.front() != 'E')) {
        return 0;
    }
    text.remove_prefix(1);
    const bool isNegative = text.substr(0, 1) == "-";
    text.remove_prefix(isNegative || text.substr(0, 1) == "+" ? 1 : 0);
    const std::string_view digits = TakeDigits(text);
    if (digits.empty() || digits.size() > 3) {
        return {};
    }
    std::int64_t size = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), size);
    return isNegative ? -size : size;
}

// The number of these digits with `shift` zeros more or less. Nothing if that loses digits, or is too much.
std::optional<std::int64_t> Shifted(std::string digits, std::int64_t shift, bool isNegative)
{
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
    for (; shift < 0 && digits.size() > 1 && digits.back() == '0'; ++shift) {
        digits.pop_back();
    }
    if (digits == "0") {
        return 0;
    }
    if (shift < 0 || digits.size() + static_cast<std::uint64_t>(shift) > 19) {
        return {};
    }
    digits.append(static_cast<std::size_t>(shift), '0');
    std::uint64_t size = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), size);
    if (size > std::uint64_t{kMost} + (isNegative ? 1 : 0)) {
        return {};
    }
    return static_cast<std::int64_t>(isNegative ? 0 - size : size);
}

}  // namespace

std::optional<std::int64_t> ParseNumber(std::string_view text, std::int64_t unit)
{
    const bool before = text.substr(0, 1) == "-";
    text.remove_prefix(before ? 1 : 0);
    std::string digits(TakeDigits(text));
    const std::size_t whole = digits.size();
    const bool hasPoint = text.substr(0, 1) == ".";
    text.remove_prefix(hasPoint ? 1 : 0);
    digits += hasPoint ? TakeDigits(text) : std::string_view();
    const auto exponent = TakeExponent(text);
    if (whole == 0 || (hasPoint && digits.size() == whole) || !exponent || !text.empty()) {
        return {};
    }
    std::int64_t shift = *exponent - static_cast<std::int64_t>(digits.size() - whole);
    for (; unit > 1; unit /= 10) {
        ++shift;
    }
    return Shifted(digits, shift, before);
}

}  // namespace Corvane::FileTool
