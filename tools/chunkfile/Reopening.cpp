#include "chunkfile/Reopening.h"

#include <algorithm>

#include "Corvane/File/ChunkFileLayout.h"
#include "chunkfile/Glue.h"
#include "chunkfile/Walk.h"

namespace Corvane::FileTool {

using File::kFormatVersion;
using File::kHeaderSize;

namespace {

// The appender's own texts.
std::string TooShort(const std::string& name, std::uint64_t size)
{
    return "DataChunkFileAppender: file " + name + " has content of only " + std::to_string(size) + " bytes. " +
           std::to_string(kHeaderSize) + "is the minimum expected";
}

std::string TooLong(const std::string& name, std::uint64_t size, std::uint64_t maxSize)
{
    return "DataChunkFileAppender: content size " + std::to_string(size) + " is greater than specified size " +
           std::to_string(maxSize) + " when reading file " + name;
}

std::string OtherVersion(const std::string& name, std::uint64_t version)
{
    return "DataChunkFileAppender: file " + name + " is stored with version " + std::to_string(version) +
           " instead of version " + std::to_string(kFormatVersion) + ": we don't know how to read this file";
}

std::string CannotOpen(const std::string& name, const std::string& reason)
{
    return "DataChunkFileAppender could not open file " + name + ": " + reason;
}

// An appender that cannot read a byte that it needs takes the file for empty.
std::string Refusal(const Input& input, const Survey& survey, std::uint64_t maxSize)
{
    const std::uint64_t needed = maxSize == 0 ? survey.size : std::min(survey.size, maxSize);
    const auto& unreadable = survey.unreadable;
    if (std::any_of(unreadable.begin(), unreadable.end(), [=](Range range) { return range.begin < needed; }) ||
        (unreadable.empty() && survey.damage == Damage::Unreadable)) {
        return TooShort(input.Name(), 0);
    }
    if (survey.size < kHeaderSize) {
        return TooShort(input.Name(), survey.size);
    }
    if (maxSize != 0 && survey.size > maxSize) {
        return TooLong(input.Name(), survey.size, maxSize);
    }
    if (survey.version != kFormatVersion) {
        return OtherVersion(input.Name(), survey.version);
    }
    const std::string reason = input.WhyNotWritable();
    return reason.empty() ? "" : CannotOpen(input.Name(), reason);
}

// The image of a bounded reopening is the file and zeros. So a record whose end is missing is good again if all that is
// missing are zeros.
void AddPaddedRecords(const Input& input, const Survey& survey, std::uint64_t maxSize, Reopening& reopening)
{
    const bool mayChange = survey.damage == Damage::CutRecord || Glue::HeadSize() == 0;
    if (survey.damage == Damage::None || maxSize <= survey.size || !mayChange) {
        return;
    }
    Walk walk(input, /* judging = */ true);
    walk.Counted({});
    const Input padded(input, reopening.position, maxSize);
    File::DataChunkFileScanner scanner(padded.Path());
    scanner.GoTo(reopening.position, survey.count - reopening.records);
    while (scanner.Next()) {
        ++reopening.records;
        walk.Times().Add(scanner.GetChunk().GetTimePoint());
    }
    reopening.position = scanner.GetPosition();
    reopening.timePoints = walk.Times().Distinct();
}

std::string_view Overwritten(const Survey& survey, std::uint64_t position)
{
    if (position >= survey.size) {
        return "nothing";
    }
    switch (survey.damage) {
        case Damage::CutRecord:
            return "cut-record";
        case Damage::ZerosForRecord:
            return "zeros-for-record";
        case Damage::BadRecord:
            return survey.knownChunks || survey.count == 1 ? "bad-record" : "unknown-records";
        default:
            break;
    }
    if (survey.fill.other == survey.size) {
        return "zeros";
    }
    if (survey.fill.secondImage) {
        return "second-image";
    }
    return survey.numberOfRuns != 0 ? "older-records" : "other-bytes";
}

}  // namespace

Reopening PredictReopening(const Input& input, const Survey& survey, std::uint64_t maxSize)
{
    Reopening reopening;
    reopening.refusal = Refusal(input, survey, maxSize);
    if (!reopening.refusal.empty()) {
        return reopening;
    }
    reopening.records = survey.end.records;
    reopening.position = survey.end.position;
    reopening.timePoints = survey.times.distinct;
    AddPaddedRecords(input, survey, maxSize, reopening);
    reopening.overwrites = Overwritten(survey, reopening.position);
    return reopening;
}

}  // namespace Corvane::FileTool
