// Reopens any file: it is refused and does not change, or its good prefix is found and can be continued.
#include <algorithm>
#include <set>
#include <stdexcept>
#include <vector>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileAppender.h"
#include "Corvane/File/DataChunkFileReader.h"
#include "Support.h"

namespace {

using Corvane::File::DataChunkFileAppender;
using Corvane::File::DataChunkFileReader;
using Corvane::File::kChunkNumberPosition;
using Corvane::File::kFormatVersion;
using Corvane::File::kHeaderSize;
using Corvane::Time::TimePoint;
using fuzz::Check;
using fuzz::DataChunk;

// The good records at the start of a file.
struct Prefix {
    std::vector<DataChunk> chunks;
    std::uint64_t end = kHeaderSize;  // byte position after the last one

    std::set<std::int64_t> Times() const
    {
        std::set<std::int64_t> times;
        for (const DataChunk& chunk : chunks) {
            times.insert(chunk.GetTimePoint().Nanoseconds());
        }
        return times;
    }
};

// Uses the reader, so that the records are read through a descriptor.
Prefix ReadPrefix(const std::string& path)
{
    DataChunkFileReader reader(path);
    Prefix prefix;
    DataChunk chunk;
    while (prefix.chunks.size() < reader.GetNumberOfChunks() && reader.GetChunk(chunk, prefix.end) != 0) {
        prefix.end += chunk.GetSizeOnFile();
        prefix.chunks.push_back(chunk);
    }
    return prefix;
}

bool CanBeReopened(const std::string& file, std::uint64_t maxSize)
{
    return file.size() >= kHeaderSize && (maxSize == 0 || file.size() <= maxSize) &&
           fuzz::WordAt(file, 0) == kFormatVersion;
}

std::set<std::int64_t> TimesOf(const DataChunkFileAppender& appender)
{
    std::set<std::int64_t> times;
    for (const TimePoint& timePoint : appender.GetTimePoints()) {
        times.insert(timePoint.Nanoseconds());
    }
    return times;
}

void CheckRefused(const fuzz::MemoryFile& file, const std::string& bytes, std::uint64_t maxSize)
{
    bool refused = false;
    try {
        const DataChunkFileAppender appender(file.Path(), true, maxSize);
    } catch (const std::runtime_error&) {
        refused = true;
    }
    Check(refused, "a file that is too short, too long or of another version is refused");
    Check(file.Bytes() == bytes, "a refused file does not change");
}

// Reopening and closing only adds zeros up to the maximum size.
void CheckKept(const fuzz::MemoryFile& file, std::string bytes, std::uint64_t maxSize)
{
    std::set<std::int64_t> times;
    {
        const DataChunkFileAppender appender(file.Path(), true, maxSize);
        times = TimesOf(appender);
    }
    bytes.resize(std::max<std::size_t>(bytes.size(), maxSize));
    Check(file.Bytes() == bytes, "reopening without an append adds only zeros");
    Check(times == ReadPrefix(file.Path()).Times(), "reopening finds the records that the reader finds");
}

DataChunk NewChunk(const Prefix& prefix, std::size_t fieldSize)
{
    const std::set<std::int64_t> times = prefix.Times();
    std::int64_t time = 0;
    while (times.contains(time)) {
        ++time;
    }
    DataChunk chunk{TimePoint(time)};
    chunk.Set("new", std::string(fieldSize, 'n'));
    return chunk;
}

// The file with the chunk right after its prefix. A refused duplicate has also grown an unbounded image.
std::string Continued(std::string file, const Prefix& prefix, const DataChunk& chunk, std::uint64_t maxSize)
{
    const std::string record = fuzz::RecordOf(chunk);
    std::uint64_t longest = record.size();
    for (const DataChunk& old : prefix.chunks) {
        longest = std::max(longest, old.GetSizeOnFile());
    }
    if (maxSize == 0) {
        file.resize(std::max(file.size(), prefix.end + longest));
    }
    const std::uint64_t count = prefix.chunks.size() + 1;
    file.replace(kChunkNumberPosition, sizeof count, reinterpret_cast<const char*>(&count), sizeof count);
    return file.replace(prefix.end, record.size(), record);
}

// Appends the chunks of the file once more, then a new one.
void CheckContinued(const fuzz::MemoryFile& file, std::uint64_t maxSize, std::size_t fieldSize)
{
    const std::string before = file.Bytes();
    const Prefix prefix = ReadPrefix(file.Path());
    const DataChunk chunk = NewChunk(prefix, fieldSize);
    const bool fits = maxSize == 0 || chunk.GetSizeOnFile() <= maxSize - prefix.end;
    {
        DataChunkFileAppender appender(file.Path(), true, maxSize);
        for (const DataChunk& old : prefix.chunks) {
            Check(!appender.Append(old), "a chunk of the file is refused as a duplicate or for its size");
        }
        Check(appender.Append(chunk) == fits, "a new chunk is accepted exactly if it fits");
    }
    Check(file.Bytes() == (fits ? Continued(before, prefix, chunk, maxSize) : before),
          "only the new record and the count change");
    if (fits) {
        const std::vector<DataChunk> found = ReadPrefix(file.Path()).chunks;
        Check(found.size() == prefix.chunks.size() + 1 &&
                  std::equal(prefix.chunks.begin(), prefix.chunks.end(), found.begin(), fuzz::Equal) &&
                  fuzz::Equal(found.back(), chunk),
              "what is read back is the prefix and the new chunk");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::DiscardLog();
    const fuzz::TimeLimit limit;
    const fuzz::Input input(data, size);
    const std::uint64_t maxSize = fuzz::ChooseMaxSize(input);
    const fuzz::MemoryFile file(input.file);
    if (!CanBeReopened(input.file, maxSize)) {
        CheckRefused(file, input.file, maxSize);
        return 0;
    }
    CheckKept(file, input.file, maxSize);
    CheckContinued(file, maxSize, input.choices[2]);
    return 0;
}
