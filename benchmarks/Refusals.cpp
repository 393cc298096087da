#include <memory>

#include "Corvane/File/DataChunkFileAppender.h"
#include "Files.h"
#include "Workloads.h"

namespace bench {

using Corvane::File::DataChunkFileAppender;
using Corvane::Pellin::DataChunk;

namespace {

constexpr std::uint64_t kCalls = 10'000'000;

// Appends a chunk that a file of 16 chunks with the times 0 to 15 refuses.
Workload Refusal(const Options& options, const std::string& what, std::int64_t time, std::uint64_t recordSize)
{
    const auto makeContenders = [=]() -> std::vector<Contender> {
        const auto file = std::make_shared<DataChunkFileAppender>(options.folder + "/refusing.chunks", false, 4096);
        DataChunk chunk(64);
        AppendAll(*file, chunk, TimesInOrder(16));
        const auto refused = std::make_shared<DataChunk>(recordSize);
        refused->SetTime(time);
        return {{"ours", [=] {
                     std::uint64_t accepted = 0;
                     for (std::uint64_t i = 0; i < kCalls; ++i) {
                         accepted += file->Append(*refused) ? 1U : 0U;
                     }
                     return accepted;
                 }}};
    };
    return {"W9", "refused: " + what, 0, kCalls, Goal{"ns", 15}, makeContenders, {}};
}

}  // namespace

std::vector<Workload> RefusalWorkloads(const Options& options)
{
    return {Refusal(options, "too long", 16, 4096), Refusal(options, "time point of the last", 15, 64),
            Refusal(options, "time point of the first", 0, 64)};
}

}  // namespace bench
