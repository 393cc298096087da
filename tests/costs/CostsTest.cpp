// What the library's operations cost in calls, allocations and memory. Other load on the machine does not change these
// numbers. The benchmarks measure times.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <random>
#include <tuple>
#include <vector>

#include "Corvane/File/DataChunkFileReader.h"
#include "Corvane/File/DataChunkFileScanner.h"
#include "support/Allocations.h"
#include "support/ChunkFileTest.h"
#include "support/Files.h"
#include "support/SystemCalls.h"
#include "support/scripted/ScriptedPlatform.h"

namespace {

using Corvane::Pellin::DataChunk;
using Corvane::Time::TimePoint;
using support::kUnbounded;
using support::Lines;

constexpr std::uint64_t kChunks = 10'000;
constexpr std::uint64_t kRecordSize = 64;
constexpr std::uint64_t kFileSize = 16 + kChunks * kRecordSize;
constexpr std::uint64_t kMiB = 1U << 20U;

// Calls and allocations of one append, as an average.
struct Asked {
    double sizes = 0;
    double timePoints = 0;
    double writes = 0;
    double comparisons = 0;
    double copies = 0;
    double allocations = 0;
};

std::vector<std::int64_t> TimesInOrder()
{
    std::vector<std::int64_t> times(kChunks);
    std::iota(times.begin(), times.end(), 0);
    return times;
}

std::vector<std::int64_t> TimesInRandomOrder()
{
    std::vector<std::int64_t> times = TimesInOrder();
    std::shuffle(times.begin(), times.end(),
                 std::mt19937_64(1));  // NOLINT(cert-msc51-cpp): the same in every run
    return times;
}

class Costs : public support::ChunkFileTest {
protected:
    Asked Append(
        const std::vector<std::int64_t>& times, std::uint64_t maxSize,
        const std::function<void(const support::DataChunkFileAppender&)>& before = [](const auto&) {})
    {
        auto file = NewFile(maxSize);
        before(file);
        Asked asked;
        const auto count = [](double& counter) { return [&counter] { counter += 1.0 / kChunks; }; };
        DataChunk::onGetSizeOnFile = count(asked.sizes);
        DataChunk::onGetTimePoint = count(asked.timePoints);
        DataChunk::onWrite = count(asked.writes);
        TimePoint::onCompare = count(asked.comparisons);
        TimePoint::onCopy = count(asked.copies);
        const support::Allocations allocations;
        for (const std::int64_t time : times) {
            EXPECT_TRUE(file.Append(DataChunk(time, kRecordSize)));
        }
        asked.allocations = static_cast<double>(allocations.Count()) / kChunks;
        platform_.ClearScript();
        return asked;
    }

    // Fills a new file up to `size` bytes with chunks of 64 KiB.
    void Fill(std::uint64_t size, std::uint64_t maxSize)
    {
        auto file = NewFile(maxSize);
        for (std::uint64_t i = 0; i < size / 65536; ++i) {
            ASSERT_TRUE(file.Append(DataChunk(static_cast<std::int64_t>(i), 65536)));
        }
    }

    // Filling a file takes at most `mostMiB` of memory.
    void ExpectPeak(std::uint64_t size, std::uint64_t maxSize, std::uint64_t mostMiB)
    {
        const int result =
            support::RunInChild([&] { EXPECT_LE(support::PeakGrowth([&] { Fill(size, maxSize); }) / kMiB, mostMiB); });
        EXPECT_EQ(result, 0);
    }

    // The system calls of reopening a file with this number of chunks.
    Lines CallsOfReopening(std::uint64_t chunks)
    {
        {
            auto file = NewFile(kFileSize);
            for (std::uint64_t i = 0; i < chunks; ++i) {
                EXPECT_TRUE(file.Append(DataChunk(static_cast<std::int64_t>(i), kRecordSize)));
            }
        }
        const support::SystemCalls calls;
        {
            const auto file = Reopened(kFileSize);
            EXPECT_EQ(file.GetTimePoints().size(), chunks);
        }
        return calls.Names();
    }

    support::ScriptedPlatform platform_;
};

TEST_F(Costs, AppendAsksAChunkOnceForEverything)
{
    const Asked asked = Append(TimesInOrder(), kFileSize);
    EXPECT_NEAR(asked.sizes, 1, 1e-6);
    EXPECT_NEAR(asked.timePoints, 1, 1e-6);
    EXPECT_NEAR(asked.writes, 1, 1e-6);
}

TEST_F(Costs, AppendInOrderTakesOneComparisonOneCopyAndSeldomAnAllocation)
{
    const Asked asked = Append(TimesInOrder(), kFileSize);
    EXPECT_NEAR(asked.comparisons, 1, 0.001);
    EXPECT_NEAR(asked.copies, 1, 1e-6);
    EXPECT_LT(asked.allocations, 0.02);  // a block for 64 time points
}

TEST_F(Costs, AppendInOrderAfterTheSetWasAskedForTakesThreeComparisonsOneCopyOneAllocation)
{
    const Asked asked = Append(TimesInOrder(), kFileSize, [](const auto& file) { std::ignore = file.GetTimePoints(); });
    EXPECT_GT(asked.comparisons, 0);
    EXPECT_LE(asked.comparisons, 3);
    EXPECT_NEAR(asked.copies, 1, 1e-6);
    EXPECT_NEAR(asked.allocations, 1, 1e-6);
}

TEST_F(Costs, AppendInRandomOrderSearchesOnceAndCopiesABlock)
{
    const Asked asked = Append(TimesInRandomOrder(), kFileSize);
    EXPECT_GT(asked.comparisons, std::log2(kChunks) - 2);
    EXPECT_LT(asked.comparisons, 1.2 * std::log2(kChunks) + 8);  // a second search would double them
    EXPECT_LT(asked.copies, 65);
    EXPECT_LT(asked.allocations, 1.1);
}

TEST_F(Costs, AppendInRandomOrderAfterTheSetWasAskedForSearchesItOnce)
{
    const Asked asked =
        Append(TimesInRandomOrder(), kFileSize, [](const auto& file) { std::ignore = file.GetTimePoints(); });
    EXPECT_GT(asked.comparisons, std::log2(kChunks) - 2);
    EXPECT_LT(asked.comparisons, 1.2 * std::log2(kChunks) + 4);
    EXPECT_NEAR(asked.copies, 1, 1e-6);
    EXPECT_NEAR(asked.allocations, 1, 1e-6);
}

// A clock that was once far ahead makes every later chunk late.
TEST_F(Costs, AppendInOrderBeforeAFarTimeCopiesNoBlocks)
{
    std::vector<std::int64_t> times = TimesInOrder();
    times.insert(times.begin(), INT64_MAX);
    const Asked asked = Append(times, kFileSize + kRecordSize);
    EXPECT_LT(asked.copies, 1.1);
    EXPECT_LT(asked.allocations, 0.1);
}

TEST_F(Costs, AppendInDescendingOrderCopiesABlock)
{
    std::vector<std::int64_t> times = TimesInOrder();
    std::reverse(times.begin(), times.end());
    const Asked asked = Append(times, kFileSize);
    EXPECT_LT(asked.comparisons, std::log2(kChunks) + 8);
    EXPECT_LT(asked.copies, 65);
    EXPECT_LT(asked.allocations, 2.1);
}

TEST_F(Costs, AskingForTheSetTakesACopyAnAllocationAndTwoComparisonsForEachChunk)
{
    auto file = NewFile(kUnbounded);
    for (const std::int64_t time : TimesInOrder()) {
        ASSERT_TRUE(file.Append(DataChunk(time, kRecordSize)));
    }
    std::uint64_t comparisons = 0;
    std::uint64_t copies = 0;
    TimePoint::onCompare = [&] { ++comparisons; };
    TimePoint::onCopy = [&] { ++copies; };
    const support::Allocations allocations;
    EXPECT_EQ(file.GetTimePoints().size(), kChunks);
    EXPECT_EQ(allocations.Count(), kChunks);
    EXPECT_EQ(copies, kChunks);
    EXPECT_LE(comparisons, 2 * kChunks);
    EXPECT_EQ(file.GetTimePoints().size(), kChunks);
    EXPECT_EQ(allocations.Count(), kChunks);  // asking again costs nothing
}

TEST_F(Costs, GrowingAllocatesSeldom)
{
    EXPECT_LT(Append(TimesInOrder(), kUnbounded).allocations, 0.03);
}

TEST_F(Costs, LargeBoundedImageIsMappedOnceAndNeverMoved)
{
    const support::SystemCalls calls;
    Fill(64 * kMiB, 16 + 64 * kMiB);
    EXPECT_EQ(calls.Calls("mmap").size(), 1U);
    EXPECT_EQ(calls.Calls("mremap").size(), 0U);
    EXPECT_EQ(calls.Calls("write").size(), 1U);
}

TEST_F(Costs, GrowingTo64MiBMovesTheImageOncePerDoubling)
{
    const support::SystemCalls calls;
    Fill(64 * kMiB, kUnbounded);
    EXPECT_GE(calls.Calls("mremap").size(), 4U);  // from 2 MiB on
    EXPECT_LE(calls.Calls("mremap").size(), 6U);
    EXPECT_EQ(calls.Calls("mmap").size(), calls.Calls("mremap").size() + 1);
    EXPECT_EQ(calls.Calls("write").size(), 1U);
}

TEST_F(Costs, SmallFileTakesThreeCallsOrFourAndNoMapping)
{
    support::SystemCalls calls;
    Fill(kMiB / 16, kMiB / 10);
    EXPECT_EQ(calls.Names(), (Lines{"open", "write", "close"}));
    calls.Clear();
    Fill(kMiB - 65536, kMiB);
    EXPECT_EQ(calls.Names(), (Lines{"madvise", "open", "write", "close"}));
}

TEST_F(Costs, ReopeningTakesTheSameCallsForFewChunksAndForMany)
{
    const Lines few = CallsOfReopening(10);
    EXPECT_EQ(few, CallsOfReopening(kChunks));
    EXPECT_EQ(std::count(few.begin(), few.end(), "open"), 2);
    EXPECT_EQ(std::count(few.begin(), few.end(), "read"), 2);
    EXPECT_EQ(std::count(few.begin(), few.end(), "write"), 1);
}

TEST_F(Costs, FetchingAChunkTakesOneSeek)
{
    CallsOfReopening(10);
    Corvane::File::DataChunkFileReader file(path_);
    DataChunk chunk;
    const support::SystemCalls calls;
    EXPECT_NE(file.GetChunk(chunk, 16), 0U);
    EXPECT_EQ(calls.Names(), (Lines{"lseek64", "read"}));  // the read is the chunk's own
}

// Three calls for each of the first 16 records, seven for the window, two while it is short, one for the end of the
// file. Each further one reads 256 KiB.
TEST_F(Costs, ScanningReadsManyRecordsWithOneCallAndAllocatesNothing)
{
    CallsOfReopening(kChunks);
    Corvane::File::DataChunkFileScanner file(path_);
    const support::SystemCalls calls;
    const support::Allocations allocations;
    std::uint64_t count = 0;
    while (file.Next()) {
        ++count;
    }
    EXPECT_EQ(count, kChunks);
    EXPECT_EQ(allocations.Count(), 0U);
    EXPECT_LE(calls.Calls().size(), 16 * 3 + 10 + kFileSize / (kMiB / 4));
}

TEST_F(Costs, JumpingTakesOneCallOfTheRecordsSize)
{
    CallsOfReopening(100);
    Corvane::File::DataChunkFileScanner file(path_);
    for (std::uint64_t i = 0; i < 17; ++i) {  // then there is a window
        file.GoTo(16 + 3 * i * kRecordSize);
        EXPECT_TRUE(file.Next());
    }
    const support::SystemCalls calls;
    file.GoTo(16 + 70 * kRecordSize);
    EXPECT_TRUE(file.Next());
    ASSERT_EQ(calls.Names(), Lines{"pread"});
    EXPECT_EQ(calls.Calls()[0].size, kRecordSize);
}

TEST_F(Costs, ScanningTakesLittleMemoryWhateverTheFilesSize)
{
    if (support::kSanitized) {
        GTEST_SKIP() << "sanitizers take memory of their own";
    }
    Fill(64 * kMiB, kUnbounded);
    const int result = support::RunInChild([this] {
        const auto walk = [this] {
            Corvane::File::DataChunkFileScanner file(path_);
            while (file.Next()) {
            }
            EXPECT_EQ(file.GetNumberRead(), 64 * kMiB / 65536);
        };
        EXPECT_LE(support::PeakGrowth(walk), kMiB);
    });
    EXPECT_EQ(result, 0);
}

TEST_F(Costs, SearchingTakesItsWindowsMemory)
{
    if (support::kSanitized) {
        GTEST_SKIP() << "sanitizers take memory of their own";
    }
    support::WriteFile(path_, std::string(8 * kMiB, 'x'));
    const int result = support::RunInChild([this] {
        const auto search = [this] { EXPECT_FALSE(Corvane::File::DataChunkFileScanner(path_).FindNext()); };
        EXPECT_LE(support::PeakGrowth(search), 3 * kMiB);
    });
    EXPECT_EQ(result, 0);
}

TEST_F(Costs, MemoryIsTheImageAndLittleMore)
{
    if (support::kSanitized) {
        GTEST_SKIP() << "sanitizers take memory of their own";
    }
    ExpectPeak(64 * kMiB, 16 + 64 * kMiB, 68);
    ExpectPeak(64 * kMiB, kUnbounded, 68);
    ExpectPeak(kMiB, 64 * kMiB, 6);  // untouched pages take no memory
}

// Time points of 8 bytes; nobody asks for the set.
TEST_F(Costs, TimePointsTakeNineBytesInOrderAndFourteenInAnyOther)
{
    if (support::kSanitized) {
        GTEST_SKIP() << "sanitizers take memory of their own";
    }
    std::vector<std::int64_t> times(1'000'000);
    std::iota(times.begin(), times.end(), 0);
    const auto append = [&] {
        auto file = NewFile(kMiB);
        for (const std::int64_t time : times) {
            ASSERT_TRUE(file.Append(DataChunk(time, 1)));
        }
    };
    const auto expectPeak = [&](std::uint64_t mostBytesEach) {
        const std::uint64_t most = times.size() * (mostBytesEach + 1) + kMiB / 2;  // the record has one byte
        EXPECT_EQ(support::RunInChild([&] { EXPECT_LE(support::PeakGrowth(append), most); }), 0);
    };
    expectPeak(9);
    std::reverse(times.begin(), times.end());
    expectPeak(14);
    std::shuffle(times.begin(), times.end(),
                 std::mt19937_64(1));  // NOLINT(cert-msc51-cpp): the same in every run
    expectPeak(14);
}

}  // namespace
