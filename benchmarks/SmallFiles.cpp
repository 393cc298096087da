#include <cstring>
#include <filesystem>
#include <memory>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileAppender.h"
#include "Files.h"
#include "Straightforward.h"
#include "Workloads.h"
#include "harness/Memory.h"

namespace bench {

using Corvane::File::DataChunkFileAppender;
using Corvane::File::kHeaderSize;
using Corvane::Pellin::DataChunk;

namespace {

constexpr std::uint64_t kFileSize = 16384;
constexpr std::uint64_t kChunks = 16;
constexpr std::uint64_t kRecordSize = (kFileSize - kHeaderSize) / kChunks;

// A folder of new files.
struct Folder {
    std::string path;
    std::uint64_t files;

    std::string File(std::uint64_t number) const { return path + "/" + std::to_string(number); }
    void Empty() const
    {
        std::filesystem::remove_all(path);
        std::filesystem::create_directory(path);
    }
};

template <typename Appender>
std::uint64_t WriteThrough(const Folder& folder, DataChunk& chunk)
{
    std::uint64_t accepted = 0;
    for (std::uint64_t number = 0; number < folder.files; ++number) {
        Appender file(folder.File(number), false, kFileSize);
        for (std::uint64_t i = 0; i < kChunks; ++i) {
            chunk.SetTime(static_cast<std::int64_t>(i));
            accepted += file.Append(chunk) ? 1U : 0U;
        }
    }
    return accepted;
}

std::uint64_t WriteDirectly(const Folder& folder, DataChunk& chunk, WarmBuffer& buffer)
{
    for (std::uint64_t number = 0; number < folder.files; ++number) {
        for (std::uint64_t i = 0; i < kChunks; ++i) {
            chunk.SetTime(static_cast<std::int64_t>(i));
            chunk.Write(buffer.Data() + kHeaderSize + i * kRecordSize);
        }
        const std::uint64_t header[] = {Corvane::File::kFormatVersion, kChunks};
        std::memcpy(buffer.Data(), header, sizeof header);
        WriteImage(folder.File(number), buffer.Data(), kFileSize);
    }
    return folder.files * kChunks;
}

}  // namespace

std::vector<Workload> SmallFileWorkloads(const Options& options)
{
    const Folder folder = {options.folder + "/small", options.quick ? 500U : 10'000U};
    const auto makeContenders = [=]() -> std::vector<Contender> {
        const auto chunk = std::make_shared<DataChunk>(kRecordSize);
        const auto buffer = std::make_shared<WarmBuffer>(kFileSize);
        const auto empty = [=] { folder.Empty(); };
        return {{"limit", [=] { return WriteDirectly(folder, *chunk, *buffer); }, empty},
                {"ours", [=] { return WriteThrough<DataChunkFileAppender>(folder, *chunk); }, empty},
                {"straightforward", [=] { return WriteThrough<StraightforwardAppender>(folder, *chunk); }, empty}};
    };
    const std::string what = std::to_string(folder.files) + " new files of 16 KiB";
    return {{"W8", what, folder.files * kFileSize, folder.files, Goal{"limit", 1.02}, makeContenders, folder.File(0)}};
}

}  // namespace bench
