#include <functional>
#include <memory>

#include "Corvane/File/DataChunkFileAppender.h"
#include "Files.h"
#include "Goals.h"
#include "Workloads.h"

namespace bench {

using Corvane::File::DataChunkFileAppender;
using Corvane::Pellin::DataChunk;

namespace {

constexpr std::uint64_t kCalls = 1'000'000;

// Appends `refused` again and again to a file of 16 chunks with the times 0 to 15.
template <typename Appender>
std::function<std::uint64_t()> Refuser(const std::string& path, const std::shared_ptr<const DataChunk>& refused)
{
    const auto file = std::make_shared<Appender>(path, false, 4096);
    DataChunk chunk(64);
    AppendAll(*file, chunk, TimesInOrder(16));
    return [=] {
        std::uint64_t accepted = 0;
        for (std::uint64_t i = 0; i < kCalls; ++i) {
            accepted += file->Append(*refused) ? 1U : 0U;
        }
        return accepted;
    };
}

Workload Refusal(const Options& options, const std::string& what, std::int64_t time, std::uint64_t recordSize)
{
    const auto makeContenders = [=]() -> std::vector<Contender> {
        const auto refused = std::make_shared<DataChunk>(recordSize);
        refused->SetTime(time);
        const std::string path = options.folder + "/refusing.chunks";
        return {{"straightforward", Refuser<StraightforwardAppender>(path, refused)},
                {"ours", Refuser<DataChunkFileAppender>(path, refused)}};
    };
    return {"W9", "refused: " + what, 0, kCalls, goals::kRefusal, makeContenders, {}, options.seconds / 4};
}

}  // namespace

std::vector<Workload> RefusalWorkloads(const Options& options)
{
    return {Refusal(options, "too long", 16, 4096), Refusal(options, "time point of the last", 15, 64),
            Refusal(options, "time point of the first", 0, 64)};
}

}  // namespace bench
