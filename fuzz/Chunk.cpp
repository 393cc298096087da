// The three forms of ReadFrom agree on any bytes, and a chunk that was read can be written again.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

#include "Corvane/File/ChunkFileLayout.h"
#include "Support.h"

namespace {

using Corvane::Time::TimePoint;
using fuzz::Check;
using fuzz::DataChunk;

constexpr std::size_t kPageSize = 4096;
constexpr std::size_t kMostBytes = std::size_t{1} << 20U;

// Memory for a record. As many zeros as the longest record has can be read after it, and nothing past them.
class Memory {
public:
    Memory()
    {
        constexpr std::size_t kReadable = kMostBytes + DataChunk::kMaxSizeOnFile;
        void* const memory = ::mmap(nullptr, kReadable + kPageSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        Check(memory != MAP_FAILED && ::mprotect(memory, kReadable, PROT_READ) == 0 &&
                  ::mprotect(memory, kMostBytes, PROT_READ | PROT_WRITE) == 0,
              "there is address space");
        end_ = static_cast<unsigned char*>(memory) + kMostBytes;
    }

    // Puts the bytes right before the zeros. The result is valid until the next call.
    const unsigned char* Hold(const std::string& bytes)
    {
        Check(bytes.size() <= kMostBytes, "an input is that small");
        std::copy(bytes.begin(), bytes.end(), end_ - bytes.size());
        return end_ - bytes.size();
    }

private:
    unsigned char* end_;
};

DataChunk Before()
{
    DataChunk chunk{TimePoint(7)};
    chunk.Set("before", "it was read");
    return chunk;
}

void CheckResult(std::uint64_t result, const DataChunk& chunk)
{
    Check(result != 0 ? result == chunk.GetSizeOnFile() : fuzz::Equal(chunk, Before()),
          "the result is the record's size, or 0 and the chunk is unchanged");
}

// With checksums a chunk has one record. Without, records that differ in a checksum give equal chunks.
void CheckWrittenAgain(const DataChunk& chunk, const std::string& bytes)
{
    const std::string record = fuzz::RecordOf(chunk);
#ifndef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
    Check(bytes.compare(0, record.size(), record) == 0, "what was read is written as the same bytes");
#else
    static_cast<void>(bytes);
#endif
    DataChunk again;
    Check(again.ReadFrom(reinterpret_cast<const unsigned char*>(record.data())) == record.size() &&
              fuzz::Equal(again, chunk),
          "what is written reads back");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Memory memory;
    const fuzz::TimeLimit limit;
    const fuzz::Input input(data, size);
    const std::string bytes = input.file.substr(std::min(input.file.size(), std::size_t{Corvane::File::kHeaderSize}));
    const fuzz::MemoryFile file(bytes);

    DataChunk fromMemory = Before();
    const std::uint64_t inMemory = fromMemory.ReadFrom(memory.Hold(bytes));
    CheckResult(inMemory, fromMemory);

    DataChunk fromFile = Before();
    const std::uint64_t inFile = fromFile.ReadFrom(file.Fd());
    CheckResult(inFile, fromFile);
    Check(inFile == (inMemory <= bytes.size() ? inMemory : 0), "memory and file agree on a record that is whole");
    Check(inFile == 0 || fuzz::Equal(fromFile, fromMemory), "and on its content");
    Check(inFile == 0 || ::lseek(file.Fd(), 0, SEEK_CUR) == static_cast<off_t>(inFile),
          "the position is right after the record");

    DataChunk byNames = Before();
    Check(::lseek(file.Fd(), 0, SEEK_SET) == 0, "a memory file can be rewound");
    const std::uint64_t named = byNames.ReadFrom(file.Fd(), {"p", "a", "cpu"});
    CheckResult(named, byNames);
    Check(inFile == 0 || named == inFile, "a good record can be read by names too");
    Check(named <= bytes.size(), "skipped bytes are in the file");
    if (inFile != 0) {
        CheckWrittenAgain(fromFile, bytes);
    }
    return 0;
}
