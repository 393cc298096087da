#include "chunkfile/InfoReport.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <utility>
#include <vector>

#include "Corvane/File/ChunkFileLayout.h"
#include "chunkfile/Glue.h"
#include "chunkfile/Json.h"
#include "chunkfile/Times.h"

namespace Corvane::FileTool {

namespace {

constexpr std::size_t kNameWidth = 12;

// Nanoseconds from the first to the last time, whatever their order in the file.
std::optional<std::uint64_t> SpanOf(const TimeSpan& times)
{
    const auto least = times.least ? Glue::NanosecondsOf(*times.least) : std::nullopt;
    const auto most = times.most ? Glue::NanosecondsOf(*times.most) : std::nullopt;
    if (!least || !most) {
        return {};
    }
    return static_cast<std::uint64_t>(*most) - static_cast<std::uint64_t>(*least);
}

std::optional<double> RateOf(const Survey& survey)
{
    const auto span = SpanOf(survey.times);
    if (!span || *span == 0) {
        return {};
    }
    return static_cast<double>(survey.end.records - 1) / (static_cast<double>(*span) * 1e-9);
}

std::string RateText(double rate)
{
    std::array<char, 32> text = {};
    std::snprintf(text.data(), text.size(), rate >= 100 ? "%.0f" : "%.3g", rate);
    const std::string number = text.data();
    return number + (number == "1" ? " record a second" : " records a second");
}

std::uint64_t UsedBytes(const Survey& survey)
{
    return std::min(survey.size, survey.end.position);
}

std::uint64_t BytesOfRecords(const Survey& survey)
{
    return survey.end.position - File::kHeaderSize;
}

std::string VersionText(const Survey& survey)
{
    if (survey.damage == Damage::ShortFile) {
        return "none: the header is cut";
    }
    const std::string number = std::to_string(survey.version);
    if (survey.version == File::kFormatVersion) {
        return number + ": can be reopened";
    }
    return number +
           (survey.version == 0 ? ": written without maximum size; cannot be reopened" : ": cannot be reopened");
}

std::string OrderText(const TimeSpan& times, std::uint64_t records)
{
    if (times.descents != 0) {
        return "do not ascend: " + Number(times.descents, "time is", "times are") + " before the one that precedes";
    }
    return times.distinct == records ? "ascend" : "ascend, some are equal";
}

std::string NameOfRest(const Survey& survey)
{
    if (!survey.knownChunks) {
        return survey.count == 1 ? "damaged or unknown record" : "unknown records";
    }
    std::string name(RestOf(survey));
    if (survey.damage != Damage::None && name != "nothing" && name != "zeros") {
        return "damage";
    }
    std::ranges::replace(name, '-', ' ');
    return name;
}

std::string RestText(const Survey& survey)
{
    const std::uint64_t others = survey.found + survey.doubtful;
    return NameOfRest(survey) + (others == 0 ? "" : ", with " + Number(others, "good record", "good records"));
}

// A row of bars, the highest for the largest number.
std::string Bars(const std::vector<std::uint64_t>& numbers, bool utf8)
{
    constexpr std::array<std::string_view, 9> blocks = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    constexpr std::array<std::string_view, 9> letters = {" ", ".", ":", "-", "=", "+", "*", "%", "#"};
    const std::uint64_t most = std::max<std::uint64_t>(*std::max_element(numbers.begin(), numbers.end()), 1);
    std::string bars;
    for (const std::uint64_t number : numbers) {
        const auto height = static_cast<std::size_t>((static_cast<double>(number) * 8 + static_cast<double>(most) - 1) /
                                                     static_cast<double>(most));
        bars += (utf8 ? blocks : letters)[std::min<std::size_t>(height, 8)];
    }
    return bars;
}

std::vector<Line> TimeLines(const Survey& survey, bool utf8)
{
    std::vector<Line> lines;
    const TimeSpan& times = survey.times;
    if (!times.first || !times.last) {
        return lines;
    }
    lines.emplace_back("first", TimeText(*times.first));
    lines.emplace_back("last", TimeText(*times.last));
    if (const auto span = SpanOf(times)) {
        const auto rate = RateOf(survey);
        lines.emplace_back("span", DurationText(*span) + (rate ? ", " + RateText(*rate) : ""));
    }
    lines.emplace_back("times", OrderText(times, survey.end.records));
    if (!survey.overTime.empty()) {
        lines.emplace_back("over time", Bars(survey.overTime, utf8));
    }
    return lines;
}

void WriteTable(Terminal& terminal, bool first, const Facts& facts)
{
    terminal.Write((first ? "" : "\n") + terminal.Styled(Terminal::Style::Bold, Terminal::Escaped(facts.file)) + "\n");
    for (const auto& [name, text] : InfoLines(facts, Terminal::Utf8())) {
        const std::string padded = "  " + name + std::string(kNameWidth - name.size(), ' ');
        terminal.Write(terminal.Styled(Terminal::Style::Dim, padded) + text + "\n");
    }
}

void WriteJson(Terminal& terminal, const Facts& facts)
{
    const Survey& survey = facts.survey;
    JsonDocument json;
    json.Open('{').Member("schema", "chunkfile.info/1").Member("file", facts.file);
    json.Member("version", std::to_string(survey.version)).Member("count", std::to_string(survey.count));
    json.Member("reopens", survey.version == File::kFormatVersion).Member("records", survey.end.records);
    if (survey.times.first && survey.times.last) {
        json.Member("first", TimeText(*survey.times.first)).Member("last", TimeText(*survey.times.last));
        json.Member("descents", survey.times.descents).Member("timePoints", survey.times.distinct);
    }
    if (const auto span = SpanOf(survey.times)) {
        json.Member("spanNanoseconds", std::to_string(*span));
    }
    if (survey.end.records != 0) {
        json.Open('{', "sizes").Member("least", survey.sizes.least).Member("most", survey.sizes.most);
        json.Member("sum", BytesOfRecords(survey)).Close();
    }
    json.Member("size", survey.size).Member("used", UsedBytes(survey)).Member("allocated", survey.allocated);
    json.Member("after", NameOfRest(survey)).Member("recordsAfter", survey.found + survey.doubtful);
    if (facts.withFields) {
        json.Open('[', "fields");
        for (const auto& [name, number] : survey.fields) {
            json.Open('{').Member("name", name).Member("records", number).Close();
        }
        json.Close();
    }
    json.Close();
    terminal.WriteLine(json.Line());
}

void WriteCsv(Terminal& terminal, bool first, const Facts& facts)
{
    if (first) {
        terminal.Write(
            "file,version,count,records,first,last,descents,time_points,least,most,size,used,allocated,after,"
            "records_after,fields\r\n");
    }
    const Survey& survey = facts.survey;
    const TimeSpan& times = survey.times;
    std::string fields;
    for (const auto& [name, number] : survey.fields) {
        fields += (fields.empty() ? "" : " ") + TextOrBase64(name) + ":" + std::to_string(number);
    }
    const auto ifAny = [&](std::uint64_t size) { return survey.end.records == 0 ? "" : std::to_string(size); };
    terminal.WriteLine(
        CsvLine({TextOrBase64(facts.file), std::to_string(survey.version), std::to_string(survey.count),
                 std::to_string(survey.end.records), times.first ? TimeText(*times.first) : "",
                 times.last ? TimeText(*times.last) : "", std::to_string(times.descents),
                 std::to_string(times.distinct), ifAny(survey.sizes.least), ifAny(survey.sizes.most),
                 std::to_string(survey.size), std::to_string(UsedBytes(survey)), std::to_string(survey.allocated),
                 NameOfRest(survey), std::to_string(survey.found + survey.doubtful), fields}),
        kCsvEnd);
}

}  // namespace

std::vector<Line> InfoLines(const Facts& facts, bool utf8)
{
    const Survey& survey = facts.survey;
    std::vector<Line> lines = {{"version", VersionText(survey)},
                               {"records", Number(survey.end.records, "is", "are") + " readable, " +
                                               std::to_string(survey.count) + " counted"}};
    std::ranges::move(TimeLines(survey, utf8), std::back_inserter(lines));
    if (survey.end.records != 0) {
        const Sizes& sizes = survey.sizes;
        lines.emplace_back("sizes", std::to_string(sizes.least) + " to " + Bytes(sizes.most) + ", mean " +
                                        std::to_string(BytesOfRecords(survey) / survey.end.records));
    }
    lines.emplace_back("space", Bytes(UsedBytes(survey)) + " used, " + std::to_string(survey.size - UsedBytes(survey)) +
                                    " free, " + std::to_string(survey.allocated) + " allocated");
    lines.emplace_back("after it", RestText(survey));
    for (const auto& [name, number] : survey.fields) {
        lines.emplace_back("field", Terminal::Escaped(name) + ": " + std::to_string(number));
    }
    return lines;
}

std::size_t BarsThatFit()
{
    constexpr std::size_t kMost = 100;
    const std::uint64_t width = Terminal::Width();
    return std::clamp<std::size_t>(width, kNameWidth + 10, kMost + kNameWidth + 2) - kNameWidth - 2;
}

void WriteInfo(Terminal& terminal, Format format, bool first, const Facts& facts)
{
    if (format == Format::Json) {
        WriteJson(terminal, facts);
    } else if (format == Format::Csv) {
        WriteCsv(terminal, first, facts);
    } else {
        WriteTable(terminal, first, facts);
    }
}

}  // namespace Corvane::FileTool
