#include <memory>
#include <set>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileAppender.h"
#include "Files.h"
#include "Goals.h"
#include "Workloads.h"

namespace bench {

using Corvane::File::DataChunkFileAppender;
using Corvane::Pellin::DataChunk;
using Corvane::Time::TimePoint;

namespace {

constexpr std::uint64_t kRecordSize = 64;

// The limit: a set that is filled in order.
Contender FilledSet(std::uint64_t count)
{
    const auto set = std::make_shared<std::set<TimePoint>>();
    const auto fill = [=] {
        for (std::uint64_t time = 0; time < count; ++time) {
            set->emplace_hint(set->end(), static_cast<std::int64_t>(time));
        }
        return set->size();
    };
    return {"limit", fill, [=] { set->clear(); }};
}

// Appended in order; nobody has asked for the set yet.
Contender AskedAppender(const std::string& path, std::uint64_t count)
{
    const auto file = std::make_shared<std::unique_ptr<DataChunkFileAppender>>();
    const auto append = [=] {
        const std::uint64_t size = Corvane::File::kHeaderSize + count * kRecordSize;
        *file = std::make_unique<DataChunkFileAppender>(path, false, size);
        DataChunk chunk(kRecordSize);
        AppendAll(**file, chunk, TimesInOrder(count));
    };
    return {"ours", [=] { return (*file)->GetTimePoints().size(); }, append};
}

}  // namespace

std::vector<Workload> TimePointWorkloads(const Options& options)
{
    const std::uint64_t count = options.bytes / 4 / kRecordSize;
    const std::string path = options.folder + "/asked.chunks";
    const auto makeContenders = [=]() -> std::vector<Contender> {
        return {FilledSet(count), AskedAppender(path, count)};
    };
    return {{"W11",
             "first GetTimePoints, for a chunk",
             0,
             count,
             goals::kTimePoints,
             makeContenders,
             {},
             0,
             options.bytes}};
}

}  // namespace bench
