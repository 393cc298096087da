#include <filesystem>
#include <memory>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileAppender.h"
#include "Files.h"
#include "Goals.h"
#include "Workloads.h"

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
std::uint64_t WriteThrough(const std::string& path, const std::vector<std::int64_t>& times, DataChunk& chunk)
{
    Appender file(path, false, kFileSize);
    return AppendAll(file, chunk, times);
}

// Writes all files by `write`, which returns the number of its chunks.
template <typename Write>
Contender Writer(const std::string& name, const Folder& folder, const Write& write)
{
    const auto writeAll = [=] {
        std::uint64_t accepted = 0;
        for (std::uint64_t number = 0; number < folder.files; ++number) {
            accepted += write(folder.File(number));
        }
        return accepted;
    };
    return {name, writeAll, [=] { folder.Empty(); }};
}

std::vector<Contender> Writers(const Folder& folder)
{
    const auto times = TimesInOrder(kChunks);
    const auto chunk = std::make_shared<DataChunk>(kRecordSize);
    const auto image = std::make_shared<WarmBuffer>(kFileSize);
    return {Writer("limit", folder,
                   [=](const std::string& path) { return WriteDirectly(path, true, times, *chunk, *image); }),
            Writer("ours", folder,
                   [=](const std::string& path) { return WriteThrough<DataChunkFileAppender>(path, times, *chunk); }),
            Writer("straightforward", folder, [=](const std::string& path) {
                return WriteThrough<StraightforwardAppender>(path, times, *chunk);
            })};
}

}  // namespace

std::vector<Workload> SmallFileWorkloads(const Options& options)
{
    const Folder folder = {options.folder + "/small", options.quick ? 500U : 1'000U};
    const std::string what = std::to_string(folder.files) + " new files of 16 KiB";
    const auto makeContenders = [=] { return Writers(folder); };
    return {{"W8", what, folder.files * kFileSize, folder.files, goals::kSmallFiles, makeContenders, folder.File(0)}};
}

}  // namespace bench
