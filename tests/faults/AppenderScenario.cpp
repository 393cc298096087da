#include "faults/AppenderScenario.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <system_error>
#include <utility>

#include "Corvane/File/ChunkFileLayout.h"
#include "support/ChunkFileTest.h"
#include "support/Records.h"

namespace faults {

using Corvane::File::kHeaderSize;
using support::DataChunkFileAppender;
using support::RecordOf;
using support::SystemCall;

namespace {

bool IsReadOnly(const SystemCall& call)
{
    return call.flags == O_RDONLY;
}

}  // namespace

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
        std::ostringstream printed;
        printed << made->GetTimePoint();
        chunks_.push_back({std::move(made), std::move(record), printed.str(), chunk.time, End::kThrown});
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
    flushThrew_ = false;
    Try([this] {
        auto appender =
            file_.empty() ? support::NewFile(path_, setup_.maxSize) : support::Reopened(path_, setup_.maxSize);
        constructed_ = true;
        AppendAll(appender);
        if (setup_.flushed) {
            flushThrew_ = true;
            Try([&] {
                appender.Flush();
                flushThrew_ = false;
            });
        }
        Ask(appender);
    });
}

// A second attempt shows that a failure left nothing half done.
void AppenderScenario::Ask(const DataChunkFileAppender& appender)
{
    timePoints_.reset();
    for (int attempt = 0; attempt < 2 && !timePoints_; ++attempt) {
        Try([&] { timePoints_ = appender.GetTimePoints().size(); });
    }
}

void AppenderScenario::AppendAll(DataChunkFileAppender& appender)
{
    for (Chunk& chunk : chunks_) {
        chunk.end = End::kThrown;
        for (int attempt = 0; attempt < 2 && chunk.end == End::kThrown; ++attempt) {
            Try([&] { chunk.end = appender.Append(*chunk.chunk) ? End::kHeld : End::kRefused; });
        }
        if (setup_.asked) {
            Ask(appender);
        }
    }
}

bool AppenderScenario::Recovered() const
{
    const auto isThrown = [](const Chunk& chunk) { return chunk.end == End::kThrown; };
    return !constructed_ || (timePoints_ && std::none_of(chunks_.begin(), chunks_.end(), isThrown));
}

bool AppenderScenario::Succeeded() const
{
    return constructed_ && Recovered() && thrown.empty();
}

// The bytes that reopening could load; a file that cannot be read to its end counts as empty.
std::uint64_t AppenderScenario::Loaded(const Calls& calls)
{
    bool failed = calls.empty();
    for (const SystemCall& call : calls) {
        const bool loads = call.name == "read" || call.name == "fstat" || (call.name == "open" && IsReadOnly(call));
        failed = loads ? call.result == -1 : failed;  // a later read repeats an interrupted one
    }
    return failed ? 0 : Moved(calls, "read");
}

// The stored records that are good and lie within the loaded bytes.
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

Lines AppenderScenario::ConstructionLines(std::uint64_t loaded) const
{
    if (file_.empty() || loaded < kHeaderSize) {
        return {};
    }
    const std::uint64_t count = setup_.stored.size();
    const std::uint64_t good = GoodRecords(loaded);
    Lines lines = {"20 In file " + path_ + ": we discovered " + std::to_string(count) + " chunks from version 2"};
    if (good < count) {
        lines.push_back("40 Chunk " + std::to_string(good) + " in file " + path_ + " of " + std::to_string(count) +
                        " chunks is not good. We skip the remaining " + std::to_string(count - 1 - good) + " chunks");
    }
    return lines;
}

// All log entries of an appender that was constructed.
Lines AppenderScenario::ExpectedLines(const Calls& calls) const
{
    Lines lines = ConstructionLines(Loaded(calls));
    for (const Chunk& chunk : chunks_) {
        if (chunk.end == End::kRefused) {
            lines.push_back("50 TimePoint " + chunk.printed + " has already been appended");
        }
    }
    bool entryMissing = flushThrew_;
    for (const SystemCall& call : calls) {
        const bool whole = call.name != "write" || call.result == static_cast<std::int64_t>(call.size);
        if (!whole && !std::exchange(entryMissing, false)) {
            lines.push_back("50 Could not write " + std::to_string(call.size) +
                            "B. Wrote instead: " + std::to_string(call.result));
        }
    }
    return lines;
}

// What the constructor must throw after these calls; empty: nothing.
std::string AppenderScenario::ConstructionFailure(const Calls& calls) const
{
    const std::uint64_t loaded = Loaded(calls);
    if (!file_.empty() && loaded < kHeaderSize) {
        return "std::runtime_error: DataChunkFileAppender: file " + path_ + " has content of only " +
               std::to_string(loaded) + " bytes. 16is the minimum expected";
    }
    for (const SystemCall& call : calls) {
        if (call.name == "open" && !IsReadOnly(call) && call.result == -1) {
            return "std::runtime_error: DataChunkFileAppender could not open file " + path_ + ": " +
                   std::generic_category().message(call.error);
        }
    }
    return {};
}

// For a constructor that threw: the file's fault, or no memory.
void AppenderScenario::CheckRefused(const Traces& traces) const
{
    const bool interrupted = traces.fault.allocation || traces.fault.collaborator || MemoryRefused(traces.calls);
    ASSERT_EQ(thrown.size(), 1U);
    EXPECT_TRUE(interrupted || thrown[0] == ConstructionFailure(traces.calls)) << thrown[0];
    ExpectLines(traces, ConstructionLines(Loaded(traces.calls)), interrupted);
    EXPECT_EQ(std::filesystem::exists(path_), !file_.empty());
    EXPECT_TRUE(file_.empty() || support::ReadFile(path_) == file_);
    for (const SystemCall& call : traces.calls) {
        EXPECT_TRUE(call.name != "open" || call.result == -1 || IsReadOnly(call)) << call.flags;
    }
}

// Each write begins where the last one ended.
void AppenderScenario::CheckFile(const Calls& calls) const
{
    const std::string image = ExpectedImage(Loaded(calls));
    std::string file;
    for (const SystemCall& call : calls) {
        if (call.name == "write" && call.result > 0) {
            file += image.substr(0, static_cast<std::size_t>(call.result));
        }
    }
    file += file.size() < file_.size() ? file_.substr(file.size()) : std::string();
    EXPECT_TRUE(support::ReadFile(path_) == file);
}

void AppenderScenario::CheckTimePoints(std::uint64_t loaded) const
{
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
    EXPECT_EQ(timePoints_.value_or(times.size()), times.size());
}

void AppenderScenario::Check(const Traces& traces) const
{
    if (!constructed_) {
        CheckRefused(traces);
        return;
    }
    const bool mayThrow = traces.fault.allocation || traces.fault.collaborator || MemoryRefused(traces.calls);
    EXPECT_TRUE(mayThrow || thrown.empty()) << testing::PrintToString(thrown);
    ExpectLines(traces, ExpectedLines(traces.calls), false);
    CheckFile(traces.calls);
    CheckTimePoints(Loaded(traces.calls));
}

std::vector<AppenderSetup> AppenderSetups()
{
    const std::vector<ChunkSetup> few = {{1, 100}, {3, 3000}, {2, 80}, {3, 9000}, {4, 60}};
    const std::vector<ChunkSetup> large = {{1, 700'000}, {3, 900'000}, {2, 500'000}, {3, 60}, {4, 1'200'000}};
    const std::vector<ChunkSetup> stored = {{11, 100}, {13, 5000}, {12, 60}, {14, 300}};
    const std::vector<ChunkSetup> storedLarge = {{11, 1'000'000}, {13, 60}, {12, 1'200'000}, {14, 300}};
    const std::vector<ChunkSetup> more = {{20, 200}, {11, 70}, {15, 7000}};
    constexpr std::uint64_t kLarge = 3'400'000;  // bytes; more than a huge page, so the image is mapped
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
        {"ReopenDamagedFlushed", stored, 2, 20'000, more, true},
        {"NewBoundedAsked", {}, {}, 20'000, few, false, true},
        {"ReopenUnboundedAsked", stored, {}, 0, more, false, true},
    };
}

}  // namespace faults
