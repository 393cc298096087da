// chunkfile recover: all records of a file, those after damage included, into a new one.
#include <optional>
#include <stdexcept>

#include "Corvane/File/ChunkFileLayout.h"
#include "chunkfile/Plan.h"
#include "chunkfile/SoundFile.h"
#include "chunkfile/Times.h"

namespace Corvane::FileTool {

using File::kHeaderSize;
using Time::TimePoint;

namespace {

class Recovery {
public:
    Recovery(const Options& options, Terminal& terminal, Plan& plan, const Input& input)
        : options_(options), terminal_(terminal), plan_(plan), input_(input)
    {
    }

    // Plans which records to take, and reports what is lost.
    Exit Run()
    {
        Walk walk(input_, /* judging = */ true);
        const auto visit = [this](const FoundRecord& record) { return Take(record); };
        const WalkEnd end = walk.Counted(visit);
        isDamaged_ = end.kind != WalkEnd::Kind::AllRead;
        if (isDamaged_) {
            terminal_.Error(ErrorText(input_.Name(), end.position, end.records, end.reason));
        }
        if (isDamaged_ || options_.doubtful) {
            walk.AfterEnd(visit);
        }
        if (isDamaged_ && next_ < walk.Count()) {
            ReportEnd();
        }
        if (isDamaged_ || options_.doubtful) {
            ReportNumbers(walk);
        }
        return isDamaged_ ? Exit::Found : Exit::Fine;
    }

private:
    bool Take(const FoundRecord& record)
    {
        terminal_.Progress(input_.Name(), record.position, input_.Size());
        if (record.standing == Standing::Doubtful && !options_.doubtful) {
            return true;
        }
        const TimePoint time = record.chunk.GetTimePoint();
        if (isDamaged_ && record.position != end_) {
            ReportGap(record.position, &time);
        }
        plan_.Add(record);
        end_ = record.position + record.chunk.GetSizeOnFile();
        next_ = record.index + 1;
        last_.emplace(time);
        return true;
    }

    // Bytes without a record that is taken, and the time between the records around them.
    void ReportGap(std::uint64_t end, const TimePoint* after)
    {
        std::string text = "lost bytes " + std::to_string(end_) + " to " + std::to_string(end);
        text += last_ ? ", after " + TimeText(*last_) : "";
        text += after != nullptr ? ", before " + TimeText(*after) : "";
        if (last_ && after != nullptr && *last_ < *after && Glue::NanosecondsOf(*after)) {
            const auto nanoseconds = [](const TimePoint& time) {
                return static_cast<std::uint64_t>(Glue::NanosecondsOf(time).value_or(0));
            };
            text += " (" + DurationText(nanoseconds(*after) - nanoseconds(*last_)) + ")";
        }
        Print(text);
        ++gaps_;
    }

    // The header counts more records. If only zeros follow, then they were never written, or lay in a gap.
    void ReportEnd()
    {
        if (input_.SkipZeros(end_) != input_.Size()) {
            ReportGap(input_.Size(), nullptr);
        } else if (gaps_ == 0) {
            const std::string what = end_ == input_.Size() ? "the file ends at byte " : "only zeros follow byte ";
            Print(what + std::to_string(end_));
        }
    }

    void ReportNumbers(const Walk& walk)
    {
        std::string text = Records(plan_.Size()) + " taken; the header counts " + std::to_string(walk.Count());
        if (walk.After().doubtful != 0) {
            text += "; " + std::to_string(walk.After().doubtful) + " doubtful ones " +
                    (options_.doubtful ? "among them" : "left out");
        }
        Print(text);
    }

    void Print(const std::string& text) { Say(terminal_, options_, input_.Name(), text); }

    const Options& options_;
    Terminal& terminal_;
    Plan& plan_;
    const Input& input_;
    bool isDamaged_ = false;
    std::uint64_t end_ = kHeaderSize;  // of the last record taken
    std::uint64_t next_ = 0;           // the least index of a record after it
    std::optional<TimePoint> last_;
    std::uint64_t gaps_ = 0;
};

// Tries to write the file without a plan, in two thirds of the time. Not in parts: if a later record needs a plan after
// all, finished parts cannot be taken back.
bool WriteSound(const Input& input, const Options& options, Terminal& terminal)
{
    if (options.doubtful || options.dryRun || options.splitBytes != 0 || options.splitNanoseconds != 0) {
        return false;
    }
    try {
        SoundFile source(input, options, terminal);
        WriteChunks(source, options, terminal);
        return true;
    } catch (const SoundFile::NeedsPlan&) {
        return false;
    }
}

}  // namespace

Exit Recover(const Options& options, Terminal& terminal)
{
    CheckOutput(options);
    Plan plan(options, terminal);
    const Input& input = plan.Open(options.paths.front());
    if (input.Size() < kHeaderSize) {
        terminal.Error(ErrorText(input.Name(), "shorter than the header of a chunk file"));
        return Exit::Found;
    }
    if (WriteSound(input, options, terminal)) {
        return Exit::Fine;
    }
    const Exit code = Recovery(options, terminal, plan, input).Run();
    if (code != Exit::Fine && plan.Size() == 0) {
        terminal.Error(ErrorText(options.output, "not written: there is no record to recover"));
        return code;
    }
    plan.Decide();
    return Graver(code, WriteChunks(plan, options, terminal).skipped == 0 ? Exit::Fine : Exit::Found);
}

}  // namespace Corvane::FileTool
