#include "chunkfile/Timeline.h"

#include <algorithm>
#include <charconv>

#include "chunkfile/Json.h"

namespace Corvane::FileTool {

namespace {

constexpr std::size_t kLongestNumber = 64;
constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kDay = 86400 * kSecond;

// Fewer bins than this are as many as there are.
constexpr std::uint64_t kFewBins = 10;

const std::vector<std::int64_t>& RoundWidths()
{
    static const std::vector<std::int64_t> widths = [] {
        std::vector<std::int64_t> all;
        for (std::int64_t ten = 1; ten < kSecond; ten *= 10) {
            all.insert(all.end(), {ten, 2 * ten, 5 * ten});
        }
        for (const std::int64_t seconds :
             {1, 2, 5, 10, 20, 30, 60, 120, 300, 600, 1200, 1800, 3600, 7200, 10800, 21600, 43200}) {
            all.push_back(seconds * kSecond);
        }
        for (const std::int64_t days : {1, 2, 5, 10, 20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 20000, 100000}) {
            all.push_back(days * kDay);
        }
        return all;
    }();
    return widths;
}

std::int64_t Quotient(std::int64_t place, std::int64_t width)
{
    return place / width - (place % width < 0 ? 1 : 0);
}

bool IsInteger(std::string_view text)
{
    return text.find_first_of(".eE") == std::string_view::npos;
}

// Below 0: the number is less than the other one. Two integers beyond 2^53 can have the same double.
int Compare(double value, std::string_view text, const ExactNumber& other)
{
    if (value != other.value) {
        return value < other.value ? -1 : 1;
    }
    if (text == other.text || !IsInteger(text) || !IsInteger(other.text)) {
        return 0;
    }
    const bool nearer = text.size() != other.text.size() ? text.size() < other.text.size() : text < other.text;
    return (value < 0) == nearer ? 1 : -1;  // nearer to 0
}

}  // namespace

std::optional<double> NumberIn(std::string_view text)
{
    const auto isDigit = [](char character) { return character >= '0' && character <= '9'; };
    if (text.empty() || text.size() > kLongestNumber || !isDigit(text.back()) ||
        (text.front() != '-' && !isDigit(text.front()))) {
        return {};
    }
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = end == text.data() + text.size() && error == std::errc();
    return whole && IsCompactJson(text) ? std::optional(value) : std::nullopt;
}

void Band::Add(double value, std::string_view text)
{
    if (numbers == 0 || Compare(value, text, least) < 0) {
        least.value = value;
        least.text.assign(text);
    }
    if (numbers == 0 || Compare(value, text, most) > 0) {
        most.value = value;
        most.text.assign(text);
    }
    ++numbers;
}

void Band::Add(const Band& other)
{
    if (other.numbers != 0) {
        Add(other.least.value, other.least.text);
        Add(other.most.value, other.most.text);
        numbers += other.numbers - 2;  // two have been added
    }
}

void Bin::Add(const Bin& other)
{
    counted.Add(other.counted);
    found.Add(other.found);
    bands.resize(std::max(bands.size(), other.bands.size()));
    for (std::size_t i = 0; i < other.bands.size(); ++i) {
        bands[i].Add(other.bands[i]);
    }
}

Bin& Timeline::At(std::int64_t place)
{
    const std::uint64_t since = static_cast<std::uint64_t>(place) - static_cast<std::uint64_t>(lastBegin_);
    if (last_ != nullptr && place >= lastBegin_ && since < static_cast<std::uint64_t>(width_)) {  // spares a division
        return *last_;
    }
    for (;; Widen()) {
        const std::int64_t index = Quotient(place, width_);
        Bin& bin = bins_[index];
        if (Length() <= kMostBins) {
            last_ = __builtin_mul_overflow(index, width_, &lastBegin_) ? nullptr : &bin;
            return bin;
        }
    }
}

void Timeline::Settle()
{
    std::uint64_t records = 0;
    for (const auto& [index, bin] : bins_) {
        records += bin.counted.records + bin.found.records;
    }
    while (Length() > kFewBins && Length() > records / 2) {
        Widen();
    }
}

std::uint64_t Timeline::Length() const
{
    return bins_.empty() ? 0
                         : static_cast<std::uint64_t>(bins_.rbegin()->first) -
                               static_cast<std::uint64_t>(bins_.begin()->first) + 1;
}

std::int64_t Timeline::RoundWidth(std::int64_t width, std::uint64_t least)
{
    const auto& widths = RoundWidths();
    const auto found = std::find_if(widths.begin(), widths.end(), [&](std::int64_t candidate) {
        return candidate % width == 0 && static_cast<std::uint64_t>(candidate) >= least;
    });
    return found == widths.end() ? widths.back() : *found;
}

void Timeline::Widen()
{
    const std::int64_t wider = RoundWidth(width_, static_cast<std::uint64_t>(width_) + 1);
    std::map<std::int64_t, Bin> bins;
    for (const auto& [index, bin] : bins_) {
        bins[Quotient(index, wider / width_)].Add(bin);
    }
    bins_ = std::move(bins);
    width_ = wider;
    last_ = nullptr;
}

}  // namespace Corvane::FileTool
