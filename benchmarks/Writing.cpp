#include <filesystem>
#include <memory>

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

// What is written: chunks of one size with these times, into a file of `fileSize` bytes.
struct Task {
    std::string path;
    std::uint64_t recordSize;
    std::uint64_t fileSize;
    bool bounded;
    std::vector<std::int64_t> times;
};

template <typename Appender>
std::uint64_t WriteThrough(const Task& task, DataChunk& chunk)
{
    Appender file(task.path, false, task.bounded ? task.fileSize : 0);
    return AppendAll(file, chunk, task.times);
}

std::vector<Contender> Writers(const std::shared_ptr<const Task>& task)
{
    const auto chunk = std::make_shared<DataChunk>(task->recordSize);
    const auto image = std::make_shared<WarmBuffer>(task->fileSize);
    return {{"limit", [=] { return WriteDirectly(task->path, task->bounded, task->times, *chunk, *image); },
             [=] { image->Touch(); }},
            {"ours", [=] { return WriteThrough<DataChunkFileAppender>(*task, *chunk); }},
            {"straightforward", [=] { return WriteThrough<StraightforwardAppender>(*task, *chunk); }}};
}

enum class Order { kByTime, kRandom };

struct Kind {
    std::string id;
    std::string name;
    bool bounded;
    Order order;
    std::uint64_t partFilled;  // one byte of this number
};

Workload Writing(const Options& options, const Kind& kind, std::uint64_t recordSize, const Goal& goal)
{
    const std::uint64_t count = options.bytes / kind.partFilled / recordSize;
    const std::uint64_t bytes = kHeaderSize + count * recordSize * kind.partFilled;
    const std::string path = options.folder + "/written.chunks";
    const auto makeContenders = [=] {
        std::filesystem::remove(path);  // the tail of a longer file would remain
        const auto times = kind.order == Order::kByTime ? TimesInOrder(count) : Shuffled(TimesInOrder(count));
        return Writers(std::make_shared<Task>(Task{path, recordSize, bytes, kind.bounded, times}));
    };
    return {kind.id, kind.name + ", " + SizeText(recordSize), bytes, count, goal, makeContenders, path, 0, 3 * bytes};
}

}  // namespace

std::vector<Workload> WritingWorkloads(const Options& options)
{
    const Kind bounded = {"W1", "bounded, in order", true, Order::kByTime, 1};
    const Kind unbounded = {"W2", "unbounded, in order", false, Order::kByTime, 1};
    const Kind sparse = {"W3", "bounded, 1 % filled", true, Order::kByTime, 100};
    const Kind random = {"W4", "bounded, random order", true, Order::kRandom, 1};
    constexpr std::uint64_t kKiB = 1024;
    return {
        Writing(options, bounded, 64, goals::kWriteSmallest),
        Writing(options, bounded, kKiB, goals::kWriteSmall),
        Writing(options, bounded, 64 * kKiB, goals::kWriteBounded),
        Writing(options, bounded, kKiB * kKiB, goals::kWriteBounded),
        Writing(options, unbounded, 64, goals::kWriteSmallest),
        Writing(options, unbounded, kKiB, goals::kWriteSmall),
        Writing(options, unbounded, 64 * kKiB, goals::kWriteUnbounded),
        Writing(options, unbounded, kKiB * kKiB, goals::kWriteUnbounded),
        Writing(options, sparse, kKiB, goals::kWriteSparse),
        Writing(options, random, 64, goals::kWriteRandom),
        Writing(options, random, kKiB, goals::kWriteRandom),
    };
}

}  // namespace bench
