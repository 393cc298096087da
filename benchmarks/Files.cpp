#include "Files.h"

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileAppender.h"

namespace bench {

void WriteImage(const std::string& path, const unsigned char* image, std::uint64_t size)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_NOATIME, 0664);
    const ssize_t written = ::write(fd, image, size);
    ::close(fd);
    if (static_cast<std::uint64_t>(written) != size) {
        throw std::runtime_error("could not write " + path);
    }
}

std::uint64_t MakeFile(const std::string& path, std::uint64_t count, std::uint64_t recordSize)
{
    const std::uint64_t size = Corvane::File::kHeaderSize + count * recordSize;
    Corvane::File::DataChunkFileAppender file(path, false, size);
    Corvane::Pellin::DataChunk chunk(recordSize);
    for (std::uint64_t i = 0; i < count; ++i) {
        chunk.SetTime(static_cast<std::int64_t>(i));
        if (!file.Append(chunk)) {
            throw std::runtime_error("could not make " + path);
        }
    }
    return size;
}

}  // namespace bench
