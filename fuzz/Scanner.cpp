// Walks and searches any file: the records are those that a reader finds, and the file does not change.
#include "Corvane/File/DataChunkFileScanner.h"

#include <algorithm>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileReader.h"
#include "Support.h"

namespace {

using Corvane::File::DataChunkFileReader;
using Corvane::File::DataChunkFileScanner;
using Corvane::File::kHeaderSize;
using End = DataChunkFileScanner::End;
using fuzz::Check;
using fuzz::DataChunk;

// Walks along with a reader, as far as the scanner goes, and returns where that is.
std::uint64_t WalkWithReader(DataChunkFileScanner& scanner, DataChunkFileReader& reader, std::uint64_t most)
{
    std::uint64_t position = scanner.GetPosition();
    std::uint64_t count = 0;
    while (scanner.Next()) {
        DataChunk chunk;
        Check(reader.GetChunk(chunk, position) != 0, "a record that a scanner gives is one for a reader");
        Check(scanner.GetPosition() == position, "its position is the end of the one before");
        Check(fuzz::Equal(scanner.GetChunk(), chunk), "both have the same content");
        position += chunk.GetSizeOnFile();
        ++count;
        Check(scanner.GetNumberRead() == count && count <= most, "each record counts");
    }
    DataChunk chunk;
    const bool isAll = count == most;
    Check(scanner.GetPosition() == position, "the walk stands after its last record");
    Check((scanner.GetEnd() == End::AllRead) == isAll, "all are read if the number is reached");
    Check(isAll || reader.GetChunk(chunk, position) == 0, "a walk ends where a reader finds no record");
    return position;
}

void CheckEnd(const DataChunkFileScanner& scanner, std::uint64_t fileSize)
{
    if (scanner.GetEnd() != End::AllRead) {
        Check((scanner.GetEnd() == End::EndOfFile) == (scanner.GetPosition() >= fileSize),
              "the file's end is told apart");
    }
}

// Searches from here on, and walks from each find.
void Search(DataChunkFileScanner& scanner, DataChunkFileReader& reader, std::uint64_t fileSize)
{
    std::uint64_t from = scanner.GetPosition();
    DataChunk chunk;
    while (scanner.FindNext()) {
        const std::uint64_t found = scanner.GetPosition();
        for (; from < found; ++from) {
            Check(reader.GetChunk(chunk, from) == 0, "a search passes over no record");
        }
        from = WalkWithReader(scanner, reader, UINT64_MAX);
        Check(from > found, "what a search finds is a record");
        CheckEnd(scanner, fileSize);
    }
    for (; from < fileSize; ++from) {
        Check(reader.GetChunk(chunk, from) == 0, "a search that finds nothing passes over no record");
    }
    Check(scanner.GetPosition() == from, "a search ends with the file");
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
        DataChunkFileScanner scanner(file.Path());
        Check(scanner.GetVersion() == reader.GetVersion(), "the version is the reader's");
        Check(scanner.GetNumberOfChunks() == reader.GetNumberOfChunks(), "the count is the reader's");
        WalkWithReader(scanner, reader, reader.GetNumberOfChunks());
        CheckEnd(scanner, input.file.size());
        Search(scanner, reader, std::max<std::uint64_t>(input.file.size(), kHeaderSize));
        scanner.GoTo(kHeaderSize, reader.GetNumberOfChunks());
        WalkWithReader(scanner, reader, reader.GetNumberOfChunks());  // now from memory
        CheckEnd(scanner, input.file.size());
        scanner.GoTo(256U * input.choices[2] + input.choices[1], input.choices[0]);
        WalkWithReader(scanner, reader, input.choices[0]);
        CheckEnd(scanner, input.file.size());
    }
    Check(file.Bytes() == input.file, "scanning changes no byte");
    return 0;
}
