// Reads any file at any position: the result is what the chunk reports, and the file does not change.
#include "Corvane/File/DataChunkFileReader.h"

#include <algorithm>

#include "Corvane/File/ChunkFileLayout.h"
#include "Support.h"

namespace {

using Corvane::File::DataChunkFileReader;
using Corvane::File::kChunkNumberPosition;
using Corvane::File::kHeaderSize;
using Corvane::Time::TimePoint;
using fuzz::Check;
using fuzz::DataChunk;

constexpr std::size_t kMostRecords = 64;  // to look at: others are like them

DataChunk Before()
{
    DataChunk chunk{TimePoint(7)};
    chunk.Set("before", "it was read");
    return chunk;
}

// Returns the field names that the choice's bits select, and one that no record has.
std::set<std::string> ChooseNames(const DataChunk& chunk, std::uint8_t choice)
{
    std::set<std::string> names = {"of no record"};
    unsigned bit = 0;
    for (const auto& field : chunk.Fields()) {
        if (((choice >> (bit++ % 8)) & 1U) != 0) {
            names.insert(field.first);
        }
    }
    return names;
}

// `some` was read with names, `whole` without.
void CheckPart(const DataChunk& some, const DataChunk& whole, const std::set<std::string>& names)
{
    Check(some.GetSizeOnFile() == whole.GetSizeOnFile() &&
              some.GetTimePoint().Nanoseconds() == whole.GetTimePoint().Nanoseconds(),
          "skipping fields changes neither size nor time");
    for (const auto& [name, value] : whole.Fields()) {
        const std::string* const found = some.Get(name);
        Check((found != nullptr) == names.contains(name), "exactly the named fields are loaded");
        Check(found == nullptr || *found == value, "a field's value is the same either way");
    }
}

// Returns the record's size, 0 if there is none.
std::uint64_t CheckRecord(DataChunkFileReader& reader, std::uint64_t position, std::uint8_t choice)
{
    DataChunk whole = Before();
    const std::uint64_t size = reader.GetChunk(whole, position);
    Check(size != 0 || fuzz::Equal(whole, Before()), "a failed read leaves the chunk unchanged");
    Check(size == 0 || size == whole.GetSizeOnFile(), "the result is the record's size");

    const std::set<std::string> names = ChooseNames(whole, choice);
    DataChunk some = Before();
    const std::uint64_t sizeByNames = reader.GetChunk(some, position, names);
    Check(sizeByNames != 0 || fuzz::Equal(some, Before()), "so does a failed read by names");
    Check(size == 0 || sizeByNames == size, "a good record can be read by names too");
    if (size != 0) {
        CheckPart(some, whole, names);
    }
    return size;
}

// The system refuses to seek there, so each read continues where the one before ended.
void ReadAtRefusedPosition(DataChunkFileReader& reader, std::uint64_t position)
{
    DataChunk whole = Before();
    const std::uint64_t size = reader.GetChunk(whole, position | (std::uint64_t{1} << 63U));
    Check(size == 0 ? fuzz::Equal(whole, Before()) : size == whole.GetSizeOnFile(), "such a read is like any other");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::DiscardLog();
    const fuzz::TimeLimit limit;
    const fuzz::Input input(data, size);
    const fuzz::MemoryFile file(input.file);
    {
        DataChunkFileReader reader(file.Path());
        Check(reader.GetVersion() == fuzz::WordAt(input.file, 0), "the version is the first word");
        Check(reader.GetNumberOfChunks() == fuzz::WordAt(input.file, kChunkNumberPosition), "the count is the second");
        std::uint64_t position = kHeaderSize;
        const std::uint64_t count = std::min<std::uint64_t>(reader.GetNumberOfChunks(), kMostRecords);
        for (std::uint64_t i = 0; i < count; ++i) {
            const std::uint64_t recordSize = CheckRecord(reader, position, input.choices[0]);
            if (recordSize == 0) {
                break;
            }
            position += recordSize;
            Check(position <= input.file.size(), "a good record lies within the file");
        }
        CheckRecord(reader, 256U * input.choices[2] + input.choices[1], input.choices[0]);
        ReadAtRefusedPosition(reader, input.choices[3]);
    }
    Check(file.Bytes() == input.file, "reading changes no byte");
    return 0;
}
