#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>
#include <tuple>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileAppender.h"
#include "Corvane/File/DataChunkFileReader.h"
#include "Corvane/File/DataChunkFileScanner.h"
#include "Files.h"
#include "Goals.h"
#include "Workloads.h"
#include "harness/ChildProcess.h"
#include "harness/Inputs.h"

namespace bench {

using Corvane::File::DataChunkFileReader;
using Corvane::File::DataChunkFileScanner;
using Corvane::File::kHeaderSize;
using Corvane::Pellin::DataChunk;

namespace {

constexpr std::uint64_t kKiB = 1024;
constexpr std::uint64_t kWindow = kKiB * kKiB;  // that the limit reads with one call
constexpr std::uint64_t kMostReads = 1'000'000;
constexpr std::uint64_t kCountedReads = 1000;  // with the reader, while system calls are counted

// A file of good records. `positions` are those that are read, in this order.
struct Records {
    std::string path;
    std::vector<std::uint64_t> sizes;  // of all records
    std::vector<std::uint64_t> positions;
    std::uint64_t largest = 0;

    std::uint64_t Reads() const { return std::min(positions.size(), CountingSystemCalls() ? kCountedReads : SIZE_MAX); }
};

std::uint64_t SumOf(const DataChunk& chunk)
{
    return chunk.GetSizeOnFile() + static_cast<std::uint64_t>(chunk.Time());
}

int Open(const std::string& path)
{
    return ::open(path.c_str(), O_RDONLY | O_NOATIME | O_CLOEXEC);
}

// One `write`, and nothing left to write back: how a file was written decides how its pages lie in memory.
Records MakeRecords(const std::string& path, const std::vector<std::uint64_t>& sizes)
{
    ::unlink(path.c_str());
    const std::uint64_t bytes = std::accumulate(sizes.begin(), sizes.end(), kHeaderSize);
    Records records = {path, sizes, {}, *std::max_element(sizes.begin(), sizes.end())};
    {
        Corvane::File::DataChunkFileAppender file(path, false, bytes);
        std::uint64_t position = kHeaderSize;
        for (const std::uint64_t size : sizes) {
            DataChunk chunk(size);
            chunk.SetTime(static_cast<std::int64_t>(records.positions.size()));
            std::ignore = file.Append(chunk);
            records.positions.push_back(position);
            position += size;
        }
    }
    const int fd = Open(path);
    if (fd == -1 || ::fsync(fd) != 0 || ::close(fd) != 0) {
        throw std::runtime_error("could not make " + path);
    }
    return records;
}

// The limit in order: reads of 1 MiB into the same memory, the same parsing. A record that is cut by the end of the
// window is moved to its start.
std::uint64_t WalkDirectly(const Records& records, WarmBuffer& buffer)
{
    const int fd = Open(records.path);
    std::ignore = ::lseek64(fd, kHeaderSize, SEEK_SET);
    unsigned char* const window = buffer.Data();
    std::uint64_t used = 0;
    std::uint64_t at = 0;
    std::uint64_t sum = 0;
    for (std::uint64_t i = 0; i < records.positions.size(); ++i) {
        if (records.sizes[i] > used - at) {
            std::copy(window + at, window + used, window);
            used -= at;
            at = 0;
            used += static_cast<std::uint64_t>(std::max<ssize_t>(::read(fd, window + used, kWindow), 0));
        }
        DataChunk chunk;
        at += chunk.ReadFrom(window + at);
        sum += SumOf(chunk);
    }
    ::close(fd);
    return sum;
}

std::uint64_t WalkWithScanner(const Records& records)
{
    DataChunkFileScanner file(records.path);
    file.GoTo(kHeaderSize, records.positions.size());
    std::uint64_t sum = 0;
    while (file.Next()) {
        sum += SumOf(file.GetChunk());
    }
    return sum;
}

std::uint64_t FetchWithReader(const Records& records)
{
    DataChunkFileReader file(records.path);
    std::uint64_t sum = 0;
    const std::uint64_t count = records.Reads();
    for (std::uint64_t i = 0; i < count; ++i) {
        DataChunk chunk;  // a new one for each record, as the scanner makes it
        file.GetChunk(chunk, records.positions[i]);
        sum += SumOf(chunk);
    }
    return sum;
}

// The limit at random: one call for each record, the same parsing. A caller of the library need not know the size.
std::uint64_t FetchDirectly(const Records& records, WarmBuffer& buffer)
{
    const int fd = Open(records.path);
    std::uint64_t sum = 0;
    const std::uint64_t count = records.Reads();
    for (std::uint64_t i = 0; i < count; ++i) {
        std::ignore = ::pread64(fd, buffer.Data(), records.sizes[i], static_cast<off64_t>(records.positions[i]));
        DataChunk chunk;
        chunk.ReadFrom(buffer.Data());
        sum += SumOf(chunk);
    }
    ::close(fd);
    return sum;
}

std::uint64_t FetchWithScanner(const Records& records)
{
    DataChunkFileScanner file(records.path);
    std::uint64_t sum = 0;
    const std::uint64_t count = records.Reads();
    for (std::uint64_t i = 0; i < count; ++i) {
        file.GoTo(records.positions[i], 1);
        sum += file.Next() ? SumOf(file.GetChunk()) : 0;
    }
    return sum;
}

Workload InOrder(const Options& options, std::uint64_t recordSize, const Goal& goal)
{
    const std::uint64_t count = std::min(options.bytes / recordSize, kMostReads);
    const auto makeContenders = [=]() -> std::vector<Contender> {
        const std::vector<std::uint64_t> sizes(count, recordSize);
        const auto records = std::make_shared<Records>(MakeRecords(options.folder + "/scanned.chunks", sizes));
        const auto buffer = std::make_shared<WarmBuffer>(2 * kWindow);
        return {{"limit", [=] { return WalkDirectly(*records, *buffer); }},
                {"ours", [=] { return WalkWithScanner(*records); }},
                {"reader", [=] { return FetchWithReader(*records); }}};
    };
    return {"W10", "scan in order, " + SizeText(recordSize), count * recordSize, count, goal, makeContenders, {}};
}

// Sizes from 64 B on, equally distributed in their logarithms over this many powers of two.
std::vector<std::uint64_t> MixedSizes(std::uint64_t bytes, std::uint64_t powers)
{
    std::mt19937_64 numbers(1);  // NOLINT(cert-msc51-cpp): repeatable
    std::vector<std::uint64_t> sizes;
    for (std::uint64_t sum = 0; sum < bytes; sum += sizes.back()) {
        sizes.push_back((std::uint64_t{64} << numbers() % powers) + numbers() % 64);
    }
    return sizes;
}

Workload AtRandom(const Options& options, const std::string& what, const std::vector<std::uint64_t>& sizes,
                  const Goal& goal)
{
    const std::uint64_t reads = std::min<std::uint64_t>(sizes.size(), 250'000);
    const auto makeContenders = [=]() -> std::vector<Contender> {
        const auto records = std::make_shared<Records>(MakeRecords(options.folder + "/scanned.chunks", sizes));
        records->sizes = Shuffled(records->sizes);
        records->positions = Shuffled(records->positions);
        records->positions.resize(reads);
        const auto buffer = std::make_shared<WarmBuffer>(records->largest);
        return {{"limit", [=] { return FetchDirectly(*records, *buffer); }},
                {"ours", [=] { return FetchWithScanner(*records); }},
                {"reader", [=] { return FetchWithReader(*records); }}};
    };
    return {"W10", "scan at random, " + what, 0, reads, goal, makeContenders, {}};
}

// Opens, takes the record at 16 and closes, again and again.
template <typename Use>
std::function<std::uint64_t()> Repeatedly(std::uint64_t count, const Use& use)
{
    return [=] {
        std::uint64_t sum = 0;
        for (std::uint64_t i = 0; i < (CountingSystemCalls() ? 1 : count); ++i) {
            sum += use();
        }
        return sum;
    };
}

Workload OneRecord(const Options& options)
{
    constexpr std::uint64_t kRecordSize = 1024;
    const std::uint64_t count = options.quick ? 2'000 : 20'000;
    const auto makeContenders = [=]() -> std::vector<Contender> {
        const auto records =
            std::make_shared<Records>(MakeRecords(options.folder + "/scanned.chunks", {kRecordSize, kRecordSize}));
        records->positions.resize(1);
        const auto buffer = std::make_shared<WarmBuffer>(kRecordSize);
        const auto withScanner = [=] {
            DataChunkFileScanner file(records->path);
            return file.Next() ? SumOf(file.GetChunk()) : 0;
        };
        return {{"limit", Repeatedly(count, [=] { return FetchDirectly(*records, *buffer); })},
                {"ours", Repeatedly(count, withScanner)},
                {"reader", Repeatedly(count, [=] { return FetchWithReader(*records); })}};
    };
    return {"W10", "open, scan a record, close", 0, count, goals::kScanOne, makeContenders, {}, options.seconds / 2};
}

// A record, bytes that begin no record, a record.
struct Damaged {
    std::string path;
    std::uint64_t bytes;

    static constexpr std::uint64_t kBegin = kHeaderSize + 64;

    void Make() const
    {
        MakeRecords(path, {64, 64 + bytes, 64});
        std::mt19937_64 numbers(1);  // NOLINT(cert-msc51-cpp): repeatable
        std::vector<std::uint64_t> noise(bytes / sizeof(std::uint64_t));
        std::generate(noise.begin(), noise.end(), std::ref(numbers));
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(kBegin));
        file.write(reinterpret_cast<const char*>(noise.data()), static_cast<std::streamsize>(bytes));
        DataChunk(64).Write(reinterpret_cast<unsigned char*>(noise.data()));
        file.write(reinterpret_cast<const char*>(noise.data()), 64);
    }
};

// The limit: a chunk is made and parses at each byte.
std::uint64_t FindDirectly(const Damaged& damaged, WarmBuffer& buffer)
{
    const int fd = Open(damaged.path);
    std::uint64_t read = 0;
    std::uint64_t at = 0;
    for (bool found = false; !found; at += found ? 0 : 1) {
        if (at == read) {
            std::ignore = ::pread64(fd, buffer.Data(), kWindow + 64, static_cast<off64_t>(Damaged::kBegin + at));
            read += kWindow;
        }
        DataChunk chunk;
        found = chunk.ReadFrom(buffer.Data() + at % kWindow) != 0;
    }
    ::close(fd);
    return Damaged::kBegin + at;
}

std::uint64_t FindWithScanner(const Damaged& damaged)
{
    DataChunkFileScanner file(damaged.path);
    file.GoTo(Damaged::kBegin);
    return file.FindNext() ? file.GetPosition() : 0;
}

Workload Finding(const Options& options)
{
    const Damaged damaged = {options.folder + "/scanned.chunks", options.bytes / 8};
    const auto makeContenders = [=]() -> std::vector<Contender> {
        damaged.Make();
        const auto buffer = std::make_shared<WarmBuffer>(kWindow + 64);
        return {{"limit", [=] { return FindDirectly(damaged, *buffer); }},
                {"ours", [=] { return FindWithScanner(damaged); }}};
    };
    return {"W10", "find the next record, for a byte", damaged.bytes, damaged.bytes, goals::kFind, makeContenders, {}};
}

}  // namespace

std::vector<Workload> ScanningWorkloads(const Options& options)
{
    const std::vector<std::uint64_t> equal(options.bytes / kKiB, kKiB);
    return {InOrder(options, 64, goals::kScanSmallest),
            InOrder(options, kKiB, goals::kScan),
            InOrder(options, 64 * kKiB, goals::kScan),
            InOrder(options, kWindow, goals::kScanLarge),
            AtRandom(options, SizeText(kKiB), equal, goals::kScanAtRandom),
            AtRandom(options, "64 B to 1 KiB", MixedSizes(options.bytes / 2, 4), goals::kScanMixed),
            AtRandom(options, "64 B to 8 KiB", MixedSizes(options.bytes, 7), goals::kScanMixed),
            OneRecord(options),
            Finding(options)};
}

}  // namespace bench
