#include "chunkfile/RowTimes.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>
#include <span>
#include <stdexcept>

#include "chunkfile/JsonRow.h"
#include "chunkfile/Times.h"

namespace Corvane::FileTool {

namespace {

constexpr std::size_t kMostShown = 40;  // bytes of a text that is no time

std::vector<std::string> TokensOf(const std::string& time)
{
    return time.starts_with('/') ? PointerTokens(time).value_or(std::vector<std::string>()) : std::vector{time};
}

}  // namespace

RowTimes::RowTimes(const Options& options)
    : options_(options.import),
      tokens_(TokensOf(options_.time.value_or("time"))),
      now_(std::numeric_limits<std::int64_t>::min())
{
    if (tokens_.empty()) {
        throw std::invalid_argument("--time: " + options_.time.value_or("") + " is no JSON pointer");
    }
    if (options_.dropTime && tokens_.size() > 1) {
        throw std::invalid_argument("--drop-time needs a time that is a field of its own");
    }
    if (options_.time == "now" && (options_.dropTime || options_.timeUnit != 0)) {
        throw std::invalid_argument("--drop-time and --time-unit have no meaning with --time now");
    }
}

std::int64_t RowTimes::Take(Row& row)
{
    if (options_.time == "now") {
        return Now();
    }
    if (row.time) {
        return Parse(*row.time);
    }
    const auto field = std::ranges::find(row.fields, tokens_.front(), &Glue::Fields::value_type::first);
    if (field == row.fields.end()) {
        const std::string hint = row.fields.size() == 1 ? SeparatorHint(row.fields.front().first) : "";
        throw std::runtime_error("there is no field " + tokens_.front() +
                                 (hint.empty() ? "; --time names the one that holds the time" : hint));
    }
    if (tokens_.size() > 1) {
        const auto text = JsonAt(field->second, std::span(tokens_).subspan(1));
        return Parse(text ? *text : throw std::runtime_error("--time leads to no value"));
    }
    const std::int64_t time = Parse(field->second);
    if (options_.dropTime) {
        row.fields.erase(field);
    }
    return time;
}

std::string RowTimes::Forms() const
{
    if (options_.time == "now") {
        return "the time of the import";
    }
    std::string text = hasNumbers_ ? "numbers of " + options_.timeUnitName : "";
    if (hasTexts_) {
        text += text.empty() ? "" : " and ";
        text += forms_ == 0 ? "RFC 3339" : "ISO 8601";
    }
    constexpr std::array<std::pair<unsigned, const char*>, 5> forms = {{{kDateOnly, ", date only"},
                                                                        {kNoSeconds, ", no seconds"},
                                                                        {kComma, ", comma"},
                                                                        {kOtherOffset, ", offset such as +0100"},
                                                                        {kNoOffset, ", no offset: taken as UTC"}}};
    for (const auto& [form, words] : forms) {
        text += (forms_ & form) != 0 ? words : "";
    }
    return text;
}

// No time comes twice, and none is before the last one.
std::int64_t RowTimes::Now()
{
    using std::chrono::duration_cast;
    using std::chrono::nanoseconds;
    const auto now = duration_cast<nanoseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
    return now_ = std::max<std::int64_t>(now, now_ + 1);
}

std::int64_t RowTimes::Parse(const std::string& text)
{
    const auto number = ParseNumber(text, std::max<std::int64_t>(options_.timeUnit, 1));
    if (number && options_.timeUnit == 0) {
        throw std::runtime_error(text + " is a number: --time-unit says of what");
    }
    const auto time = number ? number : ParseIsoTime(text, forms_);
    if (!time) {
        throw std::runtime_error("no time: " + text.substr(0, kMostShown) + (text.size() > kMostShown ? "..." : ""));
    }
    (number ? hasNumbers_ : hasTexts_) = true;
    return *time;
}

}  // namespace Corvane::FileTool
