#include "Files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <numeric>
#include <stdexcept>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileAppender.h"

namespace bench {

using Corvane::Pellin::DataChunk;

void WriteImage(const std::string& path, const unsigned char* image, std::uint64_t size)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_NOATIME, 0664);
    const ssize_t written = ::write(fd, image, size);
    ::close(fd);
    if (static_cast<std::uint64_t>(written) != size) {
        throw std::runtime_error("could not write " + path);
    }
}

std::uint64_t WriteDirectly(const std::string& path, bool bounded, const std::vector<std::int64_t>& times,
                            DataChunk& chunk, WarmBuffer& image)
{
    unsigned char* record = image.Data() + Corvane::File::kHeaderSize;
    for (const std::int64_t time : times) {
        chunk.SetTime(time);
        chunk.Write(record);
        record += chunk.GetSizeOnFile();
    }
    const std::uint64_t header[] = {bounded ? Corvane::File::kFormatVersion : 0, times.size()};
    std::memcpy(image.Data(), header, sizeof header);
    WriteImage(path, image.Data(), image.Size());
    return times.size();
}

std::vector<std::int64_t> TimesInOrder(std::uint64_t count)
{
    std::vector<std::int64_t> times(count);
    std::iota(times.begin(), times.end(), 0);
    return times;
}

void MakeFile(const std::string& path, std::uint64_t count, std::uint64_t recordSize)
{
    Corvane::File::DataChunkFileAppender file(path, false, Corvane::File::kHeaderSize + count * recordSize);
    DataChunk chunk(recordSize);
    if (AppendAll(file, chunk, TimesInOrder(count)) != count) {
        throw std::runtime_error("could not make " + path);
    }
}

}  // namespace bench
