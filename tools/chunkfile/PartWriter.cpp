#include "chunkfile/PartWriter.h"

#include <fcntl.h>

#include <algorithm>

#include "Corvane/File/DataChunkFileScanner.h"
#include "Corvane/File/WriteChunkFileDurably.h"
#include "chunkfile/Interrupts.h"
#include "chunkfile/OutputName.h"
#include "chunkfile/Times.h"

namespace Corvane::FileTool {

using File::DataChunkFileAppender;
using File::DataChunkFileScanner;
using Pellin::DataChunk;

namespace {

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

}  // namespace

PartWriter::PartWriter(ChunkSource& source, const Options& options, Terminal& terminal)
    : source_(source),
      options_(options),
      terminal_(terminal),
      maxSize_(options.maxSize.value_or(0)),
      most_(maxSize_ == 0 ? kMostBytes : maxSize_),
      full_(options.splitBytes == 0 ? most_ : std::min(most_, options.splitBytes)),
      looksAtTimes_(!source.HasDistinctTimes())
{
}

const Written& PartWriter::Run()
{
    Take();
    do {
        WritePart(Splits(options_) ? PartName(options_.output, written_.parts + 1) : options_.output);
    } while (chunk_ != nullptr);
    return written_;
}

void PartWriter::WritePart(const std::string& name)
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
void PartWriter::Fill(DataChunkFileAppender* appender)
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
void PartWriter::Take()
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

void PartWriter::Shift()
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
bool PartWriter::BeginsPart(const DataChunk& chunk) const
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

bool PartWriter::RefuseSize(const DataChunk& chunk) const
{
    throw std::runtime_error(source_.Where() + ": a record of " + Bytes(chunk.GetSizeOnFile()) +
                             " does not fit into a file of at most " + Bytes(most_) + " that has " +
                             Records(part_.records) + (Splits(options_) ? "" : "; see --split"));
}

void PartWriter::Prove(const std::string& freshName, const std::string& name)
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

void PartWriter::StopIfInterrupted() const
{
    const bool hasChunks = taken_ != 0 || chunk_ != nullptr;
    if (Interrupts::Count() > (source_.EndsAtInterrupt() && hasChunks ? 1 : 0)) {
        throw InterruptedError("interrupted");
    }
}

}  // namespace Corvane::FileTool
