#include <sys/stat.h>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileAppender.h"
#include "Corvane/File/DataChunkFileReader.h"
#include "Corvane/File/DataChunkFileScanner.h"
#include "Store.h"

namespace bench {

using Corvane::File::kHeaderSize;
using Corvane::Pellin::DataChunk;

namespace {

std::uint64_t SumOfChunk(const DataChunk& chunk)
{
    return SumOf(static_cast<std::uint64_t>(chunk.Time()), chunk.Payload().size());
}

std::uint64_t Write(const std::string& path, const Data& data, std::uint64_t first, std::uint64_t last)
{
    Corvane::File::DataChunkFileAppender file(path, first != 0, kHeaderSize + data.count * data.recordSize);
    DataChunk chunk(data.recordSize);
    std::uint64_t accepted = 0;
    for (std::uint64_t time = first; time < last; ++time) {
        chunk.SetTime(static_cast<std::int64_t>(time));
        accepted += file.Append(chunk) ? 1U : 0U;
    }
    return accepted;
}

std::uint64_t ReadAll(const std::string& path, const Data& /*data*/)
{
    Corvane::File::DataChunkFileReader file(path);
    DataChunk chunk;
    std::uint64_t sum = 0;
    std::uint64_t position = kHeaderSize;
    for (std::uint64_t i = 0; i < file.GetNumberOfChunks() && file.GetChunk(chunk, position) != 0; ++i) {
        sum += SumOfChunk(chunk);
        position += chunk.GetSizeOnFile();
    }
    return sum;
}

// The caller keeps the positions: here they follow from the time.
std::uint64_t ReadAt(const std::string& path, const Data& data, const std::vector<std::uint64_t>& times)
{
    Corvane::File::DataChunkFileReader file(path);
    DataChunk chunk;
    std::uint64_t sum = 0;
    for (const std::uint64_t time : times) {
        Demand(file.GetChunk(chunk, kHeaderSize + time * data.recordSize) != 0, "ours");
        sum += SumOfChunk(chunk);
    }
    return sum;
}

std::uint64_t ScanAll(const std::string& path, const Data& /*data*/)
{
    Corvane::File::DataChunkFileScanner file(path);
    std::uint64_t sum = 0;
    while (file.Next()) {
        sum += SumOfChunk(file.GetChunk());
    }
    return sum;
}

std::uint64_t ScanAt(const std::string& path, const Data& data, const std::vector<std::uint64_t>& times)
{
    Corvane::File::DataChunkFileScanner file(path);
    std::uint64_t sum = 0;
    for (const std::uint64_t time : times) {
        file.GoTo(kHeaderSize + time * data.recordSize, 1);
        Demand(file.Next(), "our scanner");
        sum += SumOfChunk(file.GetChunk());
    }
    return sum;
}

}  // namespace

Store Ours()
{
    return {"ours", Write, ReadAll, ReadAt};
}

Store OurScanner()
{
    return {"our scanner", Write, ScanAll, ScanAt};
}

}  // namespace bench
