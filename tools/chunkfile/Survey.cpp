#include "chunkfile/Survey.h"

#include <algorithm>
#include <array>

#include "Corvane/File/ChunkFileLayout.h"
#include "chunkfile/Glue.h"

namespace Corvane::FileTool {

using File::kHeaderSize;
using Pellin::DataChunk;

namespace {

// Fewer zeros than this at the place of a record are no sign that it was never written.
constexpr std::uint64_t kTellingZeros = 16;

// Fewer records on average in a part of the span would show the rhythm of the parts, not of the records.
constexpr std::size_t kLeastOfAPart = 8;

void AddSize(Sizes& sizes, std::uint64_t size)
{
    sizes.least = std::min(sizes.least, size);
    sizes.most = std::max(sizes.most, size);
    sizes.sum += size;
}

void AddTime(TimeSpan& times, const FoundRecord& record)
{
    const Time::TimePoint time = record.chunk.GetTimePoint();
    if (!times.first) {
        times.first.emplace(time);
        times.least.emplace(time);
        times.most.emplace(time);
    } else if (time < *times.last) {
        if (times.descents++ == 0) {
            const Range bytes = {record.position, record.position + record.chunk.GetSizeOnFile()};
            times.firstDescent.emplace(Descent{record.index, bytes, time});
        }
    }
    times.last.emplace(time);
    if (time < *times.least) {
        times.least.emplace(time);
    }
    if (*times.most < time) {
        times.most.emplace(time);
    }
}

void AddFields(std::map<std::string, std::uint64_t>& fields, const DataChunk& chunk)
{
    Glue::VisitFields(chunk, [&fields](std::string_view name, std::string_view /*value*/) {
        const std::string key(name);
        const auto found = fields.find(key);
        if (found != fields.end()) {
            ++found->second;
        } else if (fields.size() < Survey::kMostFields) {
            fields.emplace(key, 1);
        }
    });
}

// Whether the bytes at this position are an intact head.
std::optional<std::uint64_t> AnnouncedAt(const Input& input, std::uint64_t position)
{
    std::array<unsigned char, 4096> head = {};
    const std::size_t size = input.ReadAt(position, head.data(), std::min(head.size(), Glue::HeadSize()));
    return Glue::AnnouncedSize(head.data(), size);
}

Damage DamageOf(const Input& input, const WalkEnd& end)
{
    switch (end.kind) {
        case WalkEnd::Kind::AllRead:
        case WalkEnd::Kind::Stopped:
            return Damage::None;
        case WalkEnd::Kind::EndOfFile:
            return Damage::CountTooHigh;
        case WalkEnd::Kind::Unreadable:
            return Damage::Unreadable;
        case WalkEnd::Kind::NotGood:
            break;
    }
    const std::uint64_t data = input.SkipZeros(end.position);
    if (data == input.Size()) {
        return Damage::CountTooHigh;
    }
    if (AnnouncedAt(input, end.position).value_or(0) > input.Size() - end.position) {
        return Damage::CutRecord;
    }
    return data - end.position >= kTellingZeros ? Damage::ZerosForRecord : Damage::BadRecord;
}

// Whether anything in the file shows that its records are of the tool's chunk type.
bool IsKnown(const Input& input, const Survey& survey)
{
    const bool strange = survey.damage == Damage::ZerosForRecord || survey.damage == Damage::BadRecord;
    return !strange || survey.end.records != 0 || survey.found != 0 || survey.doubtful != 0 ||
           AnnouncedAt(input, survey.end.position).has_value();
}

// A second Flush writes the image again, after the first one: the same header, then as many records.
std::optional<RecordRun> SecondImage(const Input& input, const Survey& survey)
{
    for (const RecordRun& run : survey.runs) {
        std::array<unsigned char, kHeaderSize> first = {};
        std::array<unsigned char, kHeaderSize> second = {};
        if (run.begin < survey.fill.begin + kHeaderSize || run.records != survey.count) {
            continue;
        }
        input.ReadAt(0, first.data(), first.size());
        input.ReadAt(run.begin - kHeaderSize, second.data(), second.size());
        if (first == second) {
            return run;
        }
    }
    return {};
}

// Needs nanoseconds.
std::vector<std::uint64_t> OverTime(const HeldTimes& held, const TimeSpan& times, std::size_t parts)
{
    std::vector<std::uint64_t> numbers;
    const auto least = times.least ? Glue::NanosecondsOf(*times.least) : std::nullopt;
    const auto most = times.most ? Glue::NanosecondsOf(*times.most) : std::nullopt;
    if (!least || !most || *least == *most || parts == 0) {
        return numbers;
    }
    parts = std::min<std::size_t>(parts, held.Size() / kLeastOfAPart + 1);
    numbers.resize(parts);
    const auto since = [&](std::int64_t time) {  // up to 2^64 - 1
        return static_cast<std::uint64_t>(time) - static_cast<std::uint64_t>(*least);
    };
    const double span = static_cast<double>(since(*most));
    for (const auto& timePoint : held.All()) {
        const double share = static_cast<double>(since(Glue::NanosecondsOf(timePoint).value_or(*least))) / span;
        ++numbers[std::min(parts - 1, static_cast<std::size_t>(share * static_cast<double>(parts)))];
    }
    return numbers;
}

void SurveyAfterEnd(Walk& walk, const Input& input, Survey& survey)
{
    walk.AfterEnd();
    survey.runs = walk.Runs();
    survey.numberOfRuns = walk.NumberOfRuns();
    survey.found = walk.Found();
    survey.doubtful = walk.Doubtful();
    survey.unreadable = walk.Unreadable();
    if (survey.damage == Damage::None) {
        survey.fill.secondImage = SecondImage(input, survey);
    }
}

}  // namespace

Survey SurveyOf(const Input& input, const SurveyOptions& options)
{
    Survey survey;
    survey.size = input.Size();
    survey.allocated = input.Allocated();
    Walk walk(input, /* judging = */ true);
    survey.version = walk.Version();
    survey.count = walk.Count();
    survey.end = walk.Counted([&](const FoundRecord& record) {
        AddSize(survey.sizes, record.chunk.GetSizeOnFile());
        AddTime(survey.times, record);
        if (options.countFields) {
            AddFields(survey.fields, record.chunk);
        }
        if (options.progress) {
            options.progress(record.position);
        }
        return true;
    });
    survey.damage = survey.size < kHeaderSize ? Damage::ShortFile : DamageOf(input, survey.end);
    survey.fill = {survey.end.position, input.SkipZeros(survey.end.position), {}};
    survey.times.distinct = walk.Times().Distinct();
    survey.overTime = OverTime(walk.Times(), survey.times, options.parts);
    if (survey.damage != Damage::ShortFile) {
        SurveyAfterEnd(walk, input, survey);
    }
    survey.knownChunks = IsKnown(input, survey);
    survey.changed = input.HasChanged();
    return survey;
}

}  // namespace Corvane::FileTool
