#include "chunkfile/Reopening.h"

#include <algorithm>

#include "Corvane/File/ChunkFileLayout.h"
#include "chunkfile/Glue.h"
#include "chunkfile/Walk.h"

namespace Corvane::FileTool {

using File::kFormatVersion;
using File::kHeaderSize;

namespace {

// The appender's own texts. If an appender cannot read a byte that it needs, it takes the file for empty.
std::string Refusal(const Input& input, const Survey& survey, std::uint64_t maxSize)
{
    const std::string file = "DataChunkFileAppender: file " + input.Name();
    const auto tooShort = [&](std::uint64_t size) {
        return file + " has content of only " + std::to_string(size) + " bytes. " + std::to_string(kHeaderSize) +
               "is the minimum expected";
    };
    const std::uint64_t needed = maxSize == 0 ? survey.size : std::min(survey.size, maxSize);
    const auto& unreadable = survey.unreadable;
    if (std::ranges::any_of(unreadable, [=](Range range) { return range.begin < needed; }) ||
        (unreadable.empty() && survey.damage == Damage::Unreadable)) {
        return tooShort(0);
    }
    if (survey.size < kHeaderSize) {
        return tooShort(survey.size);
    }
    if (maxSize != 0 && survey.size > maxSize) {
        return "DataChunkFileAppender: content size " + std::to_string(survey.size) +
               " is greater than specified size " + std::to_string(maxSize) + " when reading file " + input.Name();
    }
    if (survey.version != kFormatVersion) {
        return file + " is stored with version " + std::to_string(survey.version) + " instead of version " +
               std::to_string(kFormatVersion) + ": we don't know how to read this file";
    }
    const std::string reason = input.WhyNotWritable();
    return reason.empty() ? "" : "DataChunkFileAppender could not open file " + input.Name() + ": " + reason;
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
    walk.Times().Keep();
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
    reopening.overwrites = reopening.position >= survey.size ? "nothing" : RestOf(survey);
    return reopening;
}

}  // namespace Corvane::FileTool
