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

// Records between two reports of progress.
constexpr std::uint64_t kProgressStep = 256;

void AddFields(Survey& survey, const DataChunk& chunk)
{
    Glue::VisitFields(chunk, [&survey](std::string_view name, std::string_view /*value*/) {
        const std::string key(name);
        const auto found = survey.fields.find(key);
        if (found != survey.fields.end()) {
            ++found->second;
        } else if (survey.fields.size() < Survey::kMostFields &&
                   name.size() <= Survey::kMostNameBytes - survey.nameBytes) {
            survey.nameBytes += name.size();
            survey.fields.emplace(key, 1);
        } else {
            survey.moreFields = true;
        }
    });
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
    if (AnnouncedSizeAt(input, end.position).value_or(0) > input.Size() - end.position) {
        return Damage::CutRecord;
    }
    return data - end.position >= kTellingZeros ? Damage::ZerosForRecord : Damage::BadRecord;
}

// Whether anything in the file shows that its records are of the tool's chunk type.
bool IsKnown(const Input& input, const Survey& survey)
{
    const bool strange = survey.damage == Damage::ZerosForRecord || survey.damage == Damage::BadRecord;
    return !strange || survey.end.records != 0 || survey.found != 0 || survey.doubtful != 0 ||
           AnnouncedSizeAt(input, survey.end.position).has_value();
}

// A second Flush writes the image again, after the first one: the same header, then as many records.
std::optional<RecordRun> SecondImage(const Input& input, const Survey& survey)
{
    for (const RecordRun& run : survey.runs) {
        std::array<unsigned char, kHeaderSize> first = {};
        std::array<unsigned char, kHeaderSize> second = {};
        if (run.begin < survey.end.position + kHeaderSize || run.records != survey.count) {
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

// Needs a time and nanoseconds.
std::vector<std::uint64_t> OverTime(HeldTimes& held, std::size_t parts)
{
    std::vector<std::uint64_t> numbers;
    const auto least = Glue::NanosecondsOf(held.Least());
    const auto most = Glue::NanosecondsOf(held.Most());
    if (parts == 0 || !least.has_value() || least == most) {
        return numbers;
    }
    const std::int64_t from = least.value_or(0);
    parts = std::min<std::size_t>(parts, held.Size() / kLeastOfAPart + 1);
    numbers.resize(parts);
    const auto since = [&](std::int64_t time) {  // up to 2^64 - 1
        return static_cast<std::uint64_t>(time) - static_cast<std::uint64_t>(from);
    };
    const double span = static_cast<double>(since(most.value_or(from)));
    for (const HeldTime& time : held.All()) {
        const double share = static_cast<double>(since(Glue::NanosecondsOf(time.value).value_or(from))) / span;
        ++numbers[std::min(parts - 1, static_cast<std::size_t>(share * static_cast<double>(parts)))];
    }
    return numbers;
}

void SurveyRecords(Walk& walk, const SurveyOptions& options, Survey& survey)
{
    HeldTimes& held = walk.Times();
    if (options.parts != 0) {
        held.Keep();
    }
    survey.end = walk.Counted([&](const FoundRecord& record) {
        const std::uint64_t size = record.size;
        survey.sizes.least = std::min(survey.sizes.least, size);
        survey.sizes.most = std::max(survey.sizes.most, size);
        if (held.Descents() != 0 && !survey.times.firstDescent) {
            const Range bytes = {record.position, record.position + size};
            survey.times.firstDescent.emplace(Descent{record.index, bytes, record.chunk.GetTimePoint()});
        }
        if (options.countFields) {
            AddFields(survey, record.chunk);
        }
        if (options.progress && record.index % kProgressStep == 0) {
            options.progress(record.position);
        }
        return !options.visit || options.visit(record);
    });
}

void SurveyTimes(HeldTimes& held, std::size_t parts, Survey& survey)
{
    if (held.Size() == 0) {
        return;
    }
    TimeSpan& times = survey.times;
    times.first.emplace(held.First());
    times.last.emplace(held.Last());
    times.descents = held.Descents();
    times.distinct = held.Distinct();
    times.least.emplace(held.Least());
    times.most.emplace(held.Most());
    survey.overTime = OverTime(held, parts);
}

void SurveyAfterEnd(Walk& walk, const Input& input, const SurveyOptions& options, Survey& survey)
{
    walk.AfterEnd(options.visit);
    static_cast<FoundAfter&>(survey) = walk.After();
    if (survey.damage == Damage::None) {
        survey.secondImage = SecondImage(input, survey);
    }
}

}  // namespace

std::string_view NameOf(Damage damage)
{
    constexpr std::array<std::string_view, 7> names = {"none",       "short-file", "count-too-high", "zeros-for-record",
                                                       "cut-record", "bad-record", "unreadable"};
    return names[static_cast<std::size_t>(damage)];
}

std::string_view RestOf(const Survey& survey)
{
    if (survey.end.position >= survey.size) {
        return "nothing";
    }
    if (survey.damage == Damage::BadRecord && !survey.knownChunks && survey.count != 1) {
        return "unknown-records";
    }
    if (survey.damage != Damage::None && survey.damage != Damage::CountTooHigh) {
        return NameOf(survey.damage);
    }
    if (survey.notZero == survey.size) {
        return "zeros";
    }
    if (survey.secondImage) {
        return "second-image";
    }
    return survey.numberOfRuns != 0 ? "older-records" : "other-bytes";
}

Survey SurveyOf(const Input& input, const SurveyOptions& options)
{
    Survey survey;
    survey.size = input.Size();
    survey.allocated = input.Allocated();
    Walk walk(input, /* judging = */ true);
    survey.version = walk.Version();
    survey.count = walk.Count();
    SurveyRecords(walk, options, survey);
    survey.damage = survey.size < kHeaderSize ? Damage::ShortFile : DamageOf(input, survey.end);
    survey.notZero = input.SkipZeros(survey.end.position);
    SurveyTimes(walk.Times(), options.parts, survey);
    if (survey.damage != Damage::ShortFile) {
        SurveyAfterEnd(walk, input, options, survey);
    }
    survey.knownChunks = IsKnown(input, survey);
    survey.changed = input.HasChanged();
    return survey;
}

}  // namespace Corvane::FileTool
