#include "chunkfile/Selection.h"

#include <stdexcept>

#include "Corvane/File/ChunkFileLayout.h"
#include "chunkfile/Glue.h"
#include "chunkfile/Times.h"

namespace Corvane::FileTool {

namespace {

using Base = TimeBound::Base;

std::int64_t Nanoseconds(const Time::TimePoint& timePoint)
{
    const auto nanoseconds = Glue::NanosecondsOf(timePoint);
    if (!nanoseconds) {
        throw std::invalid_argument("--from and --to need a platform that tells its times in nanoseconds");
    }
    return *nanoseconds;
}

class Selection {
public:
    Selection(const Options& options, bool doubtful, const Input& input, Terminal& terminal)
        : options_(options), doubtful_(doubtful)
    {
        const auto from = options.from ? ParseTimeBound(*options.from) : std::nullopt;
        const auto to = options.to ? ParseTimeBound(*options.to) : std::nullopt;
        const auto has = [&](Base base) { return (from && from->base == base) || (to && to->base == base); };
        std::int64_t first = 0;
        std::int64_t last = 0;
        if (has(Base::First) || has(Base::Last)) {
            Walk(input, false).Counted([&](const FoundRecord& record) {
                terminal.Progress(input.Name(), record.position, input.Size());
                last = Nanoseconds(record.chunk.GetTimePoint());
                first = record.index == 0 ? last : first;
                return has(Base::Last);  // otherwise the first record is enough
            });
        }
        from_ = from ? std::optional(from->In(first, last)) : std::nullopt;
        to_ = to ? std::optional(to->In(first, last)) : std::nullopt;
    }

    // Whether the record of this index and later ones cannot be taken.
    bool IsOver(std::uint64_t index) const { return taken_ >= options_.limit || index >= options_.index.end; }

    // The same for those after a record. Doubtful ones do not count: the file's own may follow them.
    bool IsOverAfter(const FoundRecord& record) const
    {
        return IsOver(record.standing == Standing::Doubtful ? 0 : record.index + 1);
    }

    bool Takes(const FoundRecord& record)
    {
        const bool wanted = doubtful_ || record.standing != Standing::Doubtful;
        if (!wanted || record.index < options_.index.begin || record.index >= options_.index.end) {
            return false;
        }
        if (from_ || to_) {
            const std::int64_t time = Nanoseconds(record.chunk.GetTimePoint());
            if ((from_ && time < *from_) || (to_ && time >= *to_)) {
                return false;
            }
        }
        ++taken_;
        return true;
    }

    std::uint64_t Taken() const { return taken_; }

private:
    const Options& options_;
    const bool doubtful_;
    std::optional<std::int64_t> from_;
    std::optional<std::int64_t> to_;
    std::uint64_t taken_ = 0;
};

Exit ReportUnreadable(const FoundAfter& after, const Input& input, Terminal& terminal)
{
    for (const Range& range : after.unreadable) {
        terminal.Error(ErrorText(input.Name(), "bytes " + std::to_string(range.begin) + " to " +
                                                   std::to_string(range.end) + ": cannot be read"));
    }
    return after.unreadable.empty() ? Exit::Fine : Exit::CouldNot;
}

}  // namespace

void ReportChange(const Input& input, Terminal& terminal)
{
    if (input.HasChanged()) {
        terminal.Error(ErrorText(input.Name(), "the file changed while it was read"));
    }
}

Exit PrintSelected(const Options& options, const Input& input, Terminal& terminal, const Print& print, bool doubtful)
{
    Selection selection(options, doubtful, input, terminal);
    const auto visit = [&](const FoundRecord& record) {
        if (!terminal.IsTerminal() || selection.Taken() == 0) {  // lines on a terminal are progress enough
            terminal.Progress(input.Name(), record.position, input.Size());
        }
        if (selection.Takes(record)) {
            print(record);
        }
        return !selection.IsOverAfter(record);
    };
    if (selection.IsOver(0)) {
        return Exit::Fine;
    }
    Exit code = Exit::Fine;
    Walk walk(input, options.scan);
    const WalkEnd end = walk.Counted(visit);
    if (input.Size() < File::kHeaderSize) {
        terminal.Error(ErrorText(input.Name(), "shorter than the header of a chunk file"));
        code = Exit::Found;
    } else if (!end.reason.empty()) {
        terminal.Error(ErrorText(input.Name(), end.position, end.records, end.reason));
        code = end.kind == WalkEnd::Kind::Unreadable ? Exit::CouldNot : Exit::Found;
        if (options.scan) {
            walk.AfterEnd(visit);
            code = Graver(code, ReportUnreadable(walk.After(), input, terminal));
        }
    }
    if (options.verbose) {
        terminal.Error(ErrorText(input.Name(), Records(selection.Taken()) + " selected"));
    }
    return code;
}

void UnmetFields::Meet(const Pellin::DataChunk& chunk)
{
    any_ = true;
    if (!names_.empty()) {
        Glue::VisitFields(chunk, [this](std::string_view name, std::string_view /*value*/) {
            if (const auto met = names_.find(name); met != names_.end()) {
                names_.erase(met);
            }
        });
    }
}

void UnmetFields::Report(const Options& options, Terminal& terminal) const
{
    if (any_ && !options.quiet) {
        for (const std::string& name : names_) {
            terminal.Error("--fields: none of the chosen records has the field " + name);
        }
    }
}

Exit ForFile(const std::string& path, Terminal& terminal, const FileCommand& command)
{
    try {
        return command(Input(path));
    } catch (const OutputError&) {
        throw;
    } catch (const std::runtime_error& error) {
        terminal.Error(ErrorText(path == "-" ? "standard input" : path, error.what()));
        return Exit::CouldNot;
    }
}

Exit ForEachFile(const Options& options, Terminal& terminal, const FileCommand& command)
{
    Exit gravest = Exit::Fine;
    for (const std::string& path : options.paths) {
        gravest = Graver(gravest, ForFile(path, terminal, command));
    }
    return gravest;
}

}  // namespace Corvane::FileTool
