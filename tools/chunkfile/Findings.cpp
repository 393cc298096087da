#include "chunkfile/Findings.h"

#include <array>

#include "Corvane/File/ChunkFileLayout.h"
#include "chunkfile/Commands.h"
#include "chunkfile/Times.h"

namespace Corvane::FileTool {

using File::kFormatVersion;
using File::kHeaderSize;

namespace {

constexpr Range kVersionWord = {File::kVersionPosition, File::kChunkNumberPosition};

// Collects findings of one file.
class Findings {
public:
    explicit Findings(const Survey& survey) : survey_(survey) {}

    std::vector<Finding> Take() { return std::move(findings_); }

    void Damages()
    {
        const std::uint64_t size = survey_.size;
        const std::uint64_t position = survey_.end.position;
        const std::uint64_t good = survey_.end.records;
        switch (survey_.damage) {
            case Damage::None:
            case Damage::Unreadable:
                return;
            case Damage::ShortFile:
                Error(NameOf(survey_.damage), {0, size}, Number(size, "byte is", "bytes are") + " no whole header");
                return;
            case Damage::CountTooHigh:
                AtEnd(size,
                      "the header counts " + Records(survey_.count) + ", " + Number(good, "is", "are") + " there");
                return;
            case Damage::CutRecord:
                AtEnd(size, "the file ends inside this record: it has " + Bytes(size - position));
                return;
            case Damage::ZerosForRecord:
                Bad(survey_.notZero, "zeros, and other bytes after them");
                return;
            case Damage::BadRecord:
                Bad(survey_.runs.empty() ? size : survey_.runs.front().begin, survey_.end.reason);
                return;
        }
    }

    void Unreadable()
    {
        for (const Range& range : survey_.unreadable) {
            Error("unreadable", range, "the system cannot read these bytes");
        }
        if (survey_.unreadable.empty() && survey_.damage == Damage::Unreadable) {
            AtEnd(survey_.end.position, survey_.end.reason);
        }
    }

    void Versions()
    {
        if (survey_.size < kHeaderSize || survey_.version == kFormatVersion) {
            return;
        }
        if (survey_.version == 0) {
            Add(Severity::Warning, "unbounded", kVersionWord,
                "version 0, of a file written without maximum size: it can be read, but not reopened");
        } else {
            Add(Severity::Warning, "other-version", kVersionWord,
                "version " + std::to_string(survey_.version) + ": it cannot be reopened");
        }
    }

    void Times()
    {
        const TimeSpan& times = survey_.times;
        if (const std::uint64_t equal = survey_.end.records - times.distinct; equal != 0) {
            Add(Severity::Warning, "equal-times", {kHeaderSize, survey_.end.position},
                Number(equal, "record has", "records have") + " the time point of another");
        }
        if (times.firstDescent) {
            Add(Severity::Warning, "times-descend", times.firstDescent->bytes,
                Number(times.descents, "time is", "times are") + " before the one that precedes");
            findings_.back().record = times.firstDescent->index;
            findings_.back().time = TimeText(times.firstDescent->time);
        }
        if (survey_.changed) {
            Add(Severity::Warning, "changed", {0, survey_.size}, "the file changed while it was read");
        }
    }

    void AfterEnd()
    {
        const std::uint64_t end = survey_.end.position;
        const auto& second = survey_.secondImage;
        const std::uint64_t others = survey_.found + survey_.doubtful;
        if (survey_.damage != Damage::None) {
            if (others != 0) {
                Note("found-after", survey_.runs.front().begin,
                     Records(survey_.found) + " of this file, and " + std::to_string(survey_.doubtful) +
                         " doubtful, in " + Number(survey_.numberOfRuns, "run", "runs"));
            }
            return;
        }
        if (end < survey_.size && survey_.notZero == survey_.size) {
            Note("fill-zero", end, "zeros after the last record");
        } else if (end < survey_.size && others == 0) {
            Note("fill-other", survey_.notZero, "other bytes than zeros after the last record");
        }
        if (second) {
            Note("second-image", second->begin - kHeaderSize, "the image once more, with its header");
        }
        if (const std::uint64_t older = others - (second ? second->records : 0); older != 0) {
            Note("older-records", survey_.runs.front().begin, Records(older) + " after the last counted one");
        }
    }

private:
    void Add(Severity severity, std::string_view code, Range bytes, std::string text)
    {
        findings_.push_back({severity, code, bytes, {}, {}, std::move(text)});
    }

    void Error(std::string_view code, Range bytes, std::string text)
    {
        Add(Severity::Error, code, bytes, std::move(text));
    }

    void Note(std::string_view code, std::uint64_t begin, std::string text)
    {
        Add(Severity::Note, code, {begin, survey_.size}, std::move(text));
    }

    // About the record that could not be had.
    void AtEnd(std::uint64_t end, std::string text)
    {
        Error(NameOf(survey_.damage), {survey_.end.position, end}, std::move(text));
        findings_.back().record = survey_.end.records;
        findings_.back().time = survey_.times.last ? TimeText(*survey_.times.last) : "";
    }

    void Bad(std::uint64_t end, std::string text)
    {
        if (survey_.knownChunks) {
            AtEnd(end, std::move(text));
        } else if (survey_.count == 1) {
            AtEnd(end, text + ", or one of another chunk type: one record cannot tell");
        } else {
            Error("unknown-records", {kHeaderSize, survey_.size},
                  Records(survey_.count) + " are counted, and none is of this tool's chunk type");
        }
    }

    const Survey& survey_;
    std::vector<Finding> findings_;
};

}  // namespace

std::vector<Finding> FindingsOf(const Survey& survey)
{
    Findings findings(survey);
    findings.Damages();
    findings.Unreadable();
    findings.Versions();
    findings.Times();
    findings.AfterEnd();
    return findings.Take();
}

Verdict VerdictOf(const std::vector<Finding>& findings, const Survey& survey)
{
    if (!survey.knownChunks) {
        return survey.count == 1 ? Verdict::Unclear : Verdict::Unknown;
    }
    Verdict verdict = Verdict::Sound;
    for (const Finding& finding : findings) {
        if (finding.severity == Severity::Error) {
            verdict =
                finding.code == "unreadable" && verdict != Verdict::Damaged ? Verdict::Unreadable : Verdict::Damaged;
        }
    }
    return verdict;
}

std::string_view NameOf(Severity severity)
{
    constexpr std::array<std::string_view, 3> names = {"error", "warning", "note"};
    return names[static_cast<std::size_t>(severity)];
}

std::string_view NameOf(Verdict verdict)
{
    constexpr std::array<std::string_view, 5> names = {"sound", "damaged", "unknown", "unclear", "unreadable"};
    return names[static_cast<std::size_t>(verdict)];
}

}  // namespace Corvane::FileTool
