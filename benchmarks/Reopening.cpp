#include <fcntl.h>
#include <unistd.h>

#include <memory>
#include <tuple>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileAppender.h"
#include "Files.h"
#include "Goals.h"
#include "Workloads.h"
#include "harness/Inputs.h"

namespace bench {

using Corvane::File::DataChunkFileAppender;
using Corvane::File::kHeaderSize;
using Corvane::Pellin::DataChunk;

namespace {

// A full file of `count` chunks whose header counts one less, so that one append fits and makes the file full again.
struct Task {
    std::string path;
    std::uint64_t recordSize;
    std::uint64_t count;
    std::uint64_t fileSize;
    bool bounded;

    void Prepare() const
    {
        const std::uint64_t counted = count - 1;
        const int fd = ::open(path.c_str(), O_WRONLY);
        std::ignore = ::pwrite(fd, &counted, sizeof counted, Corvane::File::kChunkNumberPosition);
        ::close(fd);
    }

    DataChunk Last() const
    {
        DataChunk chunk(recordSize);
        chunk.SetTime(static_cast<std::int64_t>(count - 1));
        return chunk;
    }
};

template <typename Appender>
std::uint64_t ReopenThrough(const Task& task)
{
    Appender file(task.path, true, task.bounded ? task.fileSize : 0);
    return file.Append(task.Last()) ? task.count : 0;
}

// The limit: one read into touched memory, the same parsing, one write.
std::uint64_t ReopenDirectly(const Task& task, WarmBuffer& buffer)
{
    const int fd = ::open(task.path.c_str(), O_RDONLY);
    std::ignore = ::read(fd, buffer.Data(), buffer.Size());
    ::close(fd);
    std::uint64_t at = kHeaderSize;
    std::uint64_t good = 0;
    for (; good < task.count - 1; ++good) {
        DataChunk chunk;
        if (chunk.ReadFrom(buffer.Data() + at) == 0) {
            break;
        }
        at += chunk.GetSizeOnFile();
    }
    task.Last().Write(buffer.Data() + at);
    *reinterpret_cast<std::uint64_t*>(buffer.Data() + Corvane::File::kChunkNumberPosition) = ++good;
    WriteImage(task.path, buffer.Data(), task.fileSize);
    return good;
}

Workload Reopening(const Options& options, bool bounded, std::uint64_t recordSize, const Goal& goal)
{
    const std::uint64_t count = options.bytes / recordSize;
    const std::uint64_t fileSize = kHeaderSize + count * recordSize;
    const Task task = {options.folder + "/reopened.chunks", recordSize, count, fileSize, bounded};
    const auto makeContenders = [=]() -> std::vector<Contender> {
        ::unlink(task.path.c_str());
        MakeFile(task.path, count, recordSize);
        const auto buffer = std::make_shared<WarmBuffer>(fileSize);
        const auto prepare = [=] { task.Prepare(); };
        const auto prepareAndTouch = [=] {
            task.Prepare();
            buffer->Touch();
        };
        return {{"limit", [=] { return ReopenDirectly(task, *buffer); }, prepareAndTouch},
                {"ours", [=] { return ReopenThrough<DataChunkFileAppender>(task); }, prepare},
                {"straightforward", [=] { return ReopenThrough<StraightforwardAppender>(task); }, prepare}};
    };
    const std::string what = std::string(bounded ? "reopen bounded, " : "reopen unbounded, ") + SizeText(recordSize);
    return {"W5", what, 2 * fileSize, count, goal, makeContenders, task.path, 0, 4 * fileSize};
}

}  // namespace

std::vector<Workload> ReopeningWorkloads(const Options& options)
{
    std::vector<Workload> workloads;
    for (const bool bounded : {true, false}) {
        workloads.push_back(Reopening(options, bounded, 64, goals::kReopenSmallest));
        workloads.push_back(Reopening(options, bounded, 1024, goals::kReopen));
        workloads.push_back(Reopening(options, bounded, 65536, goals::kReopen));
    }
    return workloads;
}

}  // namespace bench
