#include "faults/AppenderScenario.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileAppender.h"

namespace faults {

using Corvane::File::DataChunkFileAppender;
using Corvane::File::kHeaderSize;
using support::SystemCall;

namespace {

std::string RecordOf(const DataChunk& chunk)
{
    std::string record(chunk.GetSizeOnFile(), '\0');
    chunk.Write(reinterpret_cast<unsigned char*>(record.data()));
    return record;
}

}  // namespace

std::uint64_t Moved(const std::vector<SystemCall>& calls, const std::string& name)
{
    std::uint64_t bytes = 0;
    for (const SystemCall& call : calls) {
        bytes += call.name == name && call.result > 0 ? static_cast<std::uint64_t>(call.result) : 0;
    }
    return bytes;
}

AppenderScenario::AppenderScenario(AppenderSetup setup) : setup_(std::move(setup)), path_(folder_ / "a")
{
    if (!setup_.stored.empty()) {
        file_ = support::Word(Corvane::File::kFormatVersion) + support::Word(setup_.stored.size());
    }
    for (std::size_t i = 0; i < setup_.stored.size(); ++i) {
        std::string record = RecordOf(*MakeChunk(setup_.stored[i].time, setup_.stored[i].size));
        if (i == setup_.bad) {
            record[0] = static_cast<char>(~record[0]);
        }
        file_ += record;
        if (i < setup_.bad.value_or(SIZE_MAX)) {
            ends_.push_back(file_.size());
        }
    }
    for (const ChunkSetup& chunk : setup_.appended) {
        auto made = MakeChunk(chunk.time, chunk.size);
        std::string record = RecordOf(*made);
        chunks_.push_back({std::move(made), std::move(record), chunk.time, End::kThrown});
    }
}

void AppenderScenario::Prepare()
{
    std::filesystem::remove(path_);
    if (!file_.empty()) {
        support::WriteFile(path_, file_);
    }
}

void AppenderScenario::Run()
{
    constructed_ = false;
    try {
        DataChunkFileAppender appender(path_, !file_.empty(), setup_.maxSize);
        constructed_ = true;
        for (Chunk& chunk : chunks_) {
            chunk.end = End::kThrown;
            for (int attempt = 0; attempt < 2 && chunk.end == End::kThrown; ++attempt) {
                try {
                    chunk.end = appender.Append(*chunk.chunk) ? End::kHeld : End::kRefused;
                } catch (...) {  // NOLINT(bugprone-empty-catch): this chunk's end tells
                }
            }
        }
        timePoints_ = appender.GetTimePoints().size();
    } catch (...) {  // NOLINT(bugprone-empty-catch): constructed_ tells
    }
}

bool AppenderScenario::Recovered() const
{
    return !constructed_ ||
           std::none_of(chunks_.begin(), chunks_.end(), [](const Chunk& chunk) { return chunk.end == End::kThrown; });
}

bool AppenderScenario::Succeeded() const
{
    return constructed_ && Recovered();
}

// Of the stored records, those that are good and lie within the bytes that could be loaded.
std::uint64_t AppenderScenario::GoodRecords(std::uint64_t loaded) const
{
    return static_cast<std::uint64_t>(std::upper_bound(ends_.begin(), ends_.end(), loaded) - ends_.begin());
}

std::string AppenderScenario::ExpectedImage(std::uint64_t loaded) const
{
    std::string image = file_.substr(0, loaded);
    if (setup_.maxSize != 0) {
        image = image.empty() ? support::Word(Corvane::File::kFormatVersion) : image;
        image.resize(setup_.maxSize);
    }
    std::uint64_t count = GoodRecords(loaded);
    std::uint64_t end = count == 0 ? kHeaderSize : ends_[count - 1];
    for (const Chunk& chunk : chunks_) {
        if (chunk.end == End::kThrown) {
            continue;
        }
        image.resize(std::max(image.size(), end + chunk.record.size()));
        if (chunk.end == End::kHeld) {
            image.replace(end, chunk.record.size(), chunk.record);
            image.replace(Corvane::File::kChunkNumberPosition, sizeof count, support::Word(++count));
            end += chunk.record.size();
        }
    }
    return image;
}

void AppenderScenario::Check(const std::vector<SystemCall>& calls) const
{
    if (!constructed_) {
        EXPECT_EQ(std::filesystem::exists(path_), !file_.empty());
        EXPECT_TRUE(file_.empty() || support::ReadFile(path_) == file_);
        for (const SystemCall& call : calls) {
            EXPECT_TRUE(call.name != "open" || call.result == -1 || call.flags == O_RDONLY) << call.flags;
        }
        return;
    }
    const std::uint64_t loaded = Moved(calls, "read");
    const std::string image = ExpectedImage(loaded);
    const std::uint64_t accepted = Moved(calls, "write");
    EXPECT_TRUE(support::ReadFile(path_) ==
                image.substr(0, accepted) + (accepted < file_.size() ? file_.substr(accepted) : std::string()));
    std::set<std::int64_t> times;
    for (std::size_t i = 0; i < GoodRecords(loaded); ++i) {
        times.insert(setup_.stored[i].time);
    }
    for (const Chunk& chunk : chunks_) {
        EXPECT_TRUE(chunk.end == End::kThrown || (chunk.end == End::kRefused) == times.contains(chunk.time));
        if (chunk.end == End::kHeld) {
            times.insert(chunk.time);
        }
    }
    EXPECT_EQ(timePoints_, times.size());
}

std::vector<AppenderSetup> AppenderSetups()
{
    const std::vector<ChunkSetup> few = {{1, 100}, {3, 3000}, {2, 80}, {3, 9000}, {4, 60}};
    const std::vector<ChunkSetup> large = {{1, 700'000}, {3, 900'000}, {2, 500'000}, {3, 60}, {4, 1'200'000}};
    const std::vector<ChunkSetup> stored = {{11, 100}, {13, 5000}, {12, 60}, {14, 300}};
    const std::vector<ChunkSetup> storedLarge = {{11, 1'000'000}, {13, 60}, {12, 1'200'000}, {14, 300}};
    const std::vector<ChunkSetup> more = {{20, 200}, {11, 70}, {15, 7000}};
    constexpr std::uint64_t kLarge = 3'400'000;  // more than a huge page, so mapped
    return {
        {"NewBounded", {}, {}, 20'000, few},
        {"NewBoundedMapped", {}, {}, kLarge, large},
        {"NewUnbounded", {}, {}, 0, few},
        {"NewUnboundedMapped", {}, {}, 0, large},
        {"ReopenBounded", stored, {}, 20'000, more},
        {"ReopenBoundedMapped", storedLarge, {}, kLarge, more},
        {"ReopenUnbounded", stored, {}, 0, more},
        {"ReopenUnboundedMapped", storedLarge, {}, 0, more},
        {"ReopenDamagedBounded", stored, 2, 20'000, more},
        {"ReopenDamagedUnbounded", stored, 1, 0, more},
        {"ReopenDamagedMapped", storedLarge, 2, 0, more},
    };
}

}  // namespace faults
