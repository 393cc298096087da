#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileReader.h"
#include "Files.h"
#include "Goals.h"
#include "Workloads.h"
#include "harness/ChildProcess.h"
#include "harness/Inputs.h"

namespace bench {

using Corvane::File::DataChunkFileReader;
using Corvane::File::kHeaderSize;
using Corvane::Pellin::DataChunk;

namespace {

constexpr std::uint64_t kMostReads = 1'000'000;  // a file may hold more records
constexpr std::uint64_t kCountedReads = 1000;    // while system calls are counted

std::uint64_t ReadThrough(const std::string& path, const std::vector<std::uint64_t>& positions, DataChunk& chunk)
{
    DataChunkFileReader file(path);
    const std::uint64_t count = CountingSystemCalls() ? kCountedReads : positions.size();
    std::uint64_t sum = 0;
    for (std::uint64_t i = 0; i < count; ++i) {
        sum += file.GetChunk(chunk, positions[i]) + static_cast<std::uint64_t>(chunk.Time());
    }
    return sum;
}

// The same calls for each record, made directly: seek, the head, the rest.
std::uint64_t ReadDirectly(const std::string& path, const std::vector<std::uint64_t>& positions, WarmBuffer& buffer)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_NOATIME);
    std::uint64_t header[2] = {};
    std::uint64_t sum = 0;
    if (::read(fd, &header[0], 8) != 8 || ::read(fd, &header[1], 8) != 8) {
        ::close(fd);
        return 0;
    }
    const std::uint64_t count = CountingSystemCalls() ? kCountedReads : positions.size();
    for (std::uint64_t i = 0; i < count; ++i) {
        std::uint32_t head[4] = {};  // mark, size, time
        ::lseek64(fd, static_cast<off64_t>(positions[i]), SEEK_SET);
        if (::read(fd, head, sizeof head) != sizeof head ||
            ::read(fd, buffer.Data(), head[1] - sizeof head) != static_cast<ssize_t>(head[1] - sizeof head)) {
            break;
        }
        std::uint64_t time = 0;
        std::memcpy(&time, &head[2], sizeof time);
        sum += head[1] + time;
    }
    ::close(fd);
    return sum;
}

Workload Reading(const Options& options, bool random, std::uint64_t recordSize)
{
    const std::string path = options.folder + "/read.chunks";
    const std::uint64_t count = options.bytes / recordSize;
    const std::uint64_t reads = std::min(count, kMostReads);
    const auto makeContenders = [=]() -> std::vector<Contender> {
        ::unlink(path.c_str());
        MakeFile(path, count, recordSize);
        const auto positions = std::make_shared<std::vector<std::uint64_t>>();
        for (std::uint64_t i = 0; i < count; ++i) {
            positions->push_back(kHeaderSize + i * recordSize);
        }
        *positions = random ? Shuffled(*positions) : *positions;
        positions->resize(reads);
        const auto chunk = std::make_shared<DataChunk>(recordSize);
        const auto buffer = std::make_shared<WarmBuffer>(recordSize);
        return {{"limit", [=] { return ReadDirectly(path, *positions, *buffer); }},
                {"ours", [=] { return ReadThrough(path, *positions, *chunk); }}};
    };
    const std::string what = (random ? "read at random, " : "read in order, ") + SizeText(recordSize);
    return {"W6", what, reads * recordSize, reads, goals::kRead, makeContenders, {}};
}

}  // namespace

std::vector<Workload> ReadingWorkloads(const Options& options)
{
    return {Reading(options, false, 64), Reading(options, false, 1024), Reading(options, true, 64),
            Reading(options, true, 1024)};
}

}  // namespace bench
