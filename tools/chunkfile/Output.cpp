#include "chunkfile/Output.h"

#include <fcntl.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileScanner.h"
#include "Corvane/File/WriteChunkFileDurably.h"
#include "chunkfile/EqualTimes.h"
#include "chunkfile/Interrupts.h"
#include "chunkfile/OutputName.h"
#include "chunkfile/Times.h"

namespace Corvane::FileTool {

using File::DataChunkFileAppender;
using File::DataChunkFileScanner;
using File::kHeaderSize;
using Pellin::DataChunk;

namespace {

constexpr std::uint64_t kMostBytes = 2'147'479'552;  // of an appender's one `write`: a limit of Linux

struct InterruptedError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Part {
    std::uint64_t first = 0;  // the number of its first chunk
    std::uint64_t records = 0;
    std::uint64_t bytes = kHeaderSize;
    std::int64_t begin = 0;  // the time of its first record; 0 if the platform does not tell it
};

bool Splits(const Options& options)
{
    return options.splitBytes != 0 || options.splitNanoseconds != 0;
}

bool Contains(const std::vector<std::uint64_t>& ascending, std::uint64_t number)
{
    return !ascending.empty() && std::binary_search(ascending.begin(), ascending.end(), number);
}

// Lets the disk write while the records are compared. The library's fsync then waits less.
void BeginSync(const std::string& name)
{
    const File::Descriptor file(::open(name.c_str(), O_RDONLY | O_CLOEXEC));
    ::sync_file_range(file.Get(), 0, 0, SYNC_FILE_RANGE_WRITE);
}

// Writes one part after another.
class Writer {
public:
    Writer(ChunkSource& source, const Options& options, Terminal& terminal)
        : source_(source),
          options_(options),
          terminal_(terminal),
          maxSize_(options.maxSize.value_or(0)),
          most_(maxSize_ == 0 ? kMostBytes : maxSize_),
          full_(options.splitBytes == 0 ? most_ : std::min(most_, options.splitBytes)),
          looksAtTimes_(!source.HasDistinctTimes())
    {
    }

    const Written& Run()
    {
        Take();
        do {
            WritePart(Splits(options_) ? PartName(options_.output, written_.parts + 1) : options_.output);
        } while (chunk_ != nullptr);
        return written_;
    }

    const Written& Done() const { return written_; }

private:
    void WritePart(const std::string& name)
    {
        RefuseName(name, options_);
        part_ = {};
        part_.first = taken_ - 1;
        if (options_.dryRun) {
            Fill(nullptr);
        } else {
            File::WriteChunkFileDurably(
                name, maxSize_, [this](DataChunkFileAppender& appender) { Fill(&appender); },
                [&](const std::string& fresh) { Prove(fresh, name); });
        }
        ++written_.parts;
        written_.records += part_.records;
        Say(terminal_, options_, name,
            Records(part_.records) + ", " + Bytes(std::max(part_.bytes, maxSize_)) +
                (options_.dryRun ? ", not written" : ""));
    }

    // Appends chunks up to the end of the part.
    void Fill(DataChunkFileAppender* appender)
    {
        for (; chunk_ != nullptr && !BeginsPart(*chunk_); Take()) {
            if (appender != nullptr && !appender->Append(*chunk_)) {
                throw std::runtime_error(source_.Where() + ": the appender refuses this record");
            }
            if (part_.records++ == 0) {
                part_.begin = Glue::NanosecondsOf(chunk_->GetTimePoint()).value_or(0);
            }
            part_.bytes += chunk_->GetSizeOnFile();
        }
    }

    // Goes to the next chunk whose time was not given yet, or that gets another time.
    void Take()
    {
        for (;;) {
            chunk_ = source_.Next();
            StopIfInterrupted();  // null may mean that Ctrl-C came
            ++taken_;
            if (chunk_ == nullptr || !looksAtTimes_ || times_.Give(chunk_->GetTimePoint())) {
                return;
            }
            if (options_.onEqualTime == OnEqualTime::Stop) {
                throw std::runtime_error(source_.Where() + ": an earlier record has the same time, " +
                                         TimeText(chunk_->GetTimePoint()) + "; see --on-equal-time");
            }
            if (options_.onEqualTime == OnEqualTime::Shift) {
                Shift();
                return;
            }
            skipped_.push_back(taken_ - 1);
            ++written_.skipped;
        }
    }

    void Shift()
    {
        try {
            shiftedChunk_ = times_.Shifted(*chunk_);
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(ErrorText(source_.Where(), error.what()));
        }
        chunk_ = shiftedChunk_.get();
        shifted_.push_back(taken_ - 1);
        ++written_.shifted;
    }

    // Whether the chunk does not belong to this part.
    bool BeginsPart(const DataChunk& chunk) const
    {
        const bool mayEnd = Splits(options_) && part_.records != 0;
        const std::uint64_t limit = mayEnd ? full_ : most_;
        if (chunk.GetSizeOnFile() > limit - std::min(limit, part_.bytes)) {
            return mayEnd || RefuseSize(chunk);
        }
        if (!mayEnd || options_.splitNanoseconds == 0) {
            return false;
        }
        const std::int64_t time = Glue::NanosecondsOf(chunk.GetTimePoint()).value_or(0);
        const std::uint64_t since = static_cast<std::uint64_t>(time) - static_cast<std::uint64_t>(part_.begin);
        return time < part_.begin || since >= options_.splitNanoseconds;
    }

    [[noreturn]] bool RefuseSize(const DataChunk& chunk) const
    {
        throw std::runtime_error(source_.Where() + ": a record of " + Bytes(chunk.GetSizeOnFile()) +
                                 " does not fit into a file of at most " + Bytes(most_) + " that has " +
                                 Records(part_.records) + (Splits(options_) ? "" : "; see --split"));
    }

    void Prove(const std::string& freshName, const std::string& name)
    {
        const Input fresh(freshName);
        BeginSync(freshName);
        DataChunkFileScanner scanner(freshName);
        std::uint64_t records = 0;
        for (std::uint64_t number = part_.first; scanner.Next(); ++number, ++records) {
            StopIfInterrupted();
            while (Contains(skipped_, number)) {
                ++number;
            }
            const DataChunk& chunk = scanner.GetChunk();
            source_.Compare(
                {number, chunk, fresh, scanner.GetPosition(), chunk.GetSizeOnFile(), Contains(shifted_, number)});
        }
        if (records != part_.records || scanner.GetNumberOfChunks() != records) {
            throw std::runtime_error(ErrorText(name, scanner.GetPosition(), records, "was written and is not there"));
        }
        source_.Confirm();
        RefuseName(name, options_);  // while the part was written, somebody may have made such a file
    }

    void StopIfInterrupted() const
    {
        if (Interrupts::Count() > (source_.EndsAtInterrupt() ? 1 : 0)) {
            throw InterruptedError("interrupted");
        }
    }

    ChunkSource& source_;
    const Options& options_;
    Terminal& terminal_;
    std::uint64_t maxSize_;  // bytes; 0: none
    std::uint64_t most_;     // bytes that a part can have
    std::uint64_t full_;     // bytes after which another part begins
    bool looksAtTimes_;
    const DataChunk* chunk_ = nullptr;
    std::uint64_t taken_ = 0;  // chunks of the source, with chunk_
    GivenTimes times_;
    std::unique_ptr<DataChunk> shiftedChunk_;
    std::vector<std::uint64_t> skipped_;  // numbers of chunks
    std::vector<std::uint64_t> shifted_;
    Part part_;
    Written written_;
};

// The library's text without its function's name: file, step and reason.
[[noreturn]] void Rethrow(const std::runtime_error& error)
{
    constexpr std::string_view begin = "WriteChunkFileDurably: file ";
    const std::string_view text = error.what();
    if (text.starts_with(begin)) {
        throw std::runtime_error(std::string(text.substr(begin.size())));
    }
    throw;  // NOLINT(misc-throw-by-value-catch-by-reference): called in a handler
}

}  // namespace

std::string PlaceText(const std::string& file, std::uint64_t position, std::uint64_t record)
{
    return file + ": byte " + std::to_string(position) + " (record " + std::to_string(record) + ")";
}

void RefuseChanged(const Input& source)
{
    if (source.HasChanged()) {
        throw std::runtime_error(ErrorText(source.Name(), "changed while it was read"));
    }
}

void Say(Terminal& terminal, const Options& options, const std::string& file, const std::string& text)
{
    if (!options.quiet) {
        terminal.Write(Terminal::Escaped(ErrorText(file, text)) + "\n");
    }
}

bool Interrupted()
{
    return Interrupts::Count() != 0;
}

void CheckOutput(const Options& options)
{
    const bool shifts = options.onEqualTime == OnEqualTime::Shift;
    if (options.output == "-") {
        throw std::invalid_argument("-o takes the name of a file: standard output cannot be proved");
    }
    if (shifts && (Glue::MakeChunk(0, {}) == nullptr || !Glue::TimePointOf(0))) {
        throw std::invalid_argument("--on-equal-time shift needs a platform that makes chunks of nanoseconds");
    }
    if (options.splitNanoseconds != 0 && !Glue::TimePointOf(0)) {
        throw std::invalid_argument("--split by time needs a platform that tells its times in nanoseconds");
    }
    RefuseName(Splits(options) ? PartName(options.output, 1) : options.output, options);
}

Written WriteChunks(ChunkSource& source, const Options& options, Terminal& terminal)
{
    CheckOutput(options);
    const Interrupts interrupts;
    Writer writer(source, options, terminal);
    try {
        const Written& written = writer.Run();
        if (written.skipped != 0) {
            Say(terminal, options, options.output,
                Records(written.skipped) + " left out: an earlier one has the same time");
        }
        if (written.shifted != 0) {
            Say(terminal, options, options.output,
                Records(written.shifted) + " shifted to a later time: an earlier one has the same");
        }
        const std::string next = PartName(options.output, written.parts + 1);
        if (Splits(options) && Exists(next)) {
            terminal.Error(ErrorText(next, "is of an earlier run, and so are the parts after it"));
        }
        if (Interrupted() && source.EndsAtInterrupt()) {
            terminal.Error(ErrorText(options.output, "interrupted: the input ends here"));
        }
        return written;
    } catch (const InterruptedError&) {
        terminal.Error(ErrorText(options.output,
                                 "interrupted; " + Number(writer.Done().parts, "file was", "files were") + " written"));
        Interrupts::End();
    } catch (const OutputError&) {
        if (Interrupted()) {  // the reader of standard output has gone away
            Interrupts::End();
        }
        throw;
    } catch (const std::runtime_error& error) {
        Rethrow(error);
    }
}

}  // namespace Corvane::FileTool
