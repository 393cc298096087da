#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <stdexcept>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileAppender.h"
#include "Workloads.h"

namespace bench {

std::string SizeText(std::uint64_t bytes)
{
    if (bytes >= 1U << 20U) {
        return std::to_string(bytes >> 20U) + " MiB";
    }
    return bytes >= 1024 ? std::to_string(bytes >> 10U) + " KiB" : std::to_string(bytes) + " B";
}

std::vector<std::int64_t> TimesInOrder(std::uint64_t count)
{
    std::vector<std::int64_t> times(count);
    std::iota(times.begin(), times.end(), 0);
    return times;
}

std::vector<std::int64_t> TimesInRandomOrder(std::uint64_t count)
{
    std::vector<std::int64_t> times = TimesInOrder(count);
    std::shuffle(times.begin(), times.end(),
                 std::mt19937_64(1));  // NOLINT(cert-msc51-cpp): the same in every run
    return times;
}

void WarmBuffer::Touch()
{
    for (std::uint64_t at = 0; at < bytes_.size(); at += 4096) {
        volatile unsigned char& byte = bytes_[at];
        byte = byte;
    }
}

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
