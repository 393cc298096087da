#include "support/Chunks.h"

#include <stdexcept>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileReader.h"
#include "support/Files.h"

namespace support {

using Corvane::File::DataChunkFileReader;
using Corvane::Time::TimePoint;

DataChunk ChunkOfSize(std::int64_t time, std::uint64_t size)
{
    DataChunk chunk{TimePoint(time)};
    if (size == chunk.GetSizeOnFile()) {
        return chunk;
    }
    chunk.Set("p", "");
    if (size < chunk.GetSizeOnFile()) {
        throw std::logic_error("no record has " + std::to_string(size) + " bytes");
    }
    std::string value(size - chunk.GetSizeOnFile(), '\0');
    for (std::size_t i = 0; i < value.size(); ++i) {
        value[i] = static_cast<char>((i * 7 + static_cast<std::uint64_t>(time) * 13 + size) % 251);
    }
    chunk.Set("p", std::move(value));
    return chunk;
}

std::string FileOf(const std::vector<DataChunk>& chunks, std::uint64_t version)
{
    std::string bytes = Word(version) + Word(chunks.size());
    for (const DataChunk& chunk : chunks) {
        bytes += RecordOf(chunk);
    }
    return bytes;
}

std::vector<DataChunk> ReadAll(const std::string& path)
{
    DataChunkFileReader reader(path);
    std::vector<DataChunk> chunks;
    std::uint64_t position = Corvane::File::kHeaderSize;
    for (std::uint64_t i = 0; i < reader.GetNumberOfChunks(); ++i) {
        DataChunk chunk;
        if (reader.GetChunk(chunk, position) == 0) {
            break;
        }
        position += chunk.GetSizeOnFile();
        chunks.push_back(std::move(chunk));
    }
    return chunks;
}

std::vector<std::int64_t> TimesOf(const std::vector<DataChunk>& chunks)
{
    std::vector<std::int64_t> times;
    times.reserve(chunks.size());
    for (const DataChunk& chunk : chunks) {
        times.push_back(chunk.GetTimePoint().Nanoseconds());
    }
    return times;
}

}  // namespace support
